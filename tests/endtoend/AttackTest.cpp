// What another user of the machine tries against the real collector.

#include "RunningCollector.h"

#include "shared/library/common/errors/FileException.h"
#include "shared/library/common/files/FilePlain.h"
#include "support/Child.h"
#include "support/DataFiles.h"
#include "support/Eventually.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <csignal>
#include <dirent.h>
#include <fcntl.h>
#include <filesystem>
#include <fnmatch.h>
#include <functional>
#include <grp.h>
#include <set>
#include <sstream>
#include <sys/file.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

namespace Velmor {

namespace {
namespace fs = std::filesystem;

constexpr uid_t nobody = 65534;
constexpr const char* asNobody = "setpriv --reuid 65534 --regid 65534 --clear-groups ";
constexpr const char* secretText = "root's alone\nid=SECRET\n"; // as an id value file would have it

std::string message(const std::string& type, const std::string& text) {
    return "Velmor\x1b" + type + "\x1b\x1b" + text + "\x1b" + '\0';
}

std::string order(const std::string& word) {
    return message("COMMAND", word);
}

bool become(uid_t user) {
    return setgroups(0, nullptr) == 0 && setgid(user) == 0 && setuid(user) == 0;
}

/// Does something as another user would; true if it succeeded for him.
bool succeedsAsNobody(const std::function<bool()>& attempt) {
    return Child([&] {
               try {
                   return become(nobody) && attempt() ? 0 : 1;
               } catch (const Exception&) {
                   return 1;
               }
           }).reap() == 0;
}

/// A socket that leads to a mailslot; -1 if the kernel refuses. The slot's directory may be too long a name.
int openSlot(int directory, const std::string& name) {
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    ("/proc/self/fd/" + std::to_string(directory) + "/" + name)
        .copy(&address.sun_path[0], sizeof(address.sun_path) - 1);
    const int channel = socket(AF_UNIX, SOCK_DGRAM, 0);
    const int room = 1 << 20;
    setsockopt(channel, SOL_SOCKET, SO_SNDBUF, &room, sizeof(room));
    return connect(channel, reinterpret_cast<const sockaddr*>(&address), sizeof(address)) == 0 ? channel : -1;
}

/// Sends as a program of its own would; true if all was taken. `count` 0 never ends.
bool sendAs(uid_t user, int directory, const std::vector<std::string>& messages, int count) {
    if (user != 0 && !become(user))
        return false;
    const int channel = openSlot(directory, "Velmor_Runtally");
    for (int i = 0; channel >= 0 && (count == 0 || i < count); ++i)
        for (const std::string& text : messages)
            if (send(channel, text.data(), text.size(), 0) < 0 && count != 0)
                return false;
    return channel >= 0;
}

bool put(const char* path, const std::string& text) {
    const int file = creat(path, 0666);
    const bool written = write(file, text.data(), text.size()) == static_cast<ssize_t>(text.size());
    return close(file) == 0 && written;
}

/// Whether a line of the log begins as the logger begins one, and holds nothing that steers a terminal.
bool isWhole(std::string line) {
    line.resize(line.size() - (line.ends_with('\r') ? 1 : 0));
    const auto isControl = [](unsigned char c) { return c < ' ' || c == 0x7F; };
    if (std::ranges::any_of(line, isControl) || line.find("NOTICE", 1) == 0)
        return false;
    const auto begins = [&](std::string_view start) { return line.starts_with(start); };
    return line.empty() || std::ranges::any_of(std::vector<std::string_view>{"debug-", "NOTICE ", "WARNING ", "ERROR ",
                                                                             "Opened log file", "Closing log file"},
                                               begins);
}

class AttackEndToEnd : public testing::Test {
protected:
    void SetUp() override {
        if (geteuid() != 0)
            GTEST_SKIP() << "only root can be another user";
        secret_ = elsewhere_.write("secret", secretText);
        fs::permissions(secret_, fs::perms::owner_read);
        fs::permissions(elsewhere_.path(), fs::perms::others_exec, fs::perm_options::add);
    }

