#pragma once

#include "programs/collectors/agent/Win32/Runtally/state/ProcessRegistry.h"

#include <cstdint>
#include <string_view>

namespace Velmor {

/// Holds the registry until it goes, whatever ends the work; test it before use.
class RegistryHold {
public:
    explicit RegistryHold(std::string_view who) : who_(who), isHeld_(RegistryAccess::enforceMonopoly(who, 0)) {}
    RegistryHold(const RegistryHold&) = delete;
    RegistryHold& operator=(const RegistryHold&) = delete;
    ~RegistryHold() {
        if (isHeld_)
            RegistryAccess::relaxMonopoly(who_);
    }
    explicit operator bool() const { return isHeld_; }

private:
    std::string_view who_;
    bool isHeld_;
};

/// The same for whoever works on the whole map.
class AllCheckedOut {
public:
    AllCheckedOut() : isHeld_(RegistryAccess::checkOutAll()) {}
    AllCheckedOut(const AllCheckedOut&) = delete;
    AllCheckedOut& operator=(const AllCheckedOut&) = delete;
    ~AllCheckedOut() {
        if (isHeld_)
            RegistryAccess::checkInAll();
    }
    explicit operator bool() const { return isHeld_; }

private:
    bool isHeld_;
};

/// The same for one tracked process.
class CheckedOut {
public:
    explicit CheckedOut(uint32_t pid) : isAccessible_(RegistryAccess::checkOut(pid, process_)) {}
    CheckedOut(const CheckedOut&) = delete;
    CheckedOut& operator=(const CheckedOut&) = delete;
    ~CheckedOut() {
        if (!process_.isNull())
            RegistryAccess::checkIn(process_);
    }
    /// False if the registry could not be had.
    bool isAccessible() const { return isAccessible_; }
    /// Null if none of that id is tracked.
    const ProcessPointer& process() const { return process_; }

private:
    ProcessPointer process_;
    bool isAccessible_;
};

} // namespace Velmor
