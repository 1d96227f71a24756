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

} // namespace Velmor
