#pragma once

#include <memory>

namespace Velmor {

/// A recursive lock between the threads of this process.
class CriticalSection {
public:
    virtual ~CriticalSection() = default;

    virtual void enter() = 0;
    virtual bool tryEnter() = 0;

    /// Gives one entry back. Ignored if the calling thread doesn't hold the section (any more).
    virtual void leave() = 0;

    /// Begins anew: the section is free at once, although somebody may hold it. The holder's later `leave` is ignored.
    virtual void renew() = 0;
};

class CriticalSections {
public:
    virtual ~CriticalSections() = default;
    virtual std::unique_ptr<CriticalSection> create() = 0;
};

} // namespace Velmor
