#include "platform/linux/trace/ProcessConnector.h"

#include "platform/linux/base/Capabilities.h"
#include "platform/linux/base/KernelClock.h"

#include <algorithm>
#include <array>
#include <atomic>
#include <cerrno>
#include <cstddef>
#include <cstring>
#include <linux/cn_proc.h>
#include <linux/connector.h>
#include <linux/netlink.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

namespace Velmor {

namespace {
constexpr size_t messageSize = 256;
constexpr size_t messagesAtOnce = 64;
constexpr int64_t consentLimit = KernelClock::second;
constexpr uint32_t mostProcessors = 8192;

// Kinds of events; where the system's headers name them differs between its versions.
constexpr uint32_t noEvent = 0; // an answer
constexpr uint32_t forkEvent = 1;
constexpr uint32_t execEvent = 2;
constexpr uint32_t uidEvent = 4;
constexpr uint32_t exitEvent = 0x80000000;

struct Request {
    nlmsghdr header;
    char payload[sizeof(cn_msg) + sizeof(proc_cn_mcast_op)];
};

bool ask(int socket, proc_cn_mcast_op operation, uint32_t number) {
    Request request{};
    request.header.nlmsg_len = NLMSG_LENGTH(sizeof(request.payload));
    request.header.nlmsg_type = NLMSG_DONE;
    cn_msg message{};
    message.id = {CN_IDX_PROC, CN_VAL_PROC};
    message.len = sizeof(operation);
    message.ack = number;
    std::memcpy(request.payload, &message, offsetof(cn_msg, data));
    std::memcpy(request.payload + offsetof(cn_msg, data), &operation, sizeof(operation));
    return send(socket, &request, request.header.nlmsg_len, 0) >= 0;
}

bool readEvent(const char* message, size_t size, cn_msg& head, proc_event& event) {
    constexpr size_t headPlace = NLMSG_HDRLEN;
    constexpr size_t eventPlace = headPlace + offsetof(cn_msg, data);
    if (size < eventPlace)
        return false;
    std::memcpy(&head, message + headPlace, offsetof(cn_msg, data));
    if (head.id.idx != CN_IDX_PROC || head.len < offsetof(proc_event, event_data))
        return false;
    event = {};
    std::memcpy(&event, message + eventPlace, std::min({size - eventPlace, size_t{head.len}, sizeof(event)}));
    return true;
}
} // namespace

class ProcessConnector::Buffers {
public:
    Buffers() {
        for (size_t i = 0; i < messagesAtOnce; ++i) {
            pieces[i] = {bytes[i].data(), messageSize};
            messages[i].msg_hdr.msg_iov = &pieces[i];
            messages[i].msg_hdr.msg_iovlen = 1;
        }
    }

