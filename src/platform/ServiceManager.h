#pragma once

#include <cstdint>
#include <string_view>

namespace Velmor {

/// Whoever starts and watches the program as a service. Does nothing where nobody asked to be told. `status` is one
/// sentence on what the program does, for the administrator who asks the manager; a manager that keeps no such text, as
/// that of Windows, isn't told it.
class ServiceManager {
public:
    virtual ~ServiceManager() = default;

    /// The program does its work, from now on or again.
    virtual void ready(std::string_view status) = 0;
    /// It reads its configuration again; `ready` follows.
    virtual void reloading() = 0;
    /// It is well. Whoever watches it takes one that doesn't say so for minutes for stuck, and starts it anew.
    virtual void alive(std::string_view status) = 0;
    /// It is on its way to its end.
    virtual void stopping() = 0;

    /// Gives a line of the program's log, of a severity from 0 (notice) to 4 (fatal), to the manager's journal, if that
    /// reads what the program writes.
    virtual void note(int32_t severity, std::string_view line) = 0;
};

} // namespace Velmor