    void begin(int debugLevel = 1, const char* rules = "include datatype=*\n") {
        collector_ = std::make_unique<RunningCollector>(
            "", "        process-data () = \"\" { polling (Bool) = true { interval (TimeSpan) = P1S { } } }\n",
            std::vector<RunningCollector::File>{{"include-exclude", rules}}, debugLevel);
        fs::permissions(home().path(), fs::perms::group_exec | fs::perms::others_exec, fs::perm_options::add);
    }

    RunningCollector& collector() { return *collector_; }
    const TempDirectory& home() const { return collector_->directory(); }
    const std::string& secret() const { return secret_; }

    void restartWithAnOpenSlot() {
        home().write("resources.toml", readFile(home() / "resources.toml") + "MailslotAccess = \"everyone\"\n");
        ASSERT_EQ(collector().stop(), 0);
        ASSERT_TRUE(collector().start());
        collector().passLog();
    }

    /// Sends, as that user, to the collector's mailslot.
    bool sendsAs(uid_t user, const std::vector<std::string>& messages, int count) {
        const int directory = open((home() / "run/mailslot").c_str(), O_PATH | O_DIRECTORY | O_CLOEXEC);
        Child sender([&] { return sendAs(user, directory, messages, count) ? 0 : 1; });
        close(directory);
        return sender.reap() == 0;
    }

    /// Nobody becomes the owner of directories of the collector's, as its user is in the package.
    void giveToNobody(const std::vector<std::string>& directories) {
        for (const std::string& name : directories) {
            fs::create_directories(home() / name);
            ASSERT_EQ(chown((home() / name).c_str(), nobody, nobody), 0);
            fs::permissions(home() / name, static_cast<fs::perms>(0750));
        }
    }

    void expectSecretIsKept() {
        struct stat state {};
        ASSERT_EQ(stat(secret_.c_str(), &state), 0);
        EXPECT_EQ(state.st_mode & 07777U, 0400U);
        EXPECT_EQ(state.st_uid, 0U);
        EXPECT_EQ(readFile(secret_), secretText);
    }

