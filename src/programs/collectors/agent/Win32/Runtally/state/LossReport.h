#pragma once

#include "shared/library/common/time/DateTime.h"

#include <cstdint>

namespace Velmor {

/// Says how many process events the kernel could not keep: at once when the first are known, and then at most once a
/// minute, with how many they are since the last message and in all, and between which moments they were lost. The
/// tracer's thread uses it.
class LossReport {
public:
    /// Asks the session, at most ten times a second, and says what is due.
    void look();
    /// Says what hasn't been said yet, due or not: the session is about to end.
    void finish();

private:
    void ask();
    void tell();

    uint64_t lost_ = 0; // in all, as the session told last
    uint64_t reported_ = 0;
    DateTime complete_;     // the last look that found nothing lost since the report before
    DateTime lastSeen_;     // the last look that found something lost
    uint32_t lastLook_ = 0; // ticks
    uint32_t lastReport_ = 0;
};

} // namespace Velmor
