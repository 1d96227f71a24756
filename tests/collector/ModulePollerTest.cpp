#include "collector/SideRecords.h"

namespace Velmor {

namespace {
constexpr int32_t begin = 1000000000; // of the scripted clock
constexpr uint32_t pid = 1234;

class ModulePollerTest : public SideRecordsTest {
protected:
    void poll() { modPoll(report); }
    std::vector<std::string>& modules() { return os().processes.at(pid).modules; }
    /// Pairs of module and seconds.
    std::vector<std::string> records() const {
        std::vector<std::string> found;
        const std::vector<std::string> text = lines("ModuleLog");
        for (size_t i = 0; i + 1 < text.size(); i += 2) {
            std::string module = text[i];
            for (int field = 0; field < 5; ++field)
                module.erase(0, module.find(":0:") + 3);
            found.push_back(module.substr(0, module.find(":0:")) + " " + text[i + 1].substr(2));
        }
        return found;
    }
    using Records = std::vector<std::string>;

    std::atomic<int32_t> report{Report::nothing};
};
} // namespace

TEST_F(ModulePollerTest, ARecordHasTheDocumentedForm) {
    useRules("include datatype=module app=notepad module=msvcrt.dll user=bob exe=*notepad.exe duration=120\n");
    ScriptedProcess& process = os().processes.start(pid, "c:\\windows\\system32\\notepad.exe");
    process.modules = {"c:\\windows\\MSVCRT.dll"};
    collector.report(pid, ProcessState::started, begin);
    tracked(pid).setApplication("notepad");
    os().clock.advance(120);
    modules().clear();
    poll();
    EXPECT_EQ(lines("ModuleLog"),
              (Records{R"(1:1000000000:53:0:WORKGROUP:0:pc17:0:i386:0:Windows XP:0:msvcrt.dll:0:notepad.exe)"
                       R"(:0:notepad:0:c_\windows\system32\:0:undef:0:\\PC17\bob)",
                       "1:120"}));
}

TEST_F(ModulePollerTest, AModuleHasOneRecordWhenItIsGoneOrAtTheEndOfItsProcess) {
    os().processes.start(pid, "c:\\apps\\cad.exe").modules = {"c:\\a.dll", "c:\\b.dll"};
    collector.report(pid, ProcessState::started, begin);
    os().clock.advance(30);
    modules() = {"c:\\b.dll", "c:\\c:odd.dll"};
    poll();
    EXPECT_EQ(records(), (Records{"a.dll 30"}));
    os().clock.advance(40);
    modules() = {"c:\\b.dll"};
    Runtally::dumpAll();
    EXPECT_EQ(records(), (Records{"a.dll 30", "c:odd.dll 40"})) << "a slice looks as well";
    os().clock.advance(5);
    end(pid, 0);
    EXPECT_EQ(records(), (Records{"a.dll 30", "c:odd.dll 40", "b.dll 75"})) << "and the image itself has none";
}

TEST_F(ModulePollerTest, WhatFilterOrRulesExcludeIsNotAskedAboutAgain) {
    const TempDirectory files;
    ASSERT_TRUE(runtallyState().moduleFilter.readFile(files.write("filter", "- host=*\n*.tmp\n+ host=*\n*\n")));
    useRules("exclude module=secret*\ninclude datatype=*\n");
    os().processes.start(pid, "c:\\apps\\cad.exe").modules = {"c:\\a.tmp", "c:\\secret.dll", "c:\\open.dll"};
    collector.report(pid, ProcessState::started, begin);
    const CapturedLog log(5);
    os().clock.advance(30);
    modules().clear();
    poll();
    EXPECT_TRUE(log.has("   \"a.tmp\" does not match any filter. Not logging."));
    EXPECT_TRUE(log.has("logModule:    Module is excluded by include/exclude mappings, element in line 1"));
    EXPECT_EQ(records(), Records{"open.dll 30"});
    end(pid, 0);
    EXPECT_EQ(records(), Records{"open.dll 30"});
}

TEST_F(ModulePollerTest, AStopDuringARoundDropsTheEntrysListAndUpdatesTheOthers) {
    for (const uint32_t id : {pid, pid + 1}) {
        os().processes.start(id, "c:\\apps\\cad.exe").modules = {"c:\\a.dll"};
        collector.report(id, ProcessState::started, begin);
    }
    os().clock.advance(30);
    modules().clear();
    os().processes.at(pid + 1).modules = {"c:\\b.dll"};
    report = Report::stop;
    poll();
    EXPECT_EQ(records(), Records{});
    os().clock.advance(10);
    end(pid + 1, 0);
    EXPECT_EQ(records(), Records{"b.dll 10"}) << "the second was looked at";
}

} // namespace Velmor
