#pragma once

#include "platform/CriticalSections.h"
#include "platform/NamedLocks.h"

#include <atomic>
#include <cstdint>
#include <memory>
#include <mutex>
#include <string>
#include <string_view>

namespace Velmor {

/// The lock class of the system, in two forms. Without a name: a recursive lock between the threads of the process, on
/// which `enforce` waits. With a name: a lock of the whole machine, which one holder at a time can have and on which
/// nothing ever waits; a second `enforce` elsewhere just answers false.
class Monopoly {
public:
    Monopoly();
    explicit Monopoly(std::string_view name, NamedLockAccess access = NamedLockAccess::own);
    Monopoly(const Monopoly&) = delete;
    Monopoly& operator=(const Monopoly&) = delete;
    /// Gives a named lock up. An unnamed one must not be in use any more.
    virtual ~Monopoly();

    /// Makes this the named form; slashes in the name become "_". False if the old name is held; nothing changes then.
    bool setName(std::string_view name);

    /// Takes the lock: waits for the unnamed form, and answers at once for the named one.
    bool enforce();

    /// Unnamed form only: takes the lock if it is free now. `busy` tells that it is just being reset.
    bool tryEnforce(bool& busy);

    /// Gives one `enforce` back. True also if nothing is held.
    bool relax();

    /// For a lock whose owner was killed and can never leave it: frees it at once. Count and owner keep their values
    /// until the next one enters.
    void reset();

    /// Why the named form could not be taken last, as a native error: 183 if somebody else holds the name.
    uint32_t getLastError() const { return lastError_; }

    bool isEnforced() const { return enforced_.load(std::memory_order_relaxed); }
    bool isResetting() const { return resetting_.load(std::memory_order_acquire); }
    int32_t getCount() const { return count_.load(std::memory_order_relaxed); }
    /// Thread id of the holder; 0 when free.
    uint32_t getOwner() const { return owner_.load(std::memory_order_relaxed); }

private:
    bool enforceNamed();
    void noteEntered();

    std::unique_ptr<CriticalSection> section_;
    NamedLockHandle mutexHandle_; // null while the name isn't held
    bool named_ = false;
    uint32_t lastError_ = 0;
    std::atomic<bool> enforced_{false};
    std::string name_;
    NamedLockAccess access_ = NamedLockAccess::own;
    std::atomic<bool> resetting_{false};
    std::atomic<bool> renewed_{false}; // by a reset; nobody has entered since
    std::atomic<int32_t> count_{0};    // open `enforce` calls of the owner
    std::atomic<uint32_t> owner_{0};
};

/// Holds an unnamed `Monopoly` from construction to destruction.
class MonopolyHold {
public:
    explicit MonopolyHold(Monopoly& monopoly) : monopoly_(monopoly) { monopoly_.enforce(); }
    /// One that this thread holds already.
    MonopolyHold(Monopoly& monopoly, std::adopt_lock_t) : monopoly_(monopoly) {}
    MonopolyHold(const MonopolyHold&) = delete;
    MonopolyHold& operator=(const MonopolyHold&) = delete;
    ~MonopolyHold() { monopoly_.relax(); }

private:
    Monopoly& monopoly_;
};

/// Holds an unnamed `Monopoly` whose holders keep it for moments only. A holder that was ended by force never lets go:
/// when one has kept the lock for some five seconds it is begun anew, so that a lost thread doesn't silence the
/// program.
class TimedMonopolyHold {
public:
    explicit TimedMonopolyHold(Monopoly& monopoly);
    TimedMonopolyHold(const TimedMonopolyHold&) = delete;
    TimedMonopolyHold& operator=(const TimedMonopolyHold&) = delete;
    ~TimedMonopolyHold() { monopoly_.relax(); }

private:
    Monopoly& monopoly_;
};

} // namespace Velmor
