#include "platform/linux/trace/ProcessBook.h"

#include <gtest/gtest.h>

#include <functional>
#include <map>
#include <set>
#include <sstream>

namespace Velmor {

namespace {
constexpr int64_t millisecond = 1'000'000;

/// Processes of which 50 can be named as it runs, and 51 when it has ended.
struct PaperFacts : ProcessFacts {
    bool executable(uint32_t pid, int64_t, std::string& path) override {
        if (pid == 50)
            path = "/bin/lives";
        return pid == 50;
    }
    bool describe(uint32_t, TableEntry&) override { return false; }
    bool hasEnded(uint32_t pid, uint64_t) override {
        ++looks;
        return ended.contains(pid);
    }
    bool epitaph(uint32_t pid, uint64_t, std::string& path, uid_t& owner, uint32_t& code) override {
        std::tie(path, owner, code) = std::tuple("/bin/dead", 9, 5);
        return pid == 51;
    }

    std::set<uint32_t> ended;
    int looks = 0; // for an end
};

TableEntry tableEntry(uint32_t pid, const char* executable, uint64_t startTicks = 0, int64_t knownAt = 0) {
    TableEntry entry;
    entry.pid = pid;
    entry.executable = executable;
    entry.startTicks = startTicks;
    entry.startTime = static_cast<int64_t>(startTicks) * 10 * millisecond;
    entry.knownAt = entry.namedAt = knownAt * millisecond;
    return entry;
}

/// A book in which the shell 10 of user 1000 runs.
struct Desk {
    Desk() {
        TableEntry shell = tableEntry(10, "/bin/sh", 1);
        shell.owner = 1000;
        enter(shell);
    }

    void enter(const TableEntry& entry) {
        auto note = std::make_shared<TracedProcess>();
        note->pid = entry.pid;
        note->executable = entry.executable;
        book.enter(entry, note, false);
    }

    /// What has been announced since the last call: "+pid name of owner at ms" and "-pid name code at ms".
    std::string news() {
        std::vector<BookEvent> events;
        book.takeEvents(events);
        std::string text;
        for (const BookEvent& event : events) {
            const TracedProcess& p = *event.process;
            text += (event.isStart ? "+" : "-") + std::to_string(p.pid) + " " + p.executable + " " +
                    std::to_string(event.isStart ? static_cast<int32_t>(p.owner) : p.state.load()) + " at " +
                    std::to_string(event.time / millisecond) + "; ";
        }
        return text;
    }

    /// Does the steps of a story, and tells the news; "|" stands where the story has it.
    std::string tell(const std::string& story) {
        std::istringstream steps(story);
        std::string text;
        for (std::string step; std::getline(steps >> std::ws, step, ',');)
            if (step == "|")
                text += news() + "| ";
            else
                act(step);
        return text + news();
    }

    /// The words of a step: what happens, at which millisecond, to which process, and what else there is.
    void act(const std::string& step) {
        std::istringstream words(step);
        std::string what;
        int64_t at = 0;
        uint32_t pid = 0;
        uint32_t thread = 0;
        words >> what >> at >> pid;
        at *= millisecond;
        const auto number = [&](int64_t otherwise) {
            int64_t given = otherwise;
            return words >> given ? given : otherwise;
        };
        const auto id = [&](int64_t otherwise) { return static_cast<uint32_t>(number(otherwise)); };
        std::string path;
        const std::map<std::string, std::function<void()>> deeds{
            {"fork", [&] { book.forked(at, id(10), pid); }},
            {"thread", [&] { book.threadStarted(at, pid); }},
            {"exec", [&] { words >> path, book.executed(at, pid, path); }},
            {"owner", [&] { book.ownerChanged(at, pid, id(0)); }},
            {"exit", [&] { book.exited(at, pid, pid, number(0)); }},
            {"exit-thread", [&] { words >> thread, book.exited(at, pid, thread, number(0)); }},
            {"dead", [&] { facts.ended.insert(pid); }},
            {"tick", [&] { book.tick(at); }},
            {"doubt", [&] { book.doubt(at != 0); }}};
        deeds.at(what)();
    }

