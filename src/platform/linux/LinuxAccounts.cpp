#include "platform/linux/LinuxAccounts.h"

#include "platform/Errors.h"
#include "platform/linux/Checkpoint.h"
#include "platform/linux/ProcFile.h"

#include <charconv>
#include <condition_variable>
#include <pwd.h>
#include <sys/utsname.h>
#include <thread>
#include <vector>

namespace Velmor {

namespace {
constexpr std::string_view sidHead = "S-1-22-1-";
constexpr int64_t keepKnown = 600;   // seconds
constexpr int64_t keepUnknown = 300; // seconds
constexpr size_t mostCached = 4096;
constexpr uint32_t usualPatience = 2000; // milliseconds
constexpr size_t recordSize = 16384;

std::string askSystem(uint32_t uid) {
    passwd entry{};
    passwd* found = nullptr;
    std::vector<char> buffer(recordSize);
    getpwuid_r(uid, &entry, buffer.data(), buffer.size(), &found);
    return found ? std::string(found->pw_name) : std::string();
}

bool userIdOf(std::string_view sid, uint32_t& uid) {
    if (!sid.starts_with(sidHead))
        return false;
    const char* end = sid.data() + sid.size();
    const auto [rest, failure] = std::from_chars(sid.data() + sidHead.size(), end, uid);
    return failure == std::errc() && rest == end;
}

int64_t monotonicSeconds() {
    timespec now{};
    clock_gettime(CLOCK_MONOTONIC, &now);
    return now.tv_sec;
}

std::string computerName() {
    utsname names{};
    uname(&names);
    const std::string_view host = names.nodename;
    return std::string(host.substr(0, host.find('.')));
}

/// An answer on its way from the thread that asks to the one that waits, which may have left.
struct Question {
    std::mutex mutex;
    std::condition_variable answered;
    bool done = false;
    std::string user;
};

void answer(Question& question, std::string user) {
    maskControlBytes(user);
    const std::lock_guard lock(question.mutex);
    question.user = std::move(user);
    question.done = true;
    question.answered.notify_one();
}
} // namespace

LinuxAccounts::LinuxAccounts() : LinuxAccounts(askSystem, usualPatience) {}

LinuxAccounts::LinuxAccounts(Resolver resolver, uint32_t patience)
    : resolver_(std::move(resolver)), patience_(patience) {}

bool LinuxAccounts::lookup(std::string_view sid, std::string& user, std::string& domain, uint32_t& error) {
    checkpoint();
    uint32_t uid = 0;
    if (!userIdOf(sid, uid)) {
        error = NativeError::noneMapped;
        return false;
    }
    error = NativeError::success;
    domain = computerName();
    const int64_t now = monotonicSeconds();
    {
        const ServiceLock lock(mutex_);
        if (const auto known = cache_.find(uid); known != cache_.end() && now < known->second.expires) {
            user = known->second.user;
            return true;
        }
    }
    bool found = false;
    user = resolve(uid, found);
    const ServiceLock lock(mutex_);
    if (cache_.size() >= mostCached)
        cache_.clear();
    cache_[uid] = {user, now + (found ? keepKnown : keepUnknown)};
    return true;
}

std::string LinuxAccounts::resolve(uint32_t uid, bool& found) const {
    const StopDeferral deferral;
    auto question = std::make_shared<Question>();
    try {
        std::thread([question, ask = resolver_, uid] { answer(*question, ask(uid)); }).detach();
    } catch (const std::system_error&) { // no room for another thread
        found = false;
        return std::to_string(uid);
    }
    std::unique_lock lock(question->mutex);
    const bool inTime =
        question->answered.wait_for(lock, std::chrono::milliseconds(patience_), [&] { return question->done; });
    found = inTime && !question->user.empty();
    return found ? question->user : std::to_string(uid);
}

} // namespace Velmor
