#include "platform/linux/family/LinuxMailslots.h"

#include "platform/Errors.h"
#include "platform/linux/base/Errno.h"
#include "platform/linux/base/FileDescriptor.h"
#include "platform/linux/base/WakeEvent.h"
#include "platform/linux/family/Directories.h"
#include "platform/linux/family/LinuxNamedLocks.h"
#include "platform/linux/threads/Checkpoint.h"
#include "platform/linux/threads/ServiceThread.h"

#include <cerrno>
#include <cstring>
#include <mutex>
#include <poll.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <thread>
#include <utility>

namespace Velmor {

namespace {
constexpr mode_t socketMode = 0666; // any user's program may write
constexpr size_t longestMessage = 256 * 1024;
constexpr size_t mostWaiting = 64 * 1024 * 1024; // bytes; a writer that floods is held up from here on
constexpr int bufferSize = 4 * 1024 * 1024;
constexpr timeval writeLimit{0, 500000}; // for a reader that stands still; whoever writes may hold others up

std::string slotDirectory() {
    return runtimeDirectory() + "/mailslot";
}

std::string lockName(std::string_view name) {
    return "mailslot_" + std::string(name);
}

std::string slotPath(std::string_view name) {
    return slotDirectory() + "/" + asFileName(std::string(name));
}

bool makeAddress(const std::string& path, sockaddr_un& address) {
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

class Reader : public MailslotReader {
public:
    Reader(FileDescriptor ownership, FileDescriptor socket, WakeEvent stop, std::string name)
        : ownership_(std::move(ownership)), socket_(std::move(socket)), stop_(std::move(stop)), name_(std::move(name)),
          drain_(startServiceThread([this] { drain(); })) {}
    Reader(const Reader&) = delete;
    Reader& operator=(const Reader&) = delete;
    ~Reader() override {
        stop_.ring();
        drain_.join();
        unlink(slotPath(name_).c_str());
        forgetNamedLock(lockName(name_));
    }

    bool read(std::vector<std::string>& messages) override {
        checkpoint();
        const ServiceLock lock(mutex_);
        messages.insert(messages.end(), std::make_move_iterator(waiting_.begin()),
                        std::make_move_iterator(waiting_.end()));
        waiting_.clear();
        waitingBytes_ = 0;
        return !std::exchange(failed_, false);
    }

private:
    void drain() {
        std::string buffer(longestMessage, '\0');
        while (true) {
            const bool full = isFull();
            pollfd wanted[2] = {{stop_.descriptor(), POLLIN, 0}, {full ? -1 : socket_.get(), POLLIN, 0}};
            poll(wanted, 2, full ? 100 : -1);
            if (wanted[0].revents != 0)
                return;
            if (wanted[1].revents != 0)
                takeAll(buffer);
        }
    }

    bool isFull() {
        const ServiceLock lock(mutex_);
        return waitingBytes_ >= mostWaiting;
    }

    void takeAll(std::string& buffer) {
        while (!isFull()) {
            const ssize_t size = recv(socket_.get(), buffer.data(), buffer.size(), MSG_DONTWAIT);
            if (size < 0 && (errno == EAGAIN || errno == EINTR))
                return;
            const ServiceLock lock(mutex_);
            if (size < 0) { // no memory, say; the next look tries again
                failed_ = true;
                return;
            }
            waiting_.emplace_back(buffer, 0, static_cast<size_t>(size));
            waitingBytes_ += static_cast<size_t>(size) + sizeof(std::string);
        }
    }

    FileDescriptor ownership_; // of the name, while the process lives
    FileDescriptor socket_;
    WakeEvent stop_;
    std::string name_;
    std::mutex mutex_; // guards the next three
    std::vector<std::string> waiting_;
    size_t waitingBytes_ = 0;
    bool failed_ = false;
    std::thread drain_;
};

class Writer : public MailslotWriter {
public:
    explicit Writer(FileDescriptor socket) : socket_(std::move(socket)) {}

    bool write(std::string_view message, uint32_t& error) override {
        checkpoint();
        error = NativeError::invalidParameter;
        if (message.size() > longestMessage) // the reader would get a part of it
            return false;
        while (send(socket_.get(), message.data(), message.size(), MSG_NOSIGNAL) < 0) {
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
};

FileDescriptor makeSocket() {
    return FileDescriptor(socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0));
}

/// Binds at the path, in place of what a dead reader left there.
bool bindTo(const FileDescriptor& socket, const std::string& path) {
    sockaddr_un address{};
    if (!makeAddress(path, address))
        return false;
    unlink(path.c_str());
    return bind(socket.get(), generic(address), sizeof(address)) == 0 && chmod(path.c_str(), socketMode) == 0;
}
} // namespace

std::unique_ptr<MailslotReader> LinuxMailslots::create(std::string_view name, uint32_t& error) {
    checkpoint();
    FileDescriptor ownership = takeNamedLock(lockName(name), error);
    if (!ownership)
        return nullptr;
    makeDirectoryTree(slotDirectory());
    WakeEvent stop;
    FileDescriptor socket = makeSocket();
    if (!stop || !socket || !bindTo(socket, slotPath(name))) {
        error = nativeError(errno);
        return nullptr;
    }
    setsockopt(socket.get(), SOL_SOCKET, SO_RCVBUF, &bufferSize, sizeof(bufferSize));
    return std::make_unique<Reader>(std::move(ownership), std::move(socket), std::move(stop), std::string(name));
}

std::unique_ptr<MailslotWriter> LinuxMailslots::open(std::string_view name, uint32_t& error) {
    checkpoint();
    sockaddr_un address{};
    FileDescriptor socket = makeSocket();
    if (!socket || !makeAddress(slotPath(name), address) ||
        connect(socket.get(), generic(address), sizeof(address)) != 0) {
        error = nativeError(errno);
        return nullptr;
    }
    setsockopt(socket.get(), SOL_SOCKET, SO_SNDBUF, &bufferSize, sizeof(bufferSize));
    setsockopt(socket.get(), SOL_SOCKET, SO_SNDTIMEO, &writeLimit, sizeof(writeLimit));
    error = NativeError::success;
    return std::make_unique<Writer>(std::move(socket));
}

std::string LinuxMailslots::errorText(uint32_t error) {
    return nativeErrorText(error);
}

} // namespace Velmor
