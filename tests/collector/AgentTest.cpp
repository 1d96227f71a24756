// What the framework does around the workers: command line, leftovers, commands, start-up and reconfiguration.

#include "collector/CollectorFixture.h"

#include "programs/collectors/agent/Win32/IpcCommands.h"
#include "programs/collectors/agent/Win32/Runtally/workers/ModulePoller.h"
#include "programs/collectors/agent/Win32/Runtally/workers/PerformanceMonitor.h"
#include "programs/collectors/agent/Win32/Runtally/workers/ProcessPoller.h"
#include "rules/PrimeTime.h"
#include "shared/library/common/ipc/MailSlot.h"
#include "support/Eventually.h"

#include <algorithm>
#include <sys/stat.h>

namespace Velmor {

namespace {
/// An agent that tells what its collector part saw.
class PlainAgent : public Agent {
public:
    explicit PlainAgent(const std::string& commandLine) : Agent(commandLine) { setName("Runtally"); }
    void run() override {}
    bool configureCollector() override {
        const std::string name = "new" + std::to_string(++configurations);
        registerLogFile(name, name, TimeSpan(), false, nullptr);
        reached = logFileRegistry().contains("kept") && !logFileRegistry().contains(name);
        return succeeds;
    }
    int configurations = 0;
    bool succeeds = true;
    bool reached = false; // the former data files, and no new one
};

class AgentTest : public StartFixture {};
class IpcCommandsTest : public RuntimeFixture {};
} // namespace

TEST(CommandLineTest, OptionsHaveValuesInEachOfTheirForms) {
    using Case = std::pair<const char*, const char*>;
    for (const auto& [text, arguments] :
         {Case{"runtally -c file", "=runtally;c=file;"}, Case{" -cfile\t--long 'a b' ", "c=file;long=a b;"},
          Case{"-x -y", "x=;y=;"}, Case{"a\"b c", "=a;=b c;"}, Case{"--c \"\" d", "c=;=d;"}, Case{"-", "=;"},
          Case{"", ""}}) {
        std::string taken;
        for (const auto& [option, value] : parseCommandLine(text))
            taken += option + "=" + value + ";";
        EXPECT_EQ(taken, arguments) << text;
    }
}

TEST(WorkersTest, EachAnswersItsSupervisorDoesItsWorkAndStopsWhenToldTo) {
    for (const ThreadRoutine worker : {processPoller, modulePoller, perfMonitor, dataDelivery}) {
        Collector collector;
        runtallyState().settings.modulePollInterval = runtallyState().settings.performancePollInterval = TimeSpan(60);
        programState().quitFlag = 0;
        ThreadRecord record("worker", ThreadRecord::takesPart);
        record.report = Report::question;
        int answers = 0;
        const uint32_t begin = collector.os.clock.ticks();
        collector.os.processes.start(7, "/apps/p7");
        collector.os.clock.onSleep = [&] {
            if (collector.os.clock.ticks() - begin > 5000)
                collector.os.processes.start(8, "/apps/p8");
            if (record.report == Report::alive)
                record.report =
                    ++answers < 2 || collector.os.clock.ticks() - begin < 10000 ? Report::question : Report::stop;
        };
        EXPECT_EQ(worker(&record), 0U);
        EXPECT_LT(collector.os.clock.ticks() - begin, 11000U);
        EXPECT_EQ(collector.tracked().size(), worker == processPoller ? 2U : 0U);
        EXPECT_EQ(collector.os.performanceData.samples, 0U) << "nothing is monitored";
    }
}

TEST(LeftoversTest, FilesWithDataGoToTheCoreServiceAndOthersGo) {
    const ScriptedPlatform os;
    const TempDirectory directory;
    programState().dataDirectory = directory.path();
    using Case = std::pair<const char*, const char*>;
    for (const auto& [name, text] :
         {Case{"ProcessLog-1-2-3.make", "x"}, Case{"ProcessLog-1-2-3.make.lock", "x"},
          Case{"ProcessLog-1-2-3.make.tmp", "record"}, Case{"ProcessLog-1-2-2.make.tmp", ""},
          Case{"ProcessLog-1-2-5.data", "old"}, Case{"notes.makeup", "x"}, Case{"other.tmp", "x"}})
        directory.write(name, text);
    std::filesystem::create_symlink("other.tmp", directory / "ProcessLog-1-2-6.make.tmp");
    std::filesystem::create_directory(directory / "ProcessLog-1-2-7.make.tmp");
    mkfifo((directory / "ProcessLog-1-2-8.make.tmp").c_str(), 0600);
    directory.write("ProcessLog-1-2-9.make.tmp", "");
    std::filesystem::resize_file(directory / "ProcessLog-1-2-9.make.tmp", uint64_t{1} << 32U);
    directory.write("ProcessLog-1-2-4-1000000000-77.data", "taken"); // so that this one can't get its name
    directory.write("ProcessLog-1-2-4.make.tmp", "record");
    const CapturedLog log(3);
    Agent::handleLeftovers();
    EXPECT_EQ(directory.names(), "ProcessLog-1-2-3-1000000000-77.data ProcessLog-1-2-4-1000000000-77.data "
                                 "ProcessLog-1-2-4.make.tmp ProcessLog-1-2-5.data ProcessLog-1-2-6.make.tmp "
                                 "ProcessLog-1-2-7.make.tmp ProcessLog-1-2-8.make.tmp "
                                 "ProcessLog-1-2-9-1000000000-77.data other.tmp");
    EXPECT_EQ(log.count("(2.21.31)"), 3U) << "a link, a directory and a pipe are told of";
    EXPECT_EQ(log.count("(2.21.10)"), 1U);
    EXPECT_TRUE(log.has(" 2 leftover file(s) were accepted."));
    EXPECT_EQ(readFile(directory / "ProcessLog-1-2-3-1000000000-77.data"), "record");
}

TEST_F(IpcCommandsTest, CommandsAreCarriedOutAndAnswered) {
    Collector collector;
    const CapturedLog log(1);
    programState().mainThreadId = 4711;
    IpcCommands commands;
    MailSlot core(MailSlotMode::receiver, "Core");
    collector.start(7, "/apps/p7");
    using Case = std::tuple<const char*, const char*, const char*, int32_t, int32_t, size_t, const char*>;
    for (const auto& [type, text, replyTo, quits, reconfigures, deliveries, answer] :
         {Case{"COMMAND", "SEND_PROCESS_INFO", "Core", 0, 0, 0, "Velmor|REPLY|ref|77,4711|Velmor_Runtally|"},
          Case{"COMMAND", "RUNTALLYDUMP", "Core", 0, 0, 1, "Velmor|REPLY|ref||Velmor_Runtally|"},
          Case{"COMMAND", "DIE", "Core", 1, 0, 1, ""}, Case{"COMMAND", "RECONFIG", "Core", 0, 1, 1, ""},
          Case{"COMMAND", "DIE ", "Core", 0, 0, 1, ""}, Case{"REPLY", "DIE", "Core", 0, 0, 1, ""},
          Case{"COMMAND", "RUNTALLYDUMP", "", 0, 0, 2, ""}}) {
        programState().quitFlag = programState().reconfigureFlag = 0;
        collector.os.clock.advance(1);
        commands.ipcCallback({{type, "ref", text, replyTo, {}}});
        EXPECT_EQ(programState().quitFlag, quits) << text;
        EXPECT_EQ(programState().reconfigureFlag, reconfigures) << text;
        EXPECT_EQ(collector.records().size(), deliveries) << text;
        std::vector<std::string> replies;
        EXPECT_TRUE(eventually([&] { return core.receive(replies), *answer == '\0' || !replies.empty(); })) << text;
        replies.resize(1);
        std::replace(replies[0].begin(), replies[0].end(), '\x1b', '|');
        EXPECT_EQ(replies[0], answer) << text;
    }
    EXPECT_TRUE(log.has("(2.21.02) (Message not found.) Parameters: 4.5")) << "nobody to reply to";
    programState().quitFlag = programState().reconfigureFlag = 0;
}

TEST_F(IpcCommandsTest, EqualCommandsAreOneAndThoseOfStrangersNone) {
    Collector collector;
    const CapturedLog log(0);
    IpcCommands commands;
    MailSlot core(MailSlotMode::receiver, "Core");
    const auto request = [](std::string_view word, std::string reference, bool mayCommand) {
        return IPCMessage{"COMMAND", std::move(reference), std::string(word), "Core", {"S-bob", 12, mayCommand}};
    };
    collector.start(7, "/apps/p7");
    std::vector<IPCMessage> messages;
    for (int i = 0; i < 50; ++i) {
        messages.push_back(request(CommandWord::die, "", false));
        messages.push_back(request(CommandWord::dump, std::to_string(i), true));
        messages.push_back(request(CommandWord::sendProcessInfo, "info", true));
    }
    commands.ipcCallback(messages);
    commands.ipcCallback({request(CommandWord::dump, "", false)});
    EXPECT_EQ(programState().quitFlag, 0);
    EXPECT_EQ(collector.records().size(), 1U) << "one delivery";
    std::vector<std::string> replies;
    EXPECT_TRUE(eventually([&] {
        core.receive(replies);
        return replies.size() == 100;
    })) << "for each who asked";
    EXPECT_NE(replies.front().find("info"), std::string::npos) << "what only asks comes first";
    EXPECT_EQ(log.count("(2.21.32)"), 1U) << log.text();
    EXPECT_TRUE(log.has("RUNTALLYDUMP  bob  12  50")) << log.text();
    EXPECT_EQ(log.count("(2.21.33)"), 1U) << "refusals are told once a minute";
}

TEST_F(AgentTest, AReconfigurationThatFailsLeavesTheWorkersDownAndTheNextOneMendsIt) {
    PlainAgent agent("dummy");
    agent.setThreadLostHook(Runtally::freeLocksOf); // the scripted clock leaves workers no time to end by themselves
    ASSERT_TRUE(agent.configure());
    registerLogFile(directory / "Kept", "kept", TimeSpan(3600), false, nullptr);
    ASSERT_TRUE(agent.startThreads());
    directory.write("primetime", "*:*:*:*:*\n");
    agent.succeeds = false;
    EXPECT_FALSE(agent.reconfigure());
    EXPECT_TRUE(agent.reached && logFileRegistry().contains("kept")) << "for the last slices of what runs";
    EXPECT_EQ(getClassText(DateTime()), "prime");
    EXPECT_TRUE(agent.checkThreads()) << "there is none that could have died";
    EXPECT_TRUE(agent.checkThreads());
    agent.succeeds = true;
    std::filesystem::remove(directory / "primetime");
    EXPECT_TRUE(agent.reconfigure());
    EXPECT_EQ(getClassText(DateTime()), "undef") << "the file has gone";
    EXPECT_TRUE(agent.reached);
    EXPECT_TRUE(logFileRegistry().contains("new3") && !logFileRegistry().contains("kept"));
    EXPECT_TRUE(agent.stopAndVerify());
}

TEST_F(AgentTest, AReconfigurationWithAMistakeChangesNothingAndNamesTheLine) {
    PlainAgent agent("dummy");
    ASSERT_TRUE(agent.configure());
    write("runtally () = \"\" {\n    interval (TimeSpan) = P1H\n}\n");
    EXPECT_FALSE(agent.reconfigure());
    EXPECT_EQ(agent.configurations, 1);
    EXPECT_EQ(agent.conf().getLastError(), "");
    for (const char* part : {"(2.21.16)", "runtally.conf", "line 4"})
        EXPECT_NE(log().find(part), std::string::npos) << log();
    os.registry.values.erase("ConfigurationDir");
    EXPECT_FALSE(agent.reconfigure());
    EXPECT_EQ(agent.configurations, 1);
    EXPECT_NE(log().find("ConfigurationDir is missing"), std::string::npos);
}

} // namespace Velmor
