#include "shared/library/common/system/Monopoly.h"

#include "platform/Errors.h"
#include "platform/Platform.h"
#include "platform/Threads.h"
#include "shared/library/common/time/Timer.h"

#include <algorithm>

namespace Velmor {

namespace {
constexpr uint32_t resetPause = 20; // milliseconds for a thread on its way in to get clear of the section
constexpr int busyAttempts = 100;   // looks at a held lock that only yield the processor, before those that sleep
constexpr int heldAttempts = 600;
constexpr uint32_t heldPause = 10;        // milliseconds
constexpr uint32_t destructionPause = 10; // likewise
} // namespace

Monopoly::Monopoly() : section_(platform().criticalSections->create()) {}

Monopoly::Monopoly(std::string_view name, NamedLockAccess access) : Monopoly() {
    access_ = access;
    setName(name);
}

Monopoly::~Monopoly() {
    if (named_) {
        relax();
        return;
    }
    resetting_ = true;
    Timer::sleep(destructionPause);
}

bool Monopoly::setName(std::string_view name) {
    if (mutexHandle_)
        return false;
    name_ = name;
    std::replace_if(
        name_.begin(), name_.end(), [](char c) { return c == '/' || c == '\\'; }, '_');
    named_ = true;
    enforced_ = false;
    return true;
}

bool Monopoly::enforce() {
    if (named_)
        return enforceNamed();
    section_->enter();
    noteEntered();
    return true;
}

bool Monopoly::enforceNamed() {
    if (enforced_)
        return true;
    if (name_.empty() || mutexHandle_)
        return false;
    mutexHandle_ = platform().namedLocks->create(name_, access_, lastError_);
    enforced_ = mutexHandle_ != nullptr;
    return enforced_;
}

/// The first to enter a renewed section owes nothing for the calls that a lost owner has left open.
void Monopoly::noteEntered() {
    if (renewed_.exchange(false, std::memory_order_relaxed))
        count_.store(0, std::memory_order_relaxed);
    count_.fetch_add(1, std::memory_order_relaxed);
    enforced_.store(true, std::memory_order_relaxed);
    owner_.store(platform().threads->currentId(), std::memory_order_relaxed);
}

bool Monopoly::tryEnforce(bool& busy) {
    busy = false;
    if (named_)
        return false;
    if (isResetting()) {
        busy = true;
        return false;
    }
    if (!section_->tryEnter())
        return false;
    noteEntered();
    return true;
}

bool Monopoly::relax() {
    if (!isEnforced())
        return true;
    if (named_) {
        mutexHandle_.reset();
        enforced_ = false;
        return true;
    }
    // All is put in order before the section opens: behind it the next holder writes the same words.
    if (count_.fetch_sub(1, std::memory_order_relaxed) == 1) {
        owner_.store(0, std::memory_order_relaxed);
        enforced_.store(false, std::memory_order_relaxed);
    }
    section_->leave();
    return true;
}

void Monopoly::reset() {
    resetting_.store(true, std::memory_order_release);
    Timer::sleep(resetPause);
    renewed_.store(true, std::memory_order_relaxed);
    section_->renew();
    resetting_.store(false, std::memory_order_release);
}

TimedMonopolyHold::TimedMonopolyHold(Monopoly& monopoly) : monopoly_(monopoly) {
    bool busy = false;
    uint32_t owner = 0;
    for (int i = 0; !monopoly_.tryEnforce(busy); ++i) {
        if (const uint32_t present = monopoly_.getOwner(); present != owner) {
            owner = present; // another one has had its turn
            i = 0;
        }
        if (i == heldAttempts) {
            monopoly_.reset();
            i = 0;
        }
        Timer::sleep(i < busyAttempts ? 0 : heldPause);
    }
}

} // namespace Velmor
