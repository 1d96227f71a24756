#include "platform/linux/processes/ExitRecords.h"

#include "platform/linux/base/Capabilities.h"
#include "platform/linux/threads/Checkpoint.h"
#include "platform/linux/threads/ServiceThread.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstddef>
#include <cstring>
#include <fstream>
#include <linux/genetlink.h>
#include <linux/netlink.h>
#include <linux/taskstats.h>
#include <poll.h>
#include <string>
#include <sys/socket.h>
#include <sys/sysmacros.h>

namespace Velmor {

namespace {
constexpr int bufferSize = 4 * 1024 * 1024; // some thousand ends that nobody has fetched
constexpr timeval answerLimit{1, 0};
constexpr size_t messageSize = 16 * 1024;

/// The payload of the first attribute of a type in a row of them; empty if there is none.
std::string_view findAttribute(std::string_view row, uint16_t type) {
    while (row.size() >= NLA_HDRLEN) {
        nlattr header{};
        std::memcpy(&header, row.data(), sizeof(header));
        if (header.nla_len < NLA_HDRLEN || header.nla_len > row.size())
            break;
        if ((header.nla_type & NLA_TYPE_MASK) == type)
            return row.substr(NLA_HDRLEN, header.nla_len - NLA_HDRLEN);
        row.remove_prefix(std::min<size_t>(NLA_ALIGN(header.nla_len), row.size()));
    }
    return {};
}

template <typename Number>
bool readNumber(std::string_view bytes, size_t offset, Number& number) {
    if (bytes.size() < offset + sizeof(number))
        return false;
    std::memcpy(&number, bytes.data() + offset, sizeof(number));
    return true;
}

/// One request with one text attribute, as the kernel takes it.
std::string makeRequest(uint16_t family, uint8_t command, uint16_t attributeType, std::string_view text) {
    nlmsghdr message{};
    const genlmsghdr generic{command, 1, 0};
    nlattr attribute{};
    attribute.nla_type = attributeType;
    attribute.nla_len = static_cast<uint16_t>(NLA_HDRLEN + text.size() + 1);
    message.nlmsg_len = static_cast<uint32_t>(NLMSG_HDRLEN + GENL_HDRLEN + NLA_ALIGN(attribute.nla_len));
    message.nlmsg_type = family;
    message.nlmsg_flags = NLM_F_REQUEST | NLM_F_ACK;
    std::string bytes(message.nlmsg_len, '\0');
    std::memcpy(bytes.data(), &message, sizeof(message));
    std::memcpy(bytes.data() + NLMSG_HDRLEN, &generic, sizeof(generic));
    std::memcpy(bytes.data() + NLMSG_HDRLEN + GENL_HDRLEN, &attribute, sizeof(attribute));
    text.copy(bytes.data() + NLMSG_HDRLEN + GENL_HDRLEN + NLA_HDRLEN, text.size());
    return bytes;
}

/// Sends a request and reads until its acknowledgement; `answer` gets what came before it.
bool ask(const FileDescriptor& socket, const std::string& request, std::string& answer) {
    if (send(socket.get(), request.data(), request.size(), 0) < 0)
        return false;
    std::string buffer(messageSize, '\0');
    while (true) {
        const ssize_t size = recv(socket.get(), buffer.data(), buffer.size(), 0);
        if (size < 0 && errno == EINTR)
            continue;
        nlmsghdr header{};
        if (size < 0 || !readNumber(std::string_view(buffer).substr(0, static_cast<size_t>(size)), 0, header))
            return false;
        int32_t result = 0;
        if (header.nlmsg_type == NLMSG_ERROR)
            return readNumber(buffer, NLMSG_HDRLEN, result) && result == 0;
        answer.assign(buffer, 0, static_cast<size_t>(size));
    }
}

/// The number that the kernel gave its exit records; 0 if it has none.
uint16_t familyNumber(const FileDescriptor& socket) {
    std::string answer;
    uint16_t number = 0;
    if (!ask(socket, makeRequest(GENL_ID_CTRL, CTRL_CMD_GETFAMILY, CTRL_ATTR_FAMILY_NAME, TASKSTATS_GENL_NAME), answer))
        return 0;
    const std::string_view row = std::string_view(answer).substr(std::min<size_t>(answer.size(), NLMSG_HDRLEN + 4));
    readNumber(findAttribute(row, CTRL_ATTR_FAMILY_ID), 0, number);
    return number;
}

std::string possibleProcessors() {
    std::ifstream file("/sys/devices/system/cpu/possible");
    std::string text;
    std::getline(file, text);
    return text.empty() ? "0" : text;
}

/// A socket to which the kernel sends its records, whose number is `family`; empty if it doesn't.
FileDescriptor registeredSocket(uint16_t& family) {
    const RaisedCapability raised(Capability::netAdmin);
    FileDescriptor socket(::socket(AF_NETLINK, SOCK_RAW | SOCK_CLOEXEC, NETLINK_GENERIC));
    if (!socket)
        return socket;
    setsockopt(socket.get(), SOL_SOCKET, SO_RCVBUFFORCE, &bufferSize, sizeof(bufferSize));
    setsockopt(socket.get(), SOL_SOCKET, SO_RCVTIMEO, &answerLimit, sizeof(answerLimit));
    family = familyNumber(socket);
    std::string answer;
    const bool isRegistered =
        family != 0 &&
        ask(socket, makeRequest(family, TASKSTATS_CMD_GET, TASKSTATS_CMD_ATTR_REGISTER_CPUMASK, possibleProcessors()),
            answer);
    return isRegistered ? std::move(socket) : FileDescriptor();
}
} // namespace

std::unique_ptr<ExitRecords> ExitRecords::start(Receiver receiver, Reading reading) {
    if (!isInMachinesPidNamespace()) // they bear other ids
        return nullptr;
    uint16_t family = 0;
    FileDescriptor socket = registeredSocket(family);
    if (!socket)
        return nullptr;
    return std::make_unique<ExitRecords>(std::move(socket), family, std::move(receiver), reading);
}

ExitRecords::ExitRecords(FileDescriptor socket, uint16_t family, Receiver receiver, Reading reading)
    : socket_(std::move(socket)), family_(family), receiver_(std::move(receiver)) {
    if (reading == Reading::asTheyCome)
        reader_ = startServiceThread([this] { run(); });
}

ExitRecords::~ExitRecords() {
    stop_.ring();
    if (reader_.joinable())
        reader_.join();
}

void ExitRecords::run() {
    giveCapabilitiesUp();
    while (true) {
        pollfd wanted[2] = {{stop_.descriptor(), POLLIN, 0}, {socket_.get(), POLLIN, 0}};
        poll(wanted, 2, -1);
        if (wanted[0].revents != 0)
            return;
        fetch();
    }
}

void ExitRecords::fetch() {
    const ServiceLock lock(mutex_);
    std::array<char, messageSize> buffer;
    while (true) {
        const ssize_t size = recv(socket_.get(), buffer.data(), buffer.size(), MSG_DONTWAIT);
        if (size < 0 && (errno == EINTR || errno == ENOBUFS)) // some were lost; what follows is whole
            continue;
        if (size <= 0)
            return;
        take(std::string_view(buffer.data(), static_cast<size_t>(size)));
    }
}

void ExitRecords::take(std::string_view message) {
    nlmsghdr header{};
    if (!readNumber(message, 0, header) || header.nlmsg_type != family_)
        return;
    const std::string_view row = message.substr(std::min<size_t>(message.size(), NLMSG_HDRLEN + GENL_HDRLEN));
    const std::string_view ofThread = findAttribute(row, TASKSTATS_TYPE_AGGR_PID);
    const std::string_view stats = findAttribute(ofThread, TASKSTATS_TYPE_STATS);
    uint32_t pid = 0;
    uint32_t begin = 0;
    ExitRecord exit;
    if (!readNumber(findAttribute(ofThread, TASKSTATS_TYPE_PID), 0, pid) ||
        !readNumber(stats, offsetof(taskstats, ac_exitcode), exit.waitStatus) ||
        !readNumber(stats, offsetof(taskstats, ac_btime), begin))
        return;
    exit.startTime = begin;
    readNumber(stats, offsetof(taskstats, ac_uid), exit.owner);
    if (stats.size() >= offsetof(taskstats, ac_comm) + TS_COMM_LEN) {
        const std::string_view name = stats.substr(offsetof(taskstats, ac_comm), TS_COMM_LEN);
        exit.commandName = name.substr(0, name.find('\0'));
    }
    uint64_t device = 0; // in the kernel's own packing
    if (readNumber(stats, offsetof(taskstats, ac_exe_dev), device) &&
        readNumber(stats, offsetof(taskstats, ac_exe_inode), exit.inode))
        exit.device = makedev(static_cast<unsigned>(device >> 20U), static_cast<unsigned>(device & 0xfffffU));
    // The last thread of several brings the group's number along, and its own code is the group's.
    if (const auto ofGroup = findAttribute(row, TASKSTATS_TYPE_AGGR_TGID); !ofGroup.empty())
        exit.isLastOfMany = readNumber(findAttribute(ofGroup, TASKSTATS_TYPE_TGID), 0, pid);
    receiver_(pid, exit);
}

} // namespace Velmor
