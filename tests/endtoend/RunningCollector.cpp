#include "RunningCollector.h"

#include "support/DataFiles.h"
#include "support/Eventually.h"

#include <array>
#include <csignal>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <pwd.h>
#include <sstream>
#include <sys/socket.h>
#include <sys/un.h>
#include <sys/wait.h>
#include <unistd.h>

namespace Velmor {

namespace {
constexpr const char* configuration = R"(
Velmor () = "" {
    directories () = "" {
        conf (DirName) = "%" { }
        log  (DirName) = "%" { }
        temp (DirName) = "%" { }
    }
}
runtally () = "" {
    working-dir (DirName) = "%data" { }
    include-exclude (FileName) = "%include-exclude" { }
)";

std::string inDirectory(std::string text, const std::string& directory) {
    for (size_t place = text.find('%'); place != std::string::npos; place = text.find('%', place + directory.size()))
        text.replace(place, 1, directory);
    return text;
}
} // namespace

RunningCollector::RunningCollector(const std::string& settings, const std::string& logging,
                                   const std::vector<File>& files, int debugLevel)
    : debugLevel_(debugLevel), manager_(socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0)) {
    const std::string& home = directory_.path();
    directory_.write("resources.toml", "ConfigurationDir = \"" + home + "\"\nInstallDir = \"" + home +
                                           "\"\nStartupLogDir = \"" + home + "\"\n");
    for (const File& file : files)
        directory_.write(file.name, file.text);
    writeConfiguration(settings, logging);
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    (home + "notify").copy(&address.sun_path[0], sizeof(address.sun_path) - 1);
    const timeval patience{120, 0};
    setsockopt(manager_, SOL_SOCKET, SO_RCVTIMEO, &patience, sizeof(patience));
    if (bind(manager_, reinterpret_cast<const sockaddr*>(&address), sizeof(address)) != 0 || !start())
        std::abort();
}

RunningCollector::~RunningCollector() {
    program_.reset();
    close(manager_);
}

void RunningCollector::writeConfiguration(const std::string& settings, const std::string& logging) const {
    const std::string log = "    }\n}\nlog () = \"\" { global () = \"\" { debug-level (Integer) = \"" +
                            std::to_string(debugLevel_) + "\" { } } }\n";
    directory_.write(
        "runtally.conf",
        inDirectory(configuration + settings + "    logging () = \"\" {\n" + logging + log, directory_.path()));
}

std::vector<std::string> RunningCollector::environment() const {
    const std::string& home = directory_.path();
    return {"VELMOR_RESOURCES=" + home + "resources.toml", "VELMOR_STATE_DIR=" + home + "state",
            "VELMOR_RUNTIME_DIR=" + home + "run", "NOTIFY_SOCKET=" + home + "notify"};
}

std::string RunningCollector::user() {
    const passwd* entry = getpwuid(geteuid());
    return entry ? entry->pw_name : std::to_string(geteuid());
}

bool RunningCollector::start() {
    return startBy({VELMOR_RUNTALLY});
}

bool RunningCollector::startBy(std::vector<std::string> words) {
    words.insert(words.end(), {"-c", directory_ / "runtally.conf"});
    program_ = std::make_unique<Child>(words, environment());
    for (std::string state = nextState(); !state.empty(); state = nextState())
        if (state == "READY") // a word of the one before may have waited
            return true;
    return false;
}

std::string RunningCollector::nextState() {
    std::array<char, 256> text{};
    const ssize_t size = recv(manager_, text.data(), text.size(), 0);
    const std::string state(text.data(), size > 0 ? static_cast<size_t>(size) : 0);
    constexpr std::string_view key = "STATUS=";
    const size_t place = state.find(key);
    if (place != std::string::npos)
        status_ = state.substr(place + key.size());
    return place == 0 ? nextState() : state.substr(0, state.find('='));
}

std::string RunningCollector::control(const std::string& arguments) const {
    return run("", VELMOR_RUNTALLYCTL + (" " + arguments) + " 2>&1");
}

std::string RunningCollector::run(const std::string& more, const std::string& words) const {
    std::string command = "env";
    for (const std::string& variable : environment())
        command += " " + variable;
    command += " " + more + " " + words;
    FILE* pipe = popen(command.c_str(), "re");
    std::string output;
    std::array<char, 256> part{};
    while (pipe && std::fgets(part.data(), part.size(), pipe))
        output += part.data();
    return std::to_string(WEXITSTATUS(pclose(pipe))) + " " + output;
}

bool RunningCollector::awaitLog(const std::string& text) {
    const auto isThere = [&] {
        std::ifstream log(directory_ / "RuntallyDebug.log");
        log.seekg(static_cast<std::streamoff>(logPlace_));
        std::ostringstream rest;
        rest << log.rdbuf();
        const size_t found = rest.str().find(text);
        if (found == std::string::npos)
            return false;
        logPlace_ += found + text.size();
        return true;
    };
    return eventually(isThere, std::chrono::milliseconds(20));
}

void RunningCollector::passLog() {
    logPlace_ = std::filesystem::file_size(directory_ / "RuntallyDebug.log");
}

int RunningCollector::stop() {
    program_->signal(SIGTERM);
    return program_->reap();
}

std::string RunningCollector::text(const std::string& stem) const {
    return dataText(directory_ / "data", stem);
}

std::vector<UsageLine> RunningCollector::usage(const std::string& prefix) const {
    std::vector<UsageLine> records = parseRecords(text("ProcessLog"), true);
    std::erase_if(records, [&](const UsageLine& record) { return !record.executable.starts_with(prefix); });
    return records;
}

} // namespace Velmor
