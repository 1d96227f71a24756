#include "platform/linux/trace/ProcessBook.h"

#include <gtest/gtest.h>

#include <map>
#include <set>

namespace Velmor {

namespace {
constexpr int64_t millisecond = 1'000'000;

struct PaperFacts : ProcessFacts {
    bool executable(uint32_t pid, int64_t, std::string& path) override {
        const auto found = links.find(pid);
        if (found != links.end())
            path = found->second;
        return found != links.end();
    }
    bool describe(uint32_t pid, TableEntry& entry) override {
        const auto found = table.find(pid);
        if (found != table.end())
            entry = found->second;
        return found != table.end();
    }
    bool hasEnded(uint32_t pid, uint64_t) override {
        ++looks;
        return ended.contains(pid);
    }
    bool epitaph(uint32_t pid, uint64_t, std::string& path, uid_t& owner, uint32_t& code) override {
        if (!epitaphs.contains(pid))
            return false;
        path = epitaphs[pid];
        owner = 9;
        code = 5;
        return true;
    }

    std::map<uint32_t, std::string> links;
    std::map<uint32_t, TableEntry> table;
    std::map<uint32_t, std::string> epitaphs;
    std::set<uint32_t> ended;
    int looks = 0; // for an end
};

class ProcessBookTest : public ::testing::Test {
protected:
    ProcessBookTest() {
        TableEntry shell;
        shell.pid = 10;
        shell.owner = 1000;
        shell.executable = "/bin/sh";
        shell.startTicks = 1;
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
                    std::to_string(event.isStart ? int64_t{p.owner} : p.state.load()) + " at " +
                    std::to_string(event.time / millisecond) + "; ";
        }
        return text;
    }

    void fork(int64_t at, uint32_t pid, uint32_t parent = 10) { book.forked(at * millisecond, parent, pid); }
    void execute(int64_t at, uint32_t pid, const char* path) { book.executed(at * millisecond, pid, path); }
    void exit(int64_t at, uint32_t pid, int64_t code = 0) { book.exited(at * millisecond, pid, pid, code); }
    void exitThread(int64_t at, uint32_t pid, uint32_t thread, int64_t code) {
        book.exited(at * millisecond, pid, thread, code);
    }

    PaperFacts facts;
    ProcessBook book{facts, 0};
};
} // namespace

TEST_F(ProcessBookTest, AnExecutionIsTheStart) {
    fork(100, 20);
    EXPECT_EQ(news(), "");
    execute(101, 20, "/bin/true");
    exit(102, 20, 3);
    EXPECT_EQ(news(), "+20 /bin/true 1000 at 101; -20 /bin/true 3 at 102; ");
}

TEST_F(ProcessBookTest, AForkWithoutExecutionIsAStartAfterAWhileOrAtItsEnd) {
    fork(100, 20);
    fork(120, 21);
    book.tick(150 * millisecond);
    EXPECT_EQ(news(), "+20 /bin/sh 1000 at 100; ");
    exit(160, 21);
    book.tick(300 * millisecond);
    EXPECT_EQ(news(), "+21 /bin/sh 1000 at 120; -21 /bin/sh 0 at 160; ");
    fork(400, 22, 20);
    execute(401, 22, "/bin/true");
    book.tick(500 * millisecond);
    EXPECT_EQ(news(), "+22 /bin/true 1000 at 401; ");
}

TEST_F(ProcessBookTest, AProcessThatExecutesAnotherProgramEndsAndStarts) {
    execute(100, 10, "/usr/bin/vim");
    EXPECT_EQ(news(), "-10 /bin/sh 0 at 100; +10 /usr/bin/vim 1000 at 100; ");
}

TEST_F(ProcessBookTest, ItEndsWithItsLastThread) {
    fork(100, 20);
    execute(101, 20, "/bin/srv");
    book.threadStarted(102 * millisecond, 20);
    book.threadStarted(103 * millisecond, 20);
    news();
    exit(104, 20, 1);
    exitThread(105, 20, 21, 2);
    EXPECT_EQ(news(), "");
    exitThread(106, 20, 22, 7);
    EXPECT_EQ(news(), "-20 /bin/srv 7 at 106; ");
    // The thread that executes takes the process over; the others, the first among them, end.
    fork(200, 30);
    execute(201, 30, "/bin/srv");
    book.threadStarted(202 * millisecond, 30);
    exit(203, 30);
    execute(204, 30, "/bin/true");
    exit(205, 30, 4);
    EXPECT_EQ(news(), "+30 /bin/srv 1000 at 201; -30 /bin/srv 0 at 204; +30 /bin/true 1000 at 204; "
                      "-30 /bin/true 4 at 205; ");
}

