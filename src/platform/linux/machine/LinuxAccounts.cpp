#include "platform/linux/machine/LinuxAccounts.h"

#include "platform/Errors.h"
#include "platform/linux/base/Capabilities.h"
#include "platform/linux/base/SystemText.h"
#include "platform/linux/threads/Checkpoint.h"

#include <cerrno>
#include <charconv>
#include <condition_variable>
#include <map>
#include <mutex>
#include <pwd.h>
#include <sys/utsname.h>
#include <thread>
#include <vector>

namespace Velmor {

namespace {
constexpr std::string_view sidHead = "S-1-22-1-";
constexpr int64_t keepKnown = 600;   // seconds
constexpr int64_t keepUnknown = 300; // seconds
constexpr int64_t keepHost = 10;     // seconds
constexpr size_t mostCached = 4096;
constexpr uint32_t usualPatience = 2000; // milliseconds
constexpr size_t recordSize = 16384;
constexpr size_t largestRecord = 1024 * 1024;

std::string askSystem(uint32_t uid) {
    passwd entry{};
    passwd* found = nullptr;
    std::vector<char> buffer(recordSize);
    while (getpwuid_r(uid, &entry, buffer.data(), buffer.size(), &found) == ERANGE && buffer.size() < largestRecord)
        buffer.resize(2 * buffer.size());
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

} // namespace

/// What is known, and what is being asked for.
struct LinuxAccounts::Names {
    struct Entry {
        std::string name;    // or the number while that is all
        int64_t expires = 0; // monotonic seconds
        bool isAsked = false;
    };

    void takeAnswer(uint32_t uid, std::string name) {
        maskControlBytes(name);
        const std::lock_guard lock(mutex);
        const bool found = !name.empty();
        entries[uid] = {found ? std::move(name) : std::to_string(uid),
                        monotonicSeconds() + (found ? keepKnown : keepUnknown), false};
        isSlow = false;
        answered.notify_all();
    }

    /// This machine's name, which every look-up needs and which hardly ever changes.
    std::string computerName() {
        const int64_t now = monotonicSeconds();
        const ServiceLock lock(mutex);
        if (now >= hostExpires) {
            utsname system{};
            uname(&system);
            const std::string_view full = system.nodename;
            host = full.substr(0, full.find('.'));
            hostExpires = now + keepHost;
        }
        return host;
    }

    std::mutex mutex; // guards the rest
    std::string host;
    int64_t hostExpires = 0; // monotonic seconds
    std::condition_variable answered;
    std::map<uint32_t, Entry> entries;
    bool isSlow = false; // the service has let somebody wait in vain, and hasn't answered since
};

LinuxAccounts::LinuxAccounts() : LinuxAccounts(askSystem, usualPatience) {}

LinuxAccounts::LinuxAccounts(Resolver resolver, uint32_t patience)
    : resolver_(std::move(resolver)), patience_(patience), names_(std::make_shared<Names>()) {}

bool LinuxAccounts::lookup(std::string_view sid, std::string& user, std::string& domain, uint32_t& error) {
    checkpoint();
    uint32_t uid = 0;
    if (!userIdOf(sid, uid)) {
        error = NativeError::noneMapped;
        return false;
    }
    error = NativeError::success;
    user = nameOf(uid);
    const size_t separator = user.find('\\'); // a directory service may give a name with its domain
    if (separator == std::string::npos) {
        domain = names_->computerName();
        return true;
    }
    domain = user.substr(0, separator);
    user.erase(0, separator + 1);
    return true;
}

std::string LinuxAccounts::nameOf(uint32_t uid) {
    const StopDeferral deferral;
    std::unique_lock lock(names_->mutex);
    if (names_->entries.size() >= mostCached)
        std::erase_if(names_->entries, [](const auto& entry) { return !entry.second.isAsked; });
    Names::Entry& entry = names_->entries[uid];
    if (entry.isAsked || monotonicSeconds() < entry.expires)
        return entry.name;
    if (entry.name.empty())
        entry.name = std::to_string(uid);
    entry.isAsked = true;
    try {
        std::thread([names = names_, ask = resolver_, uid] {
            giveCapabilitiesUp();
            names->takeAnswer(uid, ask(uid));
        }).detach();
    } catch (const std::system_error&) { // no room for another thread
        entry.isAsked = false;
        return entry.name;
    }
    const auto patience = std::chrono::milliseconds(names_->isSlow ? 0 : patience_);
    if (!names_->answered.wait_for(lock, patience, [&] { return !names_->entries[uid].isAsked; }))
        names_->isSlow = true;
    return names_->entries[uid].name;
}

} // namespace Velmor
