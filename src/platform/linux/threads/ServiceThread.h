#pragma once

#include <csignal>
#include <thread>
#include <utility>

namespace Velmor {

/// Starts a thread of a service's own. It takes no signals: those are for the program's threads.
template <typename Body>
std::thread startServiceThread(Body body) {
    return std::thread([body = std::move(body)] {
        sigset_t all;
        sigfillset(&all);
        pthread_sigmask(SIG_BLOCK, &all, nullptr);
        body();
    });
}

} // namespace Velmor