TEST_F(ProcessBookTest, AnEndIsTakenOnTrustOnlyIfTheCountOfThreadsIsCertain) {
    fork(100, 20);
    execute(101, 20, "/bin/true");
    exit(102, 20);
    EXPECT_EQ(facts.looks, 0) << "the ordinary process costs no look";
    fork(200, 30); // executes while a thread of its ends
    book.threadStarted(201 * millisecond, 30);
    execute(202, 30, "/bin/late");
    TableEntry old; // a thread of it ended during the look
    old.pid = 40;
    old.executable = "/bin/old";
    enter(old);
    fork(203, 50);
    execute(204, 50, "/bin/before");
    news();
    exitThread(205, 30, 31, 0);
    exitThread(205, 40, 41, 0);
    book.doubt(true); // the starts of threads are lost
    fork(206, 60);
    execute(207, 60, "/bin/during");
    book.doubt(false);
    exitThread(208, 50, 51, 0);
    exitThread(208, 60, 61, 0);
    EXPECT_EQ(news(), "+60 /bin/during 1000 at 207; ");
    for (const uint32_t pid : {30U, 40U, 50U, 60U}) {
        facts.ended.insert(pid);
        exit(220, pid, 4);
    }
    EXPECT_EQ(news(), "-30 /bin/late 4 at 220; -40 /bin/old 4 at 220; -50 /bin/before 4 at 220; "
                      "-60 /bin/during 4 at 220; ");
}

TEST_F(ProcessBookTest, AThreadThatEndedBeforeWithoutACodeDoesNotHideTheOneOfTheProcess) {
    fork(100, 20);
    book.threadStarted(101 * millisecond, 20);
    exit(105, 20, 3);
    exitThread(106, 20, 21, 0);
    EXPECT_EQ(news(), "+20 /bin/sh 1000 at 100; -20 /bin/sh 3 at 106; ");
    fork(200, 30);
    book.threadStarted(201 * millisecond, 30);
    exitThread(202, 30, 31, 9);
    execute(203, 30, "/bin/true"); // forgets it
    exit(204, 30, 0);
    EXPECT_EQ(news(), "+30 /bin/true 1000 at 203; -30 /bin/true 0 at 204; ");
}

TEST_F(ProcessBookTest, OfAnOlderProcessTheThreadsAreCheckedBeforeItEnds) {
    TableEntry server;
    server.pid = 40;
    server.executable = "/bin/srv";
    server.threads = 2;
    server.knownAt = 100 * millisecond;
    enter(server);
    exit(50, 40); // contained in what was known
    exitThread(101, 40, 41, 0);
    exit(102, 40, 6);
    EXPECT_EQ(news(), "") << "a thread more than was counted";
    facts.ended.insert(40);
    book.tick(1000 * millisecond);
    EXPECT_EQ(news(), "-40 /bin/srv 6 at 102; ");
    server.pid = 50;
    server.isLeaderless = true; // and counted though it has ended
    enter(server);
    exitThread(1101, 50, 51, 7);
    facts.ended.insert(50);
    book.tick(2000 * millisecond);
    EXPECT_EQ(news(), "-50 /bin/srv 7 at 1101; ");
}

