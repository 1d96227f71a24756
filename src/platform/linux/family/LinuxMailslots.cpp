#include "platform/linux/family/LinuxMailslots.h"

#include "platform/Errors.h"
#include "platform/linux/base/Capabilities.h"
#include "platform/linux/base/Errno.h"
#include "platform/linux/base/FileDescriptor.h"
#include "platform/linux/base/FileIdentity.h"
#include "platform/linux/base/WakeEvent.h"
#include "platform/linux/family/Directories.h"
#include "platform/linux/family/LinuxNamedLocks.h"
#include "platform/linux/family/SafeDirectory.h"
#include "platform/linux/threads/Checkpoint.h"
#include "platform/linux/threads/ServiceThread.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <grp.h>
#include <map>
#include <mutex>
#include <poll.h>
#include <pwd.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <thread>
#include <utility>

namespace Velmor {

namespace {
constexpr mode_t groupMode = 0660;
constexpr mode_t everyoneMode = 0666;
constexpr mode_t mayPass = 01; // others may reach what lies in a directory
constexpr size_t longestMessage = 256 * 1024;
constexpr int bufferSize = 4 * 1024 * 1024;
constexpr size_t recordSize = 16384;

/// What may wait between two reads.
struct Room {
    size_t count;
    size_t bytes;
};
// For one sender, for all that waits when another user's message comes, and when root's or the own user's comes, so
// that none of them can shut the next out.
constexpr Room roomOfOne{10000, size_t{12} * 1024 * 1024};
constexpr Room roomOfOthers{11000, size_t{14} * 1024 * 1024};
constexpr Room roomOfAll{24000, size_t{20} * 1024 * 1024};

std::string slotDirectory() {
    return runtimeDirectory() + "/mailslot";
}

std::string lockName(std::string_view name) {
    return "mailslot_" + std::string(name);
}

/// The address of a name in a directory that is open: its length doesn't hang on where the directory lies.
bool makeAddress(int directory, const std::string& name, sockaddr_un& address) {
    const std::string path = "/proc/self/fd/" + std::to_string(directory) + "/" + name;
    address = {};
    address.sun_family = AF_UNIX;
    if (path.size() >= sizeof(address.sun_path)) {
        errno = ENAMETOOLONG;
        return false;
    }
    std::memcpy(address.sun_path, path.c_str(), path.size() + 1);
    return true;
}

const sockaddr* generic(const sockaddr_un& address) {
    return reinterpret_cast<const sockaddr*>(&address);
}

/// The group that may work in the runtime directory.
bool familyGroup(uid_t& owner, gid_t& group) {
    struct stat state {};
    if (stat(slotDirectory().c_str(), &state) != 0 && stat(runtimeDirectory().c_str(), &state) != 0)
        return false;
    owner = state.st_uid;
    group = state.st_gid;
    return true;
}

std::string nameOfGroup(gid_t id) {
    group entry{};
    group* found = nullptr;
    std::array<char, recordSize> buffer{};
    getgrgid_r(id, &entry, buffer.data(), buffer.size(), &found);
    return found ? found->gr_name : std::to_string(id);
}

bool isMember(uid_t user, gid_t primary, gid_t wanted) {
    if (primary == wanted)
        return true;
    passwd entry{};
    passwd* found = nullptr;
    std::vector<char> buffer(recordSize);
    if (getpwuid_r(user, &entry, buffer.data(), buffer.size(), &found) != 0 || !found)
        return false;
    std::vector<gid_t> groups(256);
    auto count = static_cast<int>(groups.size());
    if (getgrouplist(found->pw_name, found->pw_gid, groups.data(), &count) < 0)
        return false;
    return std::find(groups.begin(), groups.begin() + count, wanted) != groups.begin() + count;
}

/// What waits, of one sender or in all.
struct Share {
    size_t count = 0;
    size_t bytes = 0;

    bool hasPlace(const Room& room, size_t more) const { return count < room.count && bytes + more <= room.bytes; }
    void add(size_t more) {
        ++count;
        bytes += more;
    }
};

/// One sender is a process of root's or of the own user's, or another user with all of his.
using Sender = std::pair<bool, int64_t>;

/// What has arrived, and from whom.
struct Arrival {
    std::string text;
    ucred sender{};
};

class Reader : public MailslotReader {
public:
    Reader(FileDescriptor ownership, FileDescriptor socket, WakeEvent stop, std::string name, MailslotAccess access,
           const struct stat& place)
        : ownership_(std::move(ownership)), socket_(std::move(socket)), stop_(std::move(stop)), name_(std::move(name)),
          access_(access), place_(place), drain_(startServiceThread([this] { drain(); })) {}
    Reader(const Reader&) = delete;
    Reader& operator=(const Reader&) = delete;
    ~Reader() override {
        stop_.ring();
        drain_.join();
        if (!isReachable())
            return; // another's by now
        if (const SafeDirectory directory(slotDirectory()); directory)
            directory.remove(asFileName(name_));
        forgetNamedLock(lockName(name_));
    }

