#pragma once

#include "platform/ServiceManager.h"

namespace Velmor {

/// Tells systemd, by one datagram each to the socket that NOTIFY_SOCKET names.
class LinuxServiceManager : public ServiceManager {
public:
    void ready(std::string_view status) override;
    void reloading() override;
    void alive(std::string_view status) override;
    void stopping() override;
};

} // namespace Velmor