TEST_F(ProcessBookTest, TheMachineMaySleep) {
    constexpr int64_t slept = 3'600'000 * millisecond;
    const auto tableEntry = [](uint32_t pid, uint64_t startTicks) {
        TableEntry entry;
        entry.pid = pid;
        entry.startTicks = startTicks;
        entry.startTime = static_cast<int64_t>(startTicks) * 10 * millisecond - slept;
        entry.executable = "/bin/sh";
        return entry;
    };
    const TableEntry shell = tableEntry(10, 1);
    enter(tableEntry(11, 2)); // started before the sleep
    enter(tableEntry(12, 2));
    fork(100, 20);
    book.followBootClock(slept);
    fork(110, 21); // before or after
    book.followBootClock(slept);
    fork(120, 22);
    book.tick(200 * millisecond);
    news();
    exit(210, 11, 4);
    facts.ended.insert(11);
    book.tick(1000 * millisecond);
    EXPECT_EQ(news(), "-11 /bin/sh 4 at 210; ");
    book.compare({shell, tableEntry(20, 10), tableEntry(21, 11), tableEntry(22, 360'012)}, 300 * millisecond);
    EXPECT_EQ(news(), "-12 /bin/sh -2 at 300; ");
    book.compare({shell, tableEntry(20, 10), tableEntry(21, 11), tableEntry(22, 360'400)}, 4100 * millisecond);
    EXPECT_EQ(news(), "-22 /bin/sh -2 at 4100; +22 /bin/sh 0 at 4000; ") << "its id is in use again";
}

TEST_F(ProcessBookTest, OwnersAreInheritedAndChange) {
    fork(100, 20);
    book.ownerChanged(101 * millisecond, 20, 0);
    execute(102, 20, "/bin/sudo");
    EXPECT_EQ(news(), "+20 /bin/sudo 0 at 102; ");
    fork(200, 30, 99); // of a parent that nobody knows, and gone
    execute(201, 30, "/bin/orphan");
    execute(300, 40, "/bin/foundling");
    const std::string unknown = std::to_string(TracedProcess::unknownOwner);
    EXPECT_EQ(news(), "+30 /bin/orphan " + unknown + " at 201; +40 /bin/foundling " + unknown + " at 300; ");
}

TEST_F(ProcessBookTest, ThreadsOfTheKernelAreNoNewsUntilTheyExecute) {
    TableEntry kernel;
    kernel.pid = 2;
    kernel.isKernelThread = true;
    book.enter(kernel, nullptr, true);
    fork(100, 20, 2);
    fork(100, 21, 2);
    book.tick(500 * millisecond);
    exit(501, 20);
    EXPECT_EQ(news(), "");
    execute(502, 21, "/sbin/modprobe");
    EXPECT_EQ(news(), "+21 /sbin/modprobe 0 at 502; ");
}

TEST_F(ProcessBookTest, ANameThatNobodyToldIsLookedForElsewhere) {
    facts.links[20] = "/bin/lives";
    fork(100, 20);
    execute(101, 20, "");
    EXPECT_EQ(news(), "+20 /bin/lives 1000 at 101; ");
    facts.epitaphs[21] = "/bin/dead";
    fork(100, 21);
    execute(101, 21, "");
    EXPECT_EQ(news(), "");
    exit(102, 21, ProcessBook::unknownCode);
    EXPECT_EQ(news(), "+21 /bin/dead 9 at 101; -21 /bin/dead 5 at 102; ");
    fork(100, 22);
    execute(101, 22, "");
    execute(102, 22, "/bin/named");
    EXPECT_EQ(news(), "+22  1000 at 101; -22  0 at 102; +22 /bin/named 1000 at 102; ");
}

TEST_F(ProcessBookTest, AfterALossTheTableIsRight) {
    fork(100, 20);
    execute(101, 20, "/bin/gone");
    fork(110, 21);
    execute(111, 21, "/bin/reused");
    for (const uint32_t pid : {22U, 25U}) {
        fork(110, pid);
        execute(111, pid, "/bin/stays");
    }
    news();
    TableEntry shell;
    shell.pid = 10;
    shell.owner = 1000;
    shell.startTicks = 1;
    shell.knownAt = 9500 * millisecond;
    TableEntry successor;
    successor.pid = 21;
    successor.startTicks = 900;
    successor.startTime = 9000 * millisecond;
    successor.executable = "/bin/successor";
    TableEntry stays;
    stays.pid = 22;
    stays.startTicks = 11;
    stays.owner = 1000;
    stays.knownAt = 9500 * millisecond;
    stays.executable = "/seen/from/elsewhere/stays";
    TableEntry changed = stays;
    changed.pid = 25;
    changed.owner = 0;
    changed.executable = "/bin/changed";
    changed.threads = 20;
    TableEntry missed = successor;
    missed.pid = 23;
    missed.executable = "/bin/missed";
    TableEntry endedSince = missed;
    endedSince.pid = 24;
    facts.ended.insert(24);
    book.compare({shell, successor, stays, changed, missed, endedSince}, 9500 * millisecond);
    const std::string text = news();
    for (const char* part :
         {"-20 /bin/gone -2 at 9500; ", "-21 /bin/reused -2 at 9500; ", "+21 /bin/successor 0 at 9000; ",
          "+23 /bin/missed 0 at 9000; ", "-25 /bin/stays 0 at 9500; +25 /bin/changed 0 at 9500; "})
        EXPECT_NE(text.find(part), std::string::npos) << part << " in " << text;
    EXPECT_EQ(std::count(text.begin(), text.end(), ';'), 6) << text;
    book.compare({shell, successor, stays, changed, missed}, 9600 * millisecond);
    exitThread(9600, 25, 26, 0);
    EXPECT_EQ(news(), "");
    fork(9700, 20);
    fork(9800, 20);
    EXPECT_EQ(news(), "+20 /bin/sh 1000 at 9700; -20 /bin/sh -2 at 9800; ") << "the end between the two was lost";
}

} // namespace Velmor
