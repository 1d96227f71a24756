#pragma once

#include "platform/ServiceManager.h"

namespace Velmor {

/// Tells systemd, by one datagram each to the socket that NOTIFY_SOCKET names, and its journal, where that has the
/// standard error, which JOURNAL_STREAM names by device and inode.
class LinuxServiceManager : public ServiceManager {
public:
    void ready(std::string_view status) override;
    void reloading() override;
    void alive(std::string_view status) override;
    void stopping() override;
    void note(int32_t severity, std::string_view line) override;
};

} // namespace Velmor
