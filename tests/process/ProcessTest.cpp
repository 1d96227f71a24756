#include "process/Process.h"
#include "process/ProcPoll.h"
#include "process/ProcessShared.h"
#include "support/ScriptedPlatform.h"

#include <gtest/gtest.h>

namespace Velmor {

namespace {
std::unique_ptr<Process> look(uint32_t pid) {
    return std::make_unique<Process>(pid, 0, Process::Mode::running, true);
}

class ProcessTest : public ::testing::Test {
protected:
    ProcessTest() {
        Process::setLogger({});
        processShared().systemNumber = 0;
    }
    ~ProcessTest() override { processShared().systemNumber = 0; }

    ScriptedPlatform os;
};

std::string changes(const std::vector<ProcessPointer>& list) {
    std::string text;
    for (const ProcessPointer& process : list)
        text += (process->getState() == ProcessState::started ? "+" : "-") + std::to_string(process->pid());
    return text;
}
} // namespace

TEST_F(ProcessTest, WhatCantBeLearntIsAPlaceholder) {
    using Case = std::tuple<const char*, void (*)(ScriptedProcess&), const char*, const char*, ProcessState>;
    for (const auto& [what, prepare, executable, account, state] : {
             Case{"no token", [](ScriptedProcess& p) { p.hasToken = false; }, "c:\\apps\\cad.exe", "\\\\pc17\\SYSTEM",
                  ProcessState::started},
             Case{"refused", [](ScriptedProcess& p) { p.openError = NativeError::accessDenied; }, "(ACCESS DENIED)",
                  "<<unknown>>", ProcessState::unresolved},
             Case{"gone", [](ScriptedProcess& p) { p.openError = NativeError::invalidParameter; }, "<<lost>>",
                  "<<unknown>>", ProcessState::unresolved},
             Case{"another failure", [](ScriptedProcess& p) { p.openError = NativeError::tooManyOpenFiles; },
                  "<<unknown>>", "<<unknown>>", ProcessState::unresolved},
             Case{"modules late", [](ScriptedProcess& p) { p.modulesFail = 3; }, "c:\\apps\\cad.exe", "\\\\PC17\\bob",
                  ProcessState::started},
             Case{"no modules, but an image",
                  [](ScriptedProcess& p) {
                      p.modulesFail = 9;
                      p.image = "\\Device\\Disk2\\Apps\\CAD.EXE";
                  },
                  "z:\\apps\\cad.exe", "\\\\PC17\\bob", ProcessState::unresolved},
             Case{"no modules and no image", [](ScriptedProcess& p) { p.modulesFail = 9; }, "<<unknown>>",
                  "\\\\PC17\\bob", ProcessState::unresolved},
         }) {
        os.fileSystem.devices = {{"C:", "\\Device\\Disk1"}, {"Z:", "\\Device\\Disk2"}};
        prepare(os.processes.start(7, "C:\\Apps\\CAD.exe"));
        const int32_t begin = os.clock.now();
        const auto process = look(7);
        EXPECT_EQ(process->getExecutable(), executable) << what;
        EXPECT_EQ(process->getAccount(), account) << what;
        EXPECT_EQ(process->getState(), state) << what;
        EXPECT_EQ(process->getStart().getSeconds(), begin) << what;
    }
}

TEST_F(ProcessTest, ExitCodesOutliveTheProcessWhileAHandleIsHeld) {
    os.processes.start(7, "c:\\a.exe");
    const auto process = look(7);
    EXPECT_TRUE(process->isRunning());
    os.processes.end(7, 3);
    EXPECT_EQ(process->getExitCode(), 3U);
    os.processes.start(8, "c:\\a.exe").knowsExitCode = false;
    const auto silent = look(8);
    os.processes.end(8, 3);
    EXPECT_EQ(silent->getExitCode(), 0U);
    EXPECT_FALSE(silent->isOpen()) << "a handle that tells nothing is given up";
    EXPECT_EQ(Process(9, 0, Process::Mode::ended, true).getExitCode(), 0U);
}

TEST_F(ProcessTest, ModulesAreFollowedFromTheirFirstToTheirLastSecond) {
    ScriptedProcess& scripted = os.processes.start(7, "c:\\a.exe");
    for (int i = 0; i < 60; ++i)
        scripted.modules.push_back("c:\\lib\\M" + std::to_string(100 + i) + ".DLL");
    const auto process = look(7);
    std::vector<std::string> names;
    process->getModules(names);
    ASSERT_EQ(names.size(), 61U) << "more than the room of the first look";
    EXPECT_EQ(names.front() + " " + names.back(), "a.exe m159.dll");
    EXPECT_TRUE(process->updateModules().empty());
    scripted.modules.erase(scripted.modules.begin(), scripted.modules.begin() + 2);
    EXPECT_TRUE(process->updateModules().empty()) << "seen in this very second";
    os.clock.advance(5);
    const auto gone = process->updateModules();
    ASSERT_EQ(gone.size(), 2U);
    EXPECT_EQ(gone[0].name + " " + gone[1].name, "m100.dll m101.dll");
    EXPECT_EQ(gone[0].lastSeen - gone[0].firstSeen, 5);
    process->setState(ProcessState::ended);
    EXPECT_EQ(process->updateModules().size(), 58U) << "an ended process gives back all, and the image is none";
    EXPECT_TRUE(process->updateModules().empty());
}

TEST_F(ProcessTest, APollTellsEndsBeforeStartsAndDatesThemBack) {
    ProcPoll poll;
    std::vector<ProcessPointer> list;
    const auto next = [&](int32_t span) {
        EXPECT_TRUE(poll.poll(0));
        poll.getPollData(list, TimeSpan(span));
        return changes(list);
    };
    os.processes.start(0, "idle");
    os.processes.start(9, "c:\\a.exe");
    EXPECT_EQ(next(0), "+9") << "the id 0 is no process";
    os.processes.end(9, 4);
    os.processes.start(3, "c:\\b.exe");
    os.clock.advance(100);
    EXPECT_EQ(next(50), "-9+3");
    EXPECT_EQ(list[0]->getEnd().getSeconds(), os.clock.now() - 50);
    EXPECT_EQ(list[1]->getStart().getSeconds(), os.clock.now() - 50);
    os.processes.start(3, "c:\\c.exe"); // an id in use again between two polls is no change
    os.processes.start(4, "c:\\d.exe");
    EXPECT_EQ(next(0), "+4");
    os.processes.canEnumerate = false;
    EXPECT_FALSE(poll.poll(0));
    os.processes.end(4, 0);
    list.clear();
    poll.takeEnded(list, TimeSpan());
    EXPECT_EQ(changes(list), "-4") << "by its handle alone";
    os.processes.canEnumerate = true;
    poll.clear();
    EXPECT_EQ(next(0), "+3");
}

} // namespace Velmor
