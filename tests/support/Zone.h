#pragma once

#include "shared/library/common/time/DateTime.h"

#include <cstdlib>
#include <ctime>

namespace Velmor {

/// Puts the rules of a place in force for the native clock while it lives.
class Zone {
public:
    explicit Zone(const char* name) {
        setenv("TZ", name, 1);
        forgetOthers();
    }
    Zone(const Zone&) = delete;
    Zone& operator=(const Zone&) = delete;
    ~Zone() {
        unsetenv("TZ");
        forgetOthers();
    }

private:
    static void forgetOthers() {
        tzset();
        DateTime(2000).set(2000, 1, 1, 0, 0, 0, false); // and a zone that a text gave
    }
};

} // namespace Velmor
