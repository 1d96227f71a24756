#include "platform/linux/processes/OpenedProcess.h"

#include "platform/Errors.h"
#include "platform/linux/processes/ProcFile.h"

namespace Velmor {

bool HeldProcess::exitCode(uint32_t& code) const {
    // A program that was replaced by another in the same process has ended, though the process lives.
    if (const TracedPointer note = traced_.find(record_->pid);
        note && isSameStart(note->startTicks, record_->startTime) && note->state >= 0) {
        code = static_cast<uint32_t>(note->state);
        return true;
    }
    if (!isAlive())
        return codes_.ask(*record_, code);
    code = stillActive;
    return true;
}

bool HeldProcess::startTime(uint64_t& time) const {
    constexpr unsigned generationBits = 8;
    time = (record_->startTime << generationBits) + record_->generation;
    return true;
}

bool HeldProcess::isFileHere() const {
    return isExecutableHere(record_->pid, executable) || !isAlive();
}

bool FollowedProcess::exitCode(uint32_t& code) const {
    const bool runs = isAlive();
    const int64_t state = note_->state; // read last: who runs no more has got its code
    if (state >= 0 || runs) {
        code = state >= 0 ? static_cast<uint32_t>(state) : stillActive;
        return true;
    }
    return note_->isReleased() ? codes_.ask(*note_->record, code)
                               : codes_.askUnheld(note_->pid, note_->startTicks, code);
}

bool FollowedProcess::startTime(uint64_t&) const {
    return false; // the events' clock doesn't tell the tick
}

bool FollowedProcess::isFileHere() const {
    if (isAlive())
        return isExecutableHere(note_->pid, executable) || !isAlive();
    return !note_->file || leadsTo(executable, *note_->file);
}

} // namespace Velmor