    std::array<std::array<char, messageSize>, messagesAtOnce> bytes{};
    std::array<iovec, messagesAtOnce> pieces{};
    std::array<mmsghdr, messagesAtOnce> messages{};
};

std::unique_ptr<ProcessConnector> ProcessConnector::start() {
    if (!hasCapability(Capability::netAdmin)) {
        errno = EPERM;
        return nullptr;
    }
    const RaisedCapability raised(Capability::netAdmin);
    static std::atomic<uint32_t> requests{0};
    const uint32_t request = (static_cast<uint32_t>(getpid()) << 8U) + (requests++ & 0xffU);
    FileDescriptor socket(::socket(AF_NETLINK, SOCK_DGRAM | SOCK_CLOEXEC | SOCK_NONBLOCK, NETLINK_CONNECTOR));
    sockaddr_nl address{};
    address.nl_family = AF_NETLINK;
    address.nl_groups = CN_IDX_PROC;
    // Some kernels take a full buffer for a listener that has gone, and tell nothing more, unless they are to fail
    // then.
    constexpr int yes = 1;
    setsockopt(socket.get(), SOL_NETLINK, NETLINK_BROADCAST_ERROR, &yes, sizeof(yes));
    if (!socket || setsockopt(socket.get(), SOL_SOCKET, SO_RCVBUFFORCE, &bufferSize, sizeof(bufferSize)) != 0 ||
        bind(socket.get(), reinterpret_cast<sockaddr*>(&address), sizeof(address)) != 0 ||
        !ask(socket.get(), PROC_CN_MCAST_LISTEN, request))
        return nullptr;
    auto connector = std::make_unique<ProcessConnector>(std::move(socket));
    if (!connector->awaitConsent(request))
        return nullptr;
    return connector;
}

ProcessConnector::ProcessConnector(FileDescriptor socket)
    : socket_(std::move(socket)), buffers_(std::make_shared<Buffers>()) {}

/// A kernel that doesn't serve this name space says nothing at all, and the answers to others come as well. What comes
/// before the answer is of no interest yet.
bool ProcessConnector::awaitConsent(uint32_t request) {
    const int64_t limit = KernelClock::now(CLOCK_MONOTONIC) + consentLimit;
    std::array<char, messageSize> buffer{};
    for (int64_t left = consentLimit; left > 0; left = limit - KernelClock::now(CLOCK_MONOTONIC)) {
        pollfd wanted{socket_.get(), POLLIN, 0};
        poll(&wanted, 1, static_cast<int>(left / 1'000'000) + 1);
        const ssize_t size = recv(socket_.get(), buffer.data(), buffer.size(), 0);
        cn_msg head{};
        proc_event event{};
        if (size <= 0 || !readEvent(buffer.data(), static_cast<size_t>(size), head, event) ||
            static_cast<uint32_t>(event.what) != noEvent || head.ack != request + 1)
            continue;
        errno = static_cast<int>(event.event_data.ack.err);
        return event.event_data.ack.err == 0;
    }
    errno = EPERM;
    return false;
}

void ProcessConnector::fetch(std::vector<ProcessNotice>& notices, size_t limit) {
    while (notices.size() < limit) {
        const int count = recvmmsg(socket_.get(), buffers_->messages.data(), messagesAtOnce, MSG_DONTWAIT, nullptr);
        if (count < 0 && errno == ENOBUFS)
            ++overruns_;
        if (count < 0 && (errno == EINTR || errno == ENOBUFS))
            continue;
        if (count <= 0)
            return;
        for (size_t i = 0; i < static_cast<size_t>(count); ++i)
            take(buffers_->bytes[i].data(), std::min<size_t>(buffers_->messages[i].msg_len, messageSize), notices);
        if (static_cast<size_t>(count) < messagesAtOnce)
            return;
    }
}

void ProcessConnector::countGap(uint32_t processor, uint32_t number) {
    if (processor >= mostProcessors)
        return;
    if (processor >= next_.size())
        next_.resize(processor + 1, -1);
    if (next_[processor] >= 0)
        lost_ += static_cast<uint32_t>(number - static_cast<uint32_t>(next_[processor]));
    next_[processor] = static_cast<uint32_t>(number + 1);
}

void ProcessConnector::take(const char* message, size_t size, std::vector<ProcessNotice>& notices) {
    cn_msg head{};
    proc_event event{};
    if (!readEvent(message, size, head, event))
        return;
    countGap(event.cpu, head.seq); // the answers to whoever asks to listen are numbered as well
    using Kind = ProcessNotice::Kind;
    ProcessNotice notice;
    notice.time = static_cast<int64_t>(event.timestamp_ns);
    const auto& data = event.event_data;
    switch (static_cast<uint32_t>(event.what)) {
    case forkEvent:
        notice.kind = data.fork.child_pid == data.fork.child_tgid ? Kind::forked : Kind::threadStarted;
        notice.pid = static_cast<uint32_t>(data.fork.child_tgid);
        notice.other = static_cast<uint32_t>(data.fork.parent_tgid);
        break;
    case execEvent:
        notice.kind = Kind::executed;
        notice.pid = static_cast<uint32_t>(data.exec.process_tgid);
        break;
    case uidEvent:
        notice.kind = Kind::ownerChanged;
        notice.pid = static_cast<uint32_t>(data.id.process_tgid);
        notice.other = data.id.e.euid;
        break;
    case exitEvent:
        notice.kind = Kind::exited;
        notice.pid = static_cast<uint32_t>(data.exit.process_tgid);
        notice.other = static_cast<uint32_t>(data.exit.process_pid);
        notice.status = data.exit.exit_code;
        break;
    default:
        return;
    }
    if (isProcessId(notice.pid))
        notices.push_back(notice);
}

} // namespace Velmor
