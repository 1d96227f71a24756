// What the framework does around the workers: command line, leftovers, commands, start-up and reconfiguration.

#include "collector/CollectorFixture.h"

#include "programs/collectors/agent/Win32/IpcCommands.h"
#include "rules/PrimeTime.h"
#include "shared/library/common/ipc/MailSlot.h"
#include "support/Eventually.h"
#include "support/RuntimeFixture.h"

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

/// A machine on which an agent can start.
class AgentTest : public RuntimeFixture {
protected:
    AgentTest() {
        os.registry.set("ConfigurationDir", directory.path());
        os.registry.set("StartupLogDir", directory.path());
        os.registry.setNumber("StartupDebugLevel", 0);
        write("");
        programState().quitFlag = 0;
        programState().mainThreadId = 0;
    }
    void write(const std::string& more, const std::string& name = "runtally.conf") const {
        directory.write(name, "Velmor () = \"\" { directories () = \"\" { temp (DirName) = \"" + directory.path() +
                                  "\" { } conf (DirName) = \"" + directory.path() + "\" { } } }\n" + more);
    }

    ScriptedPlatform os;
};

class IpcCommandsTest : public RuntimeFixture {};
} // namespace

TEST(LeftoversTest, FilesWithDataGoToTheCoreServiceAndOthersGo) {
    const ScriptedPlatform os;
    const TempDirectory directory;
    programState().dataDirectory = directory.path();
    for (const auto& [name, text] : {std::pair{"ProcessLog-1-2-3.make", "x"},
                                     {"ProcessLog-1-2-3.make.lock", "x"},
                                     {"ProcessLog-1-2-3.make.tmp", "record"},
                                     {"ProcessLog-1-2-2.make.tmp", ""},
                                     {"ProcessLog-1-2-5.data", "old"},
                                     {"notes.makeup", "x"},
                                     {"other.tmp", "x"}})
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
    MailSlot own(MailSlotMode::sender, "Core");
    const auto command = [&](const std::string& type, const std::string& text, const std::string& replyTo) {
        programState().quitFlag = 0;
        programState().reconfigureFlag = 0;
        commands.ipcCallback({{type, "ref", text, replyTo, {}}});
        own.send("behind it");
        std::vector<std::string> replies;
        while (replies.empty() || replies.back() != "behind it")
            core.receive(replies);
        std::string answer = replies.size() == 1 ? "" : replies.front();
        std::replace(answer.begin(), answer.end(), '\x1b', '|');
        return answer + (programState().quitFlag ? "quit" : "") + (programState().reconfigureFlag ? "reconfigure" : "");
    };
    collector.os.processes.start(7, "/apps/p7");
    collector.report(7, ProcessState::started, collector.os.clock.now());
    EXPECT_EQ(command("COMMAND", "SEND_PROCESS_INFO", "Core"), "Velmor|REPLY|ref|77,4711|Velmor_Runtally|");
    EXPECT_EQ(command("COMMAND", "RUNTALLYDUMP", "Core"), "Velmor|REPLY|ref||Velmor_Runtally|");
    EXPECT_NE(collector.fileNames().find(".data"), std::string::npos);
    EXPECT_EQ(command("COMMAND", "DIE", "Core"), "quit");
    EXPECT_EQ(command("COMMAND", "RECONFIG", "Core"), "reconfigure");
    EXPECT_EQ(command("COMMAND", "DIE ", "Core"), "");
    EXPECT_EQ(command("REPLY", "DIE", "Core"), "");
    const std::string before = collector.fileNames();
    EXPECT_EQ(command("COMMAND", "RUNTALLYDUMP", ""), "");
    EXPECT_TRUE(log.has("(2.21.02) (Message not found.) Parameters: 4.5"));
    EXPECT_NE(collector.fileNames(), before) << "the work is done all the same";
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
    collector.os.processes.start(7, "/apps/p7");
    collector.report(7, ProcessState::started, collector.os.clock.now());
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
    const std::string log = readFile(directory / "RuntallyDebug.log");
    EXPECT_NE(log.find("(2.21.16)"), std::string::npos) << log;
    EXPECT_NE(log.find("runtally.conf"), std::string::npos) << log;
    EXPECT_NE(log.find("line 4"), std::string::npos) << log;
    os.registry.values.erase("ConfigurationDir");
    EXPECT_FALSE(agent.reconfigure());
    EXPECT_EQ(agent.configurations, 1);
    EXPECT_NE(readFile(directory / "RuntallyDebug.log").find("ConfigurationDir is missing"), std::string::npos);
}

} // namespace Velmor