    bool read(std::vector<MailslotMessage>& messages) override {
        checkpoint();
        std::vector<Arrival> arrivals;
        bool failed = false;
        {
            const ServiceLock lock(mutex_);
            arrivals.swap(waiting_);
            shares_.clear();
            all_ = {};
            failed = std::exchange(failed_, false);
        }
        for (Arrival& arrival : arrivals)
            messages.push_back({std::move(arrival.text), senderOf(arrival.sender)});
        return !failed;
    }

    uint64_t takeRefused() override {
        const ServiceLock lock(mutex_);
        return std::exchange(refused_, 0);
    }

    bool isReachable() override {
        checkpoint();
        struct stat there {};
        return stat((slotDirectory() + "/" + asFileName(name_)).c_str(), &there) == 0 && FileIdentity(there) == place_;
    }

private:
    void drain() {
        giveCapabilitiesUp();
        std::string buffer(longestMessage, '\0');
        while (true) {
            pollfd wanted[2] = {{stop_.descriptor(), POLLIN, 0}, {socket_.get(), POLLIN, 0}};
            poll(wanted, 2, -1);
            if (wanted[0].revents != 0)
                return;
            while (takeOne(buffer)) {
            }
        }
    }

    /// False if nothing waits any more.
    bool takeOne(std::string& buffer) {
        iovec part{buffer.data(), buffer.size()};
        alignas(cmsghdr) std::array<char, CMSG_SPACE(sizeof(ucred))> control{};
        msghdr header{};
        header.msg_iov = &part;
        header.msg_iovlen = 1;
        header.msg_control = control.data();
        header.msg_controllen = control.size();
        const ssize_t size = recvmsg(socket_.get(), &header, MSG_DONTWAIT | MSG_TRUNC);
        if (size < 0 && (errno == EAGAIN || errno == EINTR))
            return false;
        const ServiceLock lock(mutex_);
        if (size < 0) { // no memory, say; the next look tries again
            failed_ = true;
            return false;
        }
        keep(buffer, static_cast<size_t>(size), credentialsOf(header));
        return true;
    }

    static ucred credentialsOf(msghdr& header) {
        ucred sender{0, static_cast<uid_t>(-1), static_cast<gid_t>(-1)};
        const cmsghdr* first = CMSG_FIRSTHDR(&header);
        if (first && first->cmsg_level == SOL_SOCKET && first->cmsg_type == SCM_CREDENTIALS)
            std::memcpy(&sender, CMSG_DATA(first), sizeof(sender));
        return sender;
    }

    void keep(const std::string& buffer, size_t size, const ucred& sender) {
        const bool isTrusted = sender.uid == 0 || sender.uid == geteuid();
        Share& share = shares_[isTrusted ? Sender{true, sender.pid} : Sender{false, sender.uid}];
        const size_t bytes = size + sizeof(Arrival);
        const bool hasPlace =
            share.hasPlace(roomOfOne, bytes) && all_.hasPlace(isTrusted ? roomOfAll : roomOfOthers, bytes);
        if (!hasPlace || size > buffer.size()) {
            ++refused_;
            return;
        }
        share.add(bytes);
        all_.add(bytes);
        waiting_.push_back({buffer.substr(0, size), sender});
    }

    /// In a slot that is for the group the kernel has let nobody else write.
    MailslotSender senderOf(const ucred& sender) {
        MailslotSender result;
        result.user = "S-1-22-1-" + std::to_string(sender.uid);
        result.process = static_cast<uint32_t>(sender.pid);
        result.mayCommand = access_ == MailslotAccess::group || mayCommand(sender);
        return result;
    }

    bool mayCommand(const ucred& sender) {
        if (sender.uid == 0 || sender.uid == geteuid())
            return true;
        uid_t owner = 0;
        gid_t group = 0;
        if (!familyGroup(owner, group))
            return false;
        const auto [place, isNew] = members_.try_emplace({sender.uid, sender.gid}, false);
        if (isNew)
            place->second = isMember(sender.uid, sender.gid, group);
        return place->second;
    }

    FileDescriptor ownership_; // of the name, while the process lives
    FileDescriptor socket_;
    WakeEvent stop_;
    std::string name_;
    MailslotAccess access_;
    FileIdentity place_;                              // of the name
    std::map<std::pair<uid_t, gid_t>, bool> members_; // of the group; asked for once, as for a login
    std::mutex mutex_;                                // guards the next five
    std::vector<Arrival> waiting_;
    std::map<Sender, Share> shares_;
    Share all_;
    uint64_t refused_ = 0;
    bool failed_ = false;
    std::thread drain_;
};

class Writer : public MailslotWriter {
public:
    Writer(FileDescriptor socket, bool neverWaits)
        : socket_(std::move(socket)), flags_(MSG_NOSIGNAL | (neverWaits ? MSG_DONTWAIT : 0)) {}

