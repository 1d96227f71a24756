#pragma once

#include "platform/Processes.h"
#include "platform/linux/processes/ExitCodes.h"
#include "platform/linux/processes/ProcessTable.h"
#include "platform/linux/processes/TracedProcess.h"

#include <memory>
#include <string>
#include <vector>

namespace Velmor {

/// A process as the collector holds it open.
class OpenedProcess : public NativeProcess {
public:
    virtual uint32_t pid() const = 0;
    virtual bool isAlive() const = 0;
    /// Effective; `TracedProcess::unknownOwner` if nobody knows.
    virtual uid_t owner() const = 0;
    /// `stillActive` while it runs. False if it can't be learnt.
    virtual bool exitCode(uint32_t& code) const = 0;
    virtual bool startTime(uint64_t& time) const = 0;
    virtual uint64_t startTicks() const = 0; // clock ticks since the system's start; 0 unknown
    virtual bool isFileHere() const = 0;

    std::string executable;           // when it was opened; empty if nobody could tell
    std::vector<std::string> modules; // behind the executable, as they were read last
};

/// One that is held by its descriptor.
class HeldProcess : public OpenedProcess {
public:
    HeldProcess(std::shared_ptr<ProcessRecord> record, TracedProcesses& traced, ExitCodes& codes)
        : record_(std::move(record)), traced_(traced), codes_(codes) {}

    uint32_t pid() const override { return record_->pid; }
    bool isAlive() const override { return record_->isAlive(); }
    uid_t owner() const override { return record_->owner; }
    bool exitCode(uint32_t& code) const override;
    uint64_t startTicks() const override { return record_->startTime; }
    bool startTime(uint64_t& time) const override;
    bool isFileHere() const override;

private:
    std::shared_ptr<ProcessRecord> record_;
    TracedProcesses& traced_; // may know that its program was replaced
    ExitCodes& codes_;
};

/// One that the events tell of, which may have ended long before it is looked at.
class FollowedProcess : public OpenedProcess {
public:
    FollowedProcess(TracedPointer note, ExitCodes& codes) : note_(std::move(note)), codes_(codes) {}

    uint32_t pid() const override { return note_->pid; }
    bool isAlive() const override { return note_->isAlive(); }
    uid_t owner() const override { return note_->owner; }
    bool exitCode(uint32_t& code) const override;
    uint64_t startTicks() const override { return note_->startTicks; }
    bool startTime(uint64_t& time) const override;
    bool isFileHere() const override;

private:
    TracedPointer note_;
    ExitCodes& codes_;
};

} // namespace Velmor
