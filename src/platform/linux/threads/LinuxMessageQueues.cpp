#include "platform/linux/threads/LinuxMessageQueues.h"

#include "platform/linux/base/WakeEvent.h"
#include "platform/linux/threads/Checkpoint.h"

#include <atomic>
#include <cerrno>
#include <csignal>
#include <cstdlib>
#include <deque>
#include <map>
#include <memory>
#include <mutex>
#include <poll.h>
#include <sys/syscall.h>
#include <unistd.h>

namespace Velmor {

namespace {
constexpr int requestSignals[]{SIGTERM, SIGINT, SIGHUP};

#if defined(__SANITIZE_THREAD__)
// Milliseconds: the sanitizer keeps a signal that comes just before a wait until the end of that.
constexpr int longestWait = 500;
#else
constexpr int longestWait = -1;
#endif

/// The messages of one thread, and a descriptor that is readable while something waits.
class Queue {
public:
    void post(uint32_t message) {
        {
            const ServiceLock lock(mutex_);
            messages_.push_back(message);
        }
        event_.ring();
    }

    bool take(uint32_t& message) {
        const ServiceLock lock(mutex_);
        if (messages_.empty())
            return false;
        message = messages_.front();
        messages_.pop_front();
        return true;
    }

    int descriptor() const { return event_.descriptor(); }

    void waitForRing() const {
        pollfd wanted{event_.descriptor(), POLLIN, 0};
        poll(&wanted, 1, longestWait);
        if (!event_.clear() && errno == EBADF)
            std::abort(); // without the descriptor the thread would spin
    }

private:
    std::mutex mutex_;
    std::deque<uint32_t> messages_;
    WakeEvent event_;
};

/// The queues by thread id.
struct Directory {
    std::mutex mutex;
    std::map<uint32_t, std::shared_ptr<Queue>> queues;
};

Directory& directory() {
    static auto* instance = new Directory; // threads may look here while the program ends
    return *instance;
}

uint32_t ownThreadId() {
    return static_cast<uint32_t>(syscall(SYS_gettid));
}

/// The calling thread's entry in the directory, from its first message call to its end.
class Registration {
public:
    Registration() : id_(ownThreadId()), queue_(std::make_shared<Queue>()) {
        const ServiceLock lock(directory().mutex);
        directory().queues[id_] = queue_;
    }
    Registration(const Registration&) = delete;
    Registration& operator=(const Registration&) = delete;
    ~Registration() {
        const ServiceLock lock(directory().mutex);
        directory().queues.erase(id_);
    }
    Queue& queue() { return *queue_; }

private:
    uint32_t id_;
    std::shared_ptr<Queue> queue_;
};

Queue& ownQueue() {
    static thread_local Registration registration;
    return registration.queue();
}

/// What signal handlers leave for the thread that receives the system's requests.
struct SystemRequests {
    std::atomic<uint32_t> receiver{0}; // thread id
    std::atomic<int> descriptor{-1};   // of its queue
    std::atomic<bool> close{false};
    std::atomic<bool> settingChange{false};
};
SystemRequests requests;

void onSignal(int signal) {
    const int savedError = errno;
    (signal == SIGHUP ? requests.settingChange : requests.close).store(true);
    if (const int descriptor = requests.descriptor.load(); descriptor >= 0)
        WakeEvent::ring(descriptor);
    errno = savedError;
}

bool takeSystemRequest(uint32_t& message) {
    if (requests.receiver.load() != ownThreadId())
        return false;
    if (requests.close.exchange(false)) {
        message = WindowMessage::close;
        return true;
    }
    if (requests.settingChange.exchange(false)) {
        message = WindowMessage::settingChange;
        return true;
    }
    return false;
}
} // namespace

bool LinuxMessageQueues::post(uint32_t threadId, uint32_t message) {
    std::shared_ptr<Queue> queue;
    {
        const ServiceLock lock(directory().mutex);
        const auto found = directory().queues.find(threadId);
        if (found == directory().queues.end())
            return false;
        queue = found->second;
    }
    queue->post(message);
    return true;
}

bool LinuxMessageQueues::peek(uint32_t& message) {
    checkpoint();
    Queue& queue = ownQueue();
    return takeSystemRequest(message) || queue.take(message);
}

bool LinuxMessageQueues::wait(uint32_t& message) {
    Queue& queue = ownQueue();
    while (true) {
        checkpoint();
        if (takeSystemRequest(message))
            return true;
        if (queue.take(message))
            return message != WindowMessage::quit;
        queue.waitForRing();
    }
}

namespace {
/// Requests that came while they were held arrive now.
void letRequestsIn() {
    sigset_t requested;
    sigemptyset(&requested);
    for (const int signal : requestSignals)
        sigaddset(&requested, signal);
    pthread_sigmask(SIG_UNBLOCK, &requested, nullptr);
}
} // namespace

void LinuxMessageQueues::obeySystemRequests() {
    letRequestsIn();
}

void LinuxMessageQueues::receiveSystemRequests() {
    requests.descriptor.store(ownQueue().descriptor());
    requests.receiver.store(ownThreadId());
    struct sigaction action {};
    action.sa_handler = onSignal;
    sigemptyset(&action.sa_mask);
    for (const int signal : requestSignals)
        sigaction(signal, &action, nullptr);
    action.sa_handler = SIG_IGN;
    sigaction(SIGPIPE, &action, nullptr);
    letRequestsIn();
}

} // namespace Velmor