    std::string log() const { return readFile(home() / "RuntallyDebug.log"); }

private:
    TempDirectory elsewhere_;
    std::string secret_;
    std::unique_ptr<RunningCollector> collector_;
};
} // namespace

TEST_F(AttackEndToEnd, StrangersCommandNothing) {
    begin();
    fs::copy_file(VELMOR_RUNTALLYCTL, home() / "tool");
    EXPECT_FALSE(sendsAs(nobody, {order("DIE")}, 1)) << "the slot is for the group";
    const std::string refusal = collector().run("", asNobody + (home() / "tool") + " die 2>&1");
    EXPECT_TRUE(refusal.starts_with("4 ")) << refusal;
    EXPECT_NE(refusal.find("members of the group"), std::string::npos) << refusal;
    EXPECT_FALSE(
        succeedsAsNobody([this] { return kill(static_cast<pid_t>(collector().program().pid()), SIGTERM) == 0; }));

    restartWithAnOpenSlot();
    EXPECT_TRUE(sendsAs(nobody, {order("DIE")}, 1)) << "the slot is for everyone, but commands are not";
    EXPECT_TRUE(collector().awaitLog("(2.21.33)"));
    EXPECT_TRUE(sendsAs(nobody, {std::string(300 * 1024, 'x')}, 1));
    EXPECT_TRUE(collector().awaitLog("(2.21.34)")) << "too long is refused, not cut";
    EXPECT_EQ(collector().control("info").substr(0, 2), "0 ");
    EXPECT_EQ(collector().stop(), 0);
}

TEST_F(AttackEndToEnd, AFloodHoldsNothingUp) {
    begin(0);
    restartWithAnOpenSlot();
    const size_t linesBefore = static_cast<size_t>(std::ranges::count(log(), '\n'));
    const int directory = open((home() / "run/mailslot").c_str(), O_PATH | O_DIRECTORY | O_CLOEXEC);
    const std::string dead = "Velmor\x1b"
                             "COMMAND\x1bx\x1bRUNTALLYDUMP\x1bnobody_there\x1b" +
                             std::string(1, '\0');
    std::vector<std::unique_ptr<Child>> senders;
    for (const uid_t user : {nobody, nobody, nobody, uid_t{0}})
        senders.push_back(std::make_unique<Child>([&, user] {
            return sendAs(user, directory, {order("RUNTALLYDUMP"), order("DIE?"), "x", dead}, 0) ? 0 : 1;
        }));
    close(directory);
    for (int i = 0; i < 3; ++i) {
        ASSERT_TRUE(collector().awaitLog("(2.21.32)")) << "root's own command is carried out amid all that";
        EXPECT_EQ(collector().control("info").substr(0, 2), "0 ");
    }
    const std::string status = readFile("/proc/" + std::to_string(collector().program().pid()) + "/status");
    const auto begin = std::chrono::steady_clock::now();
    EXPECT_EQ(collector().stop(), 0);
    EXPECT_LT(std::chrono::steady_clock::now() - begin, std::chrono::seconds(10));
    EXPECT_LT(static_cast<size_t>(std::ranges::count(log(), '\n')) - linesBefore, 100U);
#if !defined(__SANITIZE_ADDRESS__) && !defined(__SANITIZE_THREAD__)
    const size_t place = status.find("VmHWM:");
    ASSERT_NE(place, std::string::npos);
    EXPECT_LT(std::stol(status.substr(place + 6)), 80 * 1024) << "KiB";
#endif
}

TEST_F(AttackEndToEnd, NothingThatTheCollectorMadeOpensForStrangersSoThatNobodyCanFreezeIt) {
    begin();
    EXPECT_EQ(collector().control("dump"), "0 done\n");
    std::vector<std::string> files;
    for (const auto& entry : fs::recursive_directory_iterator(home().path())) {
        const bool isOurs = entry.path().parent_path() == fs::path(home().path()).parent_path() &&
                            entry.path().filename() != "RuntallyDebug.log";
        if (entry.is_directory())
            fs::permissions(entry, fs::perms::others_exec, fs::perm_options::add); // each file must hold by itself
        else if (!isOurs)
            files.push_back(entry.path());
    }
    ASSERT_GE(files.size(), 5U);
    for (const std::string& file : files)
        EXPECT_FALSE(succeedsAsNobody([&] { return open(file.c_str(), O_RDONLY | O_NONBLOCK) >= 0; })) << file;

    // A member of the group opens more, and holds up what he may end as well, but not its end.
    int ready[2];
    ASSERT_EQ(pipe2(ready, O_CLOEXEC), 0);
    Child member([&] {
        size_t held = 0;
        if (setgroups(0, nullptr) == 0 && setuid(nobody) == 0)
            for (const std::string& file : files)
                held += flock(open(file.c_str(), O_RDONLY | O_NONBLOCK), LOCK_EX | LOCK_NB) == 0 ? 1 : 0;
        (void)!write(ready[1], held > 0 ? "x" : "", 1);
        pause();
        return 0;
    });
    char byte = 0;
    ASSERT_EQ(read(ready[0], &byte, 1), 1);
    EXPECT_EQ(byte, 'x');
    EXPECT_EQ(collector().stop(), 0);
    close(ready[0]);
    close(ready[1]);
}

TEST_F(AttackEndToEnd, WhateverIsMaskedWhatTheCollectorMakesHasItsMode) {
    struct Row {
        const char* name; // the first that fits holds
        mode_t mode;
    };
    constexpr Row rows[] = {
        {"run/lock/Velmor_MailSlot", 0660},
        {"run/lock/*", 0600},
        {"run/lock", 03770},
        {"run/mailslot/*", 0660},
        {"run/mailslot", 03770},
        {"run", 0750},
        {"state/resources.toml.lock", 0600},
        {"state/*", 0640},
        {"state", 0750},
        {"data/*", 0640},
        {"data", 0750},
        {"RuntallyDebug.log", 0640},
        {"procevents*", 0640},
    };
    begin();
    ASSERT_EQ(collector().stop(), 0);
    for (const mode_t mask : {0000U, 0027U, 0077U}) {
        for (const char* old : {"run", "state", "data", "RuntallyDebug.log"})
            fs::remove_all(home() / old);
        const mode_t before = umask(mask);
        const bool runs = collector().start();
        umask(before);
        ASSERT_TRUE(runs);
        EXPECT_EQ(collector().control("dump"), "0 done\n");
        std::set<std::string> seen;
        for (const auto& entry : fs::recursive_directory_iterator(home().path())) {
            const std::string name = fs::relative(entry.path(), home().path());
            const auto* row =
                std::ranges::find_if(rows, [&](const Row& r) { return fnmatch(r.name, name.c_str(), 0) == 0; });
            struct stat state {};
            if (row == std::end(rows) || lstat(entry.path().c_str(), &state) != 0)
                continue;
            seen.insert(row->name);
            EXPECT_EQ(state.st_mode & 07777U, row->mode) << name << " with " << mask;
        }
        EXPECT_GE(seen.size(), std::size(rows) - 1) << "the diary comes with the first end";
        EXPECT_EQ(collector().stop(), 0);
    }
}

TEST_F(AttackEndToEnd, ALinkPutUnderANewNameLeadsRootNowhere) {
    begin();
    ASSERT_EQ(collector().stop(), 0);
    giveToNobody({"run", "run/mailslot", "run/lock"});
    // Whatever appears is replaced by a link at once.
    Child racer([this] {
        if (!become(nobody))
            return 1;
        while (true) {
            for (const std::string& place : {home() / "run/mailslot", home() / "run/lock"}) {
                DIR* directory = opendir(place.c_str());
                while (const dirent* entry = directory ? readdir(directory) : nullptr) {
                    if (entry->d_type == DT_LNK || entry->d_name[0] == '.')
                        continue;
                    unlinkat(dirfd(directory), entry->d_name, 0);
                    (void)!symlinkat(secret().c_str(), dirfd(directory), entry->d_name);
                }
                if (directory)
                    closedir(directory);
            }
        }
    });
    for (int round = 0; round < 1000 && !HasFailure(); ++round) {
        Child({VELMOR_RUNTALLYCTL, "info"}, collector().environment()).reap();
        expectSecretIsKept();
    }
}

TEST_F(AttackEndToEnd, PlantedNamesLeadRootNowhereAndWhatItWritesIsTheOwners) {
    begin();
    ASSERT_EQ(collector().stop(), 0);
    for (const char* old : {"run", "state", "data"})
        fs::remove_all(home() / old);
    giveToNobody({"run", "run/mailslot", "run/lock", "state", "data"});
    const std::vector<std::string> planted{"state/resources.toml.new", "run/mailslot/Velmor_Runtally",
                                           "state/.resources.toml.new"};
    ASSERT_TRUE(succeedsAsNobody([&] {
        return std::ranges::all_of(
            planted, [&](const std::string& name) { return symlink(secret().c_str(), (home() / name).c_str()) == 0; });
    }));
    ASSERT_TRUE(collector().start());
    EXPECT_EQ(collector().control("dump"), "0 done\n") << "the slot takes the link's place";
    EXPECT_EQ(collector().stop(), 0);
    expectSecretIsKept();
    for (const char* directory : {"state", "data", "run/lock"})
        for (const auto& entry : fs::directory_iterator(home() / directory)) {
            struct stat state {};
            ASSERT_EQ(lstat(entry.path().c_str(), &state), 0);
            EXPECT_EQ(state.st_uid, nobody) << entry.path();
        }
}

TEST_F(AttackEndToEnd, WhatStrangersLeaveSayAndAreCalledForgesNothing) {
    begin(5, "include exe=*/theirs/*\n");
    ASSERT_EQ(collector().stop(), 0);
    const std::string ids = home() / "Log/temp/";
    fs::create_directories(ids);
    fs::create_directories(home() / "theirs");
    fs::permissions(ids, fs::perms::all | fs::perms::sticky_bit);
    const std::string forged = "\r\nNOTICE   20260101T000000Z (2.21.32) forged\n1:0:31:0:forged\x1b[2J";
    struct Case {
        const char* program;
        std::function<bool(const char* idFile)> leave;
        const char* ids; // in the record
    };
    const std::vector<Case> cases{
        {"plain", [](const char* file) { return put(file, "\nid=u7\n"); }, "|user id=u7"},
        {"linked", [this](const char* file) { return symlink(secret().c_str(), file) == 0; }, ""},
        {"pipe", [](const char* file) { return mkfifo(file, 0666) == 0; }, ""},
        {"sparse", [](const char* file) { return put(file, "\nid=u7\n") && truncate(file, 1L << 40) == 0; }, ""},
        {"steering\x1b[2J:a|b", [](const char*) { return true; }, ""},
        {"fields", [&forged](const char* file) { return put(file, "\nid=a|b:c\x1b" + forged); }, "|user id=a_b_c_"},
        {"lines\n1:0:31:0:forged\r\nNOTICE", [](const char*) { return true; }, ""},
    };
    std::vector<std::unique_ptr<Child>> programs;
    for (const Case& row : cases) {
        const std::string path = home() / "theirs/" + row.program;
        fs::copy_file("/bin/sleep", path);
        programs.push_back(std::make_unique<Child>(std::vector<std::string>{
            "/usr/bin/setpriv", "--reuid", "65534", "--regid", "65534", "--clear-groups", path, "60"}));
        const std::string id =
            ids + "user_id-nobody-" + std::to_string(programs.back()->pid()) + "-" + row.program + ".idval";
        EXPECT_TRUE(succeedsAsNobody([&] { return row.leave(id.c_str()); })) << row.program;
    }
    home().write("resources.toml", readFile(home() / "resources.toml") + "MailslotAccess = \"everyone\"\n");
    ASSERT_TRUE(collector().start());
    const std::string parameters = "2.21.32.N\x1f" + forged;
    EXPECT_TRUE(sendsAs(
        nobody, {order("DIE" + forged), message("LOGMSG", parameters), message(forged, "x"), forged, order("DIE")}, 1));
    for (const auto& program : programs)
        EXPECT_TRUE(
            eventually([&] { return log().find("rocess " + std::to_string(program->pid())) != std::string::npos; },
                       std::chrono::milliseconds(20)));
    std::vector<std::string> lines;
    const auto areWritten = [&] { // a delivery comes to nothing while a slow look at the processes goes on
        EXPECT_EQ(collector().control("dump --timeout 60"), "0 done\n");
        lines = dataLines(home() / "data", "ProcessLog");
        return lines.size() >= 2 * cases.size();
    };
    EXPECT_TRUE(eventually(areWritten, std::chrono::milliseconds(100))) << testing::PrintToString(lines);
    EXPECT_EQ(collector().stop(), 0);
    for (size_t i = 0; i < lines.size(); ++i)
        EXPECT_TRUE(i % 2 == 0 ? lines[i].starts_with("1:") : lines[i].find(':') == 1) << lines[i];
    for (const Case& row : cases)
        EXPECT_TRUE(std::ranges::any_of(lines, [&](const std::string& line) {
            return line.find(std::string(row.program).substr(0, 4)) != std::string::npos &&
                   line.find(std::string("\\nobody") + row.ids + ":") != std::string::npos;
        })) << row.program;
    std::istringstream all(log());
    for (std::string line; std::getline(all, line);)
        EXPECT_TRUE(isWhole(line)) << line;
}

TEST_F(AttackEndToEnd, AnotherUsersLockStaysHis) {
    const TempDirectory place;
    fs::permissions(place.path(), fs::perms::all);
    const std::string lock = place / "file.lock";
    for (const char* text : {"", "20010909T014710Z\n20010909T014740Z\n000000Zsomebody..\noriginal\n"}) {
        place.write("file.lock", text);
        fs::permissions(lock, fs::perms::owner_read);
        EXPECT_FALSE(succeedsAsNobody([&] {
            FilePlain file(place / "file");
            file.open(FileBase::ACCESS_WRITE | FileBase::ACCESS_CREATE | FileBase::ACCESS_TRUNCATE);
            return file.isOpen();
        }));
        EXPECT_EQ(readFile(lock), text) << "what can't be read isn't proven dead";
    }
}

TEST_F(AttackEndToEnd, AsAServiceNoThreadHasMoreInForceThanItUses) {
    constexpr uint64_t look = 1U << 19U | 1U << 2U;                 // CAP_SYS_PTRACE, CAP_DAC_READ_SEARCH
    constexpr uint64_t all = look | 1U << 12U | uint64_t{1} << 38U; // CAP_NET_ADMIN, CAP_PERFMON
    const std::string four = "-all,+sys_ptrace,+net_admin,+perfmon,+dac_read_search";
    begin(1, "include exe=*/theirs/*\n");
    ASSERT_EQ(collector().stop(), 0);
    collector().writeConfiguration("", "        process-data () = \"\" { events (Bool) = true { native (Bool) = true { "
                                       "} } polling (Bool) = true { } }\n");
    for (const char* old : {"run", "state", "data", "RuntallyDebug.log"})
        fs::remove_all(home() / old);
    ASSERT_EQ(chown(home().path().c_str(), nobody, nobody), 0);
    fs::permissions(home() / "notify", fs::perms::all);
    fs::copy_file(VELMOR_RUNTALLY, home() / "collector");
    ASSERT_TRUE(collector().startBy({"/usr/bin/setpriv", "--reuid=65534", "--regid=65534", "--clear-groups",
                                     "--inh-caps=" + four, "--ambient-caps=" + four, "--bounding-set=" + four,
                                     home() / "collector"}));
    fs::create_directories(home() / "theirs");
    fs::copy_file("/bin/true", home() / "theirs/own");
    EXPECT_EQ(Child({home() / "theirs/own"}).reap(), 0);
    EXPECT_TRUE(
        eventually([&] { return !dataLines(home() / "data", "ProcessLog").empty(); }, std::chrono::milliseconds(20)));
    EXPECT_TRUE(collector().status().find("kernel events and polling") != std::string::npos) << collector().status();
    size_t without = 0;
    for (const auto& task : fs::directory_iterator("/proc/" + std::to_string(collector().program().pid()) + "/task")) {
        const std::string status = readFile(task.path() / "status");
        const auto setOf = [&status](const char* name) {
            return std::stoull(status.substr(status.find(name) + 8), nullptr, 16);
        };
        const bool hasNone = setOf("CapEff") == 0;
        EXPECT_TRUE(hasNone || setOf("CapEff") == look) << status;
        EXPECT_EQ(setOf("CapPrm"), hasNone ? 0 : all) << status;
        without += hasNone ? 1 : 0;
    }
    EXPECT_GT(without, 0U) << "the mailslot's reader needs none";
    EXPECT_EQ(collector().stop(), 0);
    EXPECT_TRUE(dataLines(home() / "data", "ProcessLog").front().ends_with(":0"));
}

} // namespace Velmor