    PaperFacts facts;
    ProcessBook book{facts, 0};
};
} // namespace

TEST(ProcessBookTest, Stories) {
    using Story = std::tuple<const char*, const char*, const char*>;
    for (const auto& [what, happens, news] : {
             Story{"an execution is the start", "fork 100 20,|,exec 101 20 /bin/true,exit 102 20 3",
                   "| +20 /bin/true 1000 at 101; -20 /bin/true 3 at 102; "},
             Story{"a fork without one is a start after a while", "fork 100 20,fork 120 21,tick 150,|,exit 160 21",
                   "+20 /bin/sh 1000 at 100; | +21 /bin/sh 1000 at 120; -21 /bin/sh 0 at 160; "},
             Story{"another program ends and starts", "exec 100 10 /usr/bin/vim",
                   "-10 /bin/sh 0 at 100; +10 /usr/bin/vim 1000 at 100; "},
             Story{"the same program goes on",
                   "exec 100 10 /bin/sh,fork 200 20,exec 201 20 /bin/sh,exec 202 20 /bin/sh",
                   "+20 /bin/sh 1000 at 201; "},
             Story{"the last thread is the end",
                   "fork 100 20,exec 101 20 /bin/srv,thread 102 20,thread 103 20,exit 104 20 1,exit-thread 105 20 21 2,"
                   "|,exit-thread 106 20 22 7",
                   "+20 /bin/srv 1000 at 101; | -20 /bin/srv 7 at 106; "},
             Story{"a thread that executes takes the process over",
                   "fork 200 30,exec 201 30 /bin/srv,thread 202 30,exit 203 30,exec 204 30 /bin/true,exit 205 30 4",
                   "+30 /bin/srv 1000 at 201; -30 /bin/srv 0 at 204; +30 /bin/true 1000 at 204; -30 /bin/true 4 at "
                   "205; "},
             Story{"a thread's 0 doesn't hide the code",
                   "fork 100 20,thread 101 20,exit 105 20 3,exit-thread 106 20 21 0",
                   "+20 /bin/sh 1000 at 100; -20 /bin/sh 3 at 106; "},
             Story{"an execution forgets a thread's code",
                   "fork 200 30,thread 201 30,exit-thread 202 30 31 9,exec 203 30 /bin/true,exit 204 30 0",
                   "+30 /bin/true 1000 at 203; -30 /bin/true 0 at 204; "},
             Story{"owners are inherited and change", "fork 100 20,owner 101 20 0,exec 102 20 /bin/sudo",
                   "+20 /bin/sudo 0 at 102; "},
             Story{"nobody knows the owner of an orphan",
                   "fork 200 30 99,exec 201 30 /bin/orphan,exec 300 40 /bin/foundling",
                   "+30 /bin/orphan -1 at 201; +40 /bin/foundling -1 at 300; "},
             Story{"a name that nobody told is looked for", "fork 100 50,exec 101 50", "+50 /bin/lives 1000 at 101; "},
             Story{"a name is found at the end", "fork 100 51,exec 101 51,|,exit 102 51 -2",
                   "| +51 /bin/dead 9 at 101; -51 /bin/dead 5 at 102; "},
             Story{"a name is found nowhere", "fork 100 52,exec 101 52,exec 102 52 /bin/named",
                   "+52  1000 at 101; -52  0 at 102; +52 /bin/named 1000 at 102; "},
             Story{"an id is in use again", "fork 9700 20,fork 9800 20",
                   "+20 /bin/sh 1000 at 9700; -20 /bin/sh -2 at 9800; "},
         }) {
        Desk desk;
        EXPECT_EQ(desk.tell(happens), news) << what;
    }
}

TEST(ProcessBookTest, AnEndIsTakenOnTrustOnlyIfTheCountOfThreadsIsCertain) {
    Desk desk;
    desk.tell("fork 100 20,exec 101 20 /bin/true,exit 102 20");
    EXPECT_EQ(desk.facts.looks, 0) << "the ordinary process costs no look";
    desk.enter(tableEntry(40, "/bin/old")); // a thread of it ended during the look
    EXPECT_EQ(
        desk.tell("fork 200 30,thread 201 30,exec 202 30 /bin/late," // executes while a thread of its ends
                  "fork 203 50,exec 204 50 /bin/before,|,"
                  "exit-thread 205 30 31 0,exit-thread 205 40 41 0,"
                  "doubt 1,fork 206 60,exec 207 60 /bin/during,doubt 0," // the starts of threads are lost
                  "exit-thread 208 50 51 0,exit-thread 208 60 61 0,|,dead 0 30,exit 220 30 4,dead 0 40,exit 220 40 4,"
                  "dead 0 50,exit 220 50 4,dead 0 60,exit 220 60 4"),
        "+30 /bin/late 1000 at 202; +50 /bin/before 1000 at 204; | +60 /bin/during 1000 at 207; | "
        "-30 /bin/late 4 at 220; -40 /bin/old 4 at 220; -50 /bin/before 4 at 220; -60 /bin/during 4 at 220; ");
}

TEST(ProcessBookTest, OfAnOlderProcessTheThreadsAreCheckedBeforeItEnds) {
    Desk desk;
    TableEntry server = tableEntry(40, "/bin/srv", 0, 100);
    server.threads = 2;
    desk.enter(server); // which contains the first end; there is a thread more than was counted
    EXPECT_EQ(desk.tell("exit 50 40,exit-thread 101 40 41 0,exit 102 40 6,|,dead 0 40,tick 1000"),
              "| -40 /bin/srv 6 at 102; ");
    server.pid = 50;
    server.isLeaderless = true; // and counted though it has ended
    desk.enter(server);
    EXPECT_EQ(desk.tell("exit-thread 1101 50 51 7,dead 0 50,tick 2000"), "-50 /bin/srv 7 at 1101; ");
}

TEST(ProcessBookTest, ExecutionsOfBeforeALookAreContainedInIt) {
    Desk desk;
    TableEntry looked = tableEntry(40, "/bin/second", 0, 100);
    looked.namedAt = 120 * millisecond;
    desk.enter(looked);
    EXPECT_EQ(
        desk.tell("exec 105 40 /bin/first,exec 110 40 /bin/second,exec 121 40 /bin/second,exec 130 40 /bin/third"),
        "-40 /bin/second 0 at 130; +40 /bin/third 0 at 130; ");
}

TEST(ProcessBookTest, TheMachineMaySleep) {
    constexpr int64_t slept = 3'600'000 * millisecond;
    const auto late = [](uint32_t pid, uint64_t startTicks) {
        TableEntry entry = tableEntry(pid, "/bin/sh", startTicks);
        entry.startTime -= slept;
        return entry;
    };
    Desk desk;
    desk.enter(late(11, 2)); // started before the sleep
    desk.enter(late(12, 2));
    desk.tell("fork 100 20");
    desk.book.followBootClock(slept);
    desk.tell("fork 110 21"); // before or after
    desk.book.followBootClock(slept);
    desk.tell("fork 120 22,tick 200");
    EXPECT_EQ(desk.tell("exit 210 11 4,dead 0 11,tick 1000"), "-11 /bin/sh 4 at 210; ");
    desk.book.compare({late(10, 1), late(20, 10), late(21, 11), late(22, 360'012)}, 300 * millisecond);
    EXPECT_EQ(desk.news(), "-12 /bin/sh -2 at 300; ");
    desk.book.compare({late(10, 1), late(20, 10), late(21, 11), late(22, 360'400)}, 4100 * millisecond);
    EXPECT_EQ(desk.news(), "-22 /bin/sh -2 at 4100; +22 /bin/sh 0 at 4000; ") << "its id is in use again";
}

TEST(ProcessBookTest, ThreadsOfTheKernelAreNoNewsUntilTheyExecute) {
    Desk desk;
    TableEntry kernel = tableEntry(2, "");
    kernel.isKernelThread = true;
    desk.book.enter(kernel, nullptr, true);
    EXPECT_EQ(desk.tell("fork 100 20 2,fork 100 21 2,tick 500,exit 501 20,|,exec 502 21 /sbin/modprobe"),
              "| +21 /sbin/modprobe 0 at 502; ");
}

TEST(ProcessBookTest, AfterALossTheTableIsRight) {
    Desk desk;
    desk.tell(
        "fork 100 20,exec 101 20 /bin/gone,fork 110 21,exec 111 21 /bin/reused,fork 110 22,exec 111 22 /bin/stays,"
        "fork 110 25,exec 111 25 /bin/stays");
    TableEntry shell = tableEntry(10, "", 1, 9500);
    TableEntry stays = tableEntry(22, "/seen/from/elsewhere/stays", 11, 9500);
    stays.owner = shell.owner = 1000;
    TableEntry changed = tableEntry(25, "/bin/changed", 11, 9500);
    changed.threads = 20;
    desk.facts.ended.insert(24);
    const TableEntry successor = tableEntry(21, "/bin/successor", 900);
    const TableEntry missed = tableEntry(23, "/bin/missed", 900);
    const TableEntry endedSince = tableEntry(24, "/bin/missed", 900);
    desk.book.compare({shell, successor, stays, changed, missed, endedSince}, 9500 * millisecond);
    const std::string text = desk.news();
    for (const char* part :
         {"-20 /bin/gone -2 at 9500; ", "-21 /bin/reused -2 at 9500; ", "+21 /bin/successor 0 at 9000; ",
          "+23 /bin/missed 0 at 9000; ", "-25 /bin/stays 0 at 9500; +25 /bin/changed 0 at 9500; "})
        EXPECT_NE(text.find(part), std::string::npos) << part << " in " << text;
    EXPECT_EQ(std::count(text.begin(), text.end(), ';'), 6) << text;
    desk.book.compare({shell, successor, stays, changed, missed}, 9600 * millisecond);
    EXPECT_EQ(desk.tell("exit-thread 9600 25 26 0"), "");
}

} // namespace Velmor