    bool write(std::string_view message, uint32_t& error) override {
        checkpoint();
        error = NativeError::invalidParameter;
        if (message.size() > longestMessage) // the reader would get a part of it
            return false;
        while (send(socket_.get(), message.data(), message.size(), flags_) < 0) {
            if (errno != EINTR) {
                error = errno == EAGAIN ? NativeError::timeout : nativeError(errno);
                return false;
            }
            checkpoint();
        }
        error = NativeError::success;
        return true;
    }

private:
    FileDescriptor socket_;
    int flags_;
};

FileDescriptor makeSocket() {
    return FileDescriptor(socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0));
}

/// Binds at the name, in place of what a dead reader left there, and tells what stands there now.
bool bindIn(const SafeDirectory& directory, const std::string& name, const FileDescriptor& socket, mode_t mode,
            struct stat& state) {
    sockaddr_un address{};
    if (!makeAddress(directory.get(), name, address))
        return false;
    directory.remove(name);
    const int on = 1;
    return setsockopt(socket.get(), SOL_SOCKET, SO_PASSCRED, &on, sizeof(on)) == 0 &&
           bind(socket.get(), generic(address), sizeof(address)) == 0 && directory.setMode(name, mode) &&
           fstatat(directory.get(), name.c_str(), &state, AT_SYMLINK_NOFOLLOW) == 0;
}

/// Lets everybody through to what lies in the directory of slots.
void openToEveryone() {
    for (const std::string& path : {runtimeDirectory(), slotDirectory()}) {
        struct stat state {};
        if (const SafeDirectory directory(path); directory && fstat(directory.get(), &state) == 0)
            (void)!fchmod(directory.get(), state.st_mode | mayPass); // one that isn't ours stays as it is
    }
}
} // namespace

std::unique_ptr<MailslotReader> LinuxMailslots::create(std::string_view name, MailslotAccess access, uint32_t& error) {
    checkpoint();
    const StopDeferral deferral;
    FileDescriptor ownership = takeNamedLock(lockName(name), NamedLockAccess::own, error);
    if (!ownership)
        return nullptr;
    const SafeDirectory directory(slotDirectory(), SafeDirectory::sharedMode);
    WakeEvent stop;
    FileDescriptor socket = makeSocket();
    const mode_t mode = access == MailslotAccess::everyone ? everyoneMode : groupMode;
    struct stat state {};
    if (!directory || !stop || !socket || !bindIn(directory, asFileName(std::string(name)), socket, mode, state)) {
        error = nativeError(errno);
        return nullptr;
    }
    if (access == MailslotAccess::everyone)
        openToEveryone();
    setsockopt(socket.get(), SOL_SOCKET, SO_RCVBUF, &bufferSize, sizeof(bufferSize));
    return std::make_unique<Reader>(std::move(ownership), std::move(socket), std::move(stop), std::string(name), access,
                                    state);
}

std::unique_ptr<MailslotWriter> LinuxMailslots::open(std::string_view name, uint32_t patience, uint32_t& error) {
    checkpoint();
    const StopDeferral deferral;
    const FileDescriptor directory(::open(slotDirectory().c_str(), O_PATH | O_DIRECTORY | O_CLOEXEC));
    sockaddr_un address{};
    FileDescriptor socket = makeSocket();
    if (!directory || !socket || !makeAddress(directory.get(), asFileName(std::string(name)), address) ||
        connect(socket.get(), generic(address), sizeof(address)) != 0) {
        error = nativeError(errno);
        return nullptr;
    }
    const timeval limit{patience / 1000, static_cast<suseconds_t>(patience % 1000) * 1000};
    setsockopt(socket.get(), SOL_SOCKET, SO_SNDBUF, &bufferSize, sizeof(bufferSize));
    setsockopt(socket.get(), SOL_SOCKET, SO_SNDTIMEO, &limit, sizeof(limit));
    error = NativeError::success;
    return std::make_unique<Writer>(std::move(socket), patience == 0);
}

bool LinuxMailslots::mayCommand(std::string& group) {
    checkpoint();
    uid_t owner = 0;
    gid_t wanted = 0;
    if (!familyGroup(owner, wanted))
        return true; // nobody listens there
    group = nameOfGroup(wanted);
    std::vector<gid_t> groups(static_cast<size_t>(std::max(0, getgroups(0, nullptr))));
    groups.resize(static_cast<size_t>(std::max(0, getgroups(static_cast<int>(groups.size()), groups.data()))));
    groups.push_back(getegid());
    return geteuid() == 0 || geteuid() == owner || std::find(groups.begin(), groups.end(), wanted) != groups.end();
}

std::string LinuxMailslots::errorText(uint32_t error) {
    return nativeErrorText(error);
}

} // namespace Velmor
