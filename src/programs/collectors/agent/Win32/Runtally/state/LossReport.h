#pragma once

#include "shared/library/common/system/LossBook.h"
#include "shared/library/common/time/DateTime.h"

#include <cstdint>

namespace Velmor {

/// Says how many process events, and how many names of executed programs, the kernel could not keep: at once when the
/// first are known, and then at most once a minute, with how many they are since the last message and in all, and
/// between which moments they were lost. The tracer's thread uses it.
class LossReport {
public:
    LossReport();
    /// Asks the session, at most ten times a second, and says what is due.
    void look();
    /// Says what hasn't been said yet, due or not: the session is about to end.
    void finish();

private:
    struct Count {
        int32_t message;
        LossBook::Cause cause;
        uint64_t lost = 0; // in all, as the session told last
        uint64_t reported = 0;
        DateTime complete{};     // the last look that found nothing lost since the report before
        DateTime lastSeen{};     // the last look that found something lost
        uint32_t lastReport = 0; // ticks

        void take(uint64_t now);
        void tell();
        void tellIfDue(uint32_t ticks);
    };

    void ask();

    Count events_;
    Count names_;
    uint32_t lastLook_ = 0; // ticks
};

} // namespace Velmor
