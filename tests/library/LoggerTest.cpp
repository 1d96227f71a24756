#include "shared/library/logger/Logger.h"
#include "platform/Mailslots.h"
#include "shared/library/common/ipc/MailSlot.h"
#include "shared/library/common/win32/ThreadInstance.h"
#include "shared/library/logger/LogCommons.h"
#include "shared/library/logger/LogFileSettings.h"
#include "shared/library/logger/LoggerAgentFile.h"
#include "shared/library/logger/context/LogMessengerIPC.h"
#include "shared/library/logger/context/LoggerContext.h"
#include "support/Eventually.h"
#include "support/RuntimeFixture.h"
#include "support/ScriptedPlatform.h"

#include <atomic>
#include <functional>
#include <sys/resource.h>

namespace Velmor {

namespace {
std::string formatted(std::string format, const ParamStream& parameters) {
    LogCommons::formatMessage(format, parameters.getText());
    return format;
}

/// The settings of a program that has just begun, but for these.
void beginAnew(uint32_t scheme, int32_t period, uint32_t limit) {
    const LogFileSettings fresh;
    LogFileSettings& settings = logFileSettings();
    settings.programName = "Test";
    settings.rotationScheme = scheme;
    settings.rotationPeriod = period;
    settings.sizeLimit = limit;
    settings.rotateAtStart = fresh.rotateAtStart.load();
    settings.lastPeriod = fresh.lastPeriod.load();
    settings.lastSizeLimit = fresh.lastSizeLimit.load();
}

class LogFileTest : public RuntimeFixture {
protected:
    LogFileTest() {
        std::filesystem::create_directory(directory / "log");
        beginAnew(0, 0, 10);
        os.clock.set(1211180123); // 2008-05-19T06:55:23Z
        LoggerUnit::setDebugLevel(5);
        LoggerUnit::setSeverityLevel(0);
        LoggerUnit::setShowThreadId(false);
    }
    ~LogFileTest() override { LoggerUnit::setDebugLevel(0); }
    std::string logs() { return TempDirectory::namesOf(directory / "log"); }

    ScriptedPlatform os;
    std::string path = directory / "log/x.log";
};

/// A core service at which the first message stands still for good.
class StandingCore : public Mailslots {
public:
    std::unique_ptr<MailslotReader> create(std::string_view, MailslotAccess, uint32_t&) override { return nullptr; }
    bool mayCommand(std::string&) override { return true; }
    std::unique_ptr<MailslotWriter> open(std::string_view, uint32_t, uint32_t&) override {
        struct Way : MailslotWriter {
            bool write(std::string_view, uint32_t&) override { return true; }
        };
        if (++messages == 1)
            nativePlatform().clock->sleep(3600 * 1000);
        return std::make_unique<Way>();
    }
    std::string errorText(uint32_t) override { return {}; }

    std::atomic<int> messages{0};
};

LogMessage numbered() {
    LogMessage message;
    message.isLog = true;
    message.program = 2;
    message.module = 8;
    message.time = DateTime(1000);
    message.severity = 3;
    message.messageId = 13;
    message.text = (ParamStream() << "x" << 5).getText();
    return message;
}
} // namespace

TEST(LogCommonsTest, MessagesTakeTheirParameters) {
    EXPECT_EQ(formatted("%s has %i of 100%%", ParamStream() << "a" << 7), "a has 7 of 100%");
    EXPECT_EQ(formatted("%i %s", ParamStream() << "a" << 7), "\\a\\ \\7\\");
    EXPECT_EQ(formatted("%s and %s.", ParamStream() << "one"), "one and <?}.");
    EXPECT_EQ(formatted("end %", ParamStream() << "x"), "end <?}");
    EXPECT_EQ(formatted("[%s]", ParamStream() << ""), "[]");
}

TEST(LogCommonsTest, LinesTellWhatTheyAreOf) {
    LogMessage message = numbered();
    const std::string time = message.time.toString(false, false);
    EXPECT_EQ(LogCommons::formatLine(message, false),
              "CRITICAL " + time + " (2.08.13) (Message not found.) Parameters: x  5  ");
    message.severity = Severity::error;
    message.messageId = 7;
    message.text.clear();
    EXPECT_EQ(LogCommons::formatLine(message, false), "ERROR    " + time + " (2.08.07) (Message not found.)");
    message.text = "wording";
    EXPECT_EQ(LogCommons::formatLine(message, true), "ERROR    " + time + " (2.08.07) wording");
    message.isLog = false;
    message.level = 3;
    EXPECT_EQ(LogCommons::formatLine(message, true), "debug-3  " + time + " (2.08)    wording");
    for (const auto& [name, severity] : {std::pair{"NOTICE", 0}, {"FATAL", 4}, {"NONE", 5}, {"notice", 6}})
        EXPECT_EQ(LogCommons::severityFromName(name), severity) << name;
}

TEST_F(LogFileTest, ACatalogueWordsTheMessagesOfTheModulesThatAreAskedFor) {
    directory.write("LogMessages/runtally.mess", "// comment\n\n13 : %s and %i \n13: later\n14\n");
    for (const char* name : {"strange", "agent"})
        directory.write("LogMessages/" + std::string(name) + ".mess", "13: x\n");
    LogCommons catalogue;
    const LoadResult result = catalogue.loadMessages(directory.path(), "runtally,strange");
    EXPECT_TRUE(result.ok);
    EXPECT_EQ(result.loaded, std::vector<std::string>{"runtally"});
    EXPECT_EQ(result.counts, std::vector<int32_t>{3});
    EXPECT_EQ(result.rejected.size(), 2U);
    std::string text;
    EXPECT_TRUE(catalogue.findMessage(LogModule::runtally, 14, text) && text.empty());
    EXPECT_FALSE(catalogue.findMessage(LogModule::agent, 13, text));
    LogMessenger messenger;
    messenger.setFile(path);
    LogCommons::encodeMessage(numbered(), text);
    LogMessenger::setCatalogue(&catalogue);
    EXPECT_TRUE(messenger.post(text));
    LogMessenger::setCatalogue(nullptr);
    EXPECT_NE(readFile(path).find("(2.08.13) x and 5\r\n"), std::string::npos) << readFile(path);
}

TEST_F(LogFileTest, RotationGoesByItsScheme) {
    // The limit in megabytes, the seconds before the line that may rotate, and the counter of rotations: when the first
    // line has come to a file that was there, and afterwards.
    using Case = std::tuple<uint32_t, uint32_t, bool, int32_t, const char*, const char*>;
    using A = LoggerAgentFile;
    int number = 0;
    for (const auto& [scheme, limit, isBig, pause, atFirst, afterwards] :
         {Case{0, 0, true, 100, "", ""}, Case{A::schemeSize, 1, true, 0, "", "1"},
          Case{A::schemeTime, 10, false, 100, "", "1"}, Case{A::schemeTime, 10, false, 1, "", ""},
          Case{A::schemeTime | A::schemeSize, 1, false, 100, "", ""},
          Case{A::schemeTime | A::schemeSize, 1, true, 1, "", "1"}, Case{A::schemeInit, 1, true, 100, "1", "1"},
          Case{A::schemeInit | A::schemeSize, 1, true, 1, "", ""},
          Case{A::schemeInit | A::schemeSize, 0, false, 1, "1", "1"},
          Case{A::schemeInit | A::schemeTime, 1, true, 1, "", ""}}) {
        os.registry.values.clear();
        beginAnew(scheme, 60, limit);
        const std::string name = "log/r" + std::to_string(++number) + "/x.log";
        std::filesystem::create_directories(std::filesystem::path(directory / name).parent_path());
        directory.write(name, "of before\n");
        LoggerAgentFile agent;
        agent.setFile(directory / name);
        agent.write("first");
        EXPECT_EQ(os.registry.values["TestLogCounter"].second, atFirst) << "case " << number;
        EXPECT_EQ(os.registry.values.contains("TestLogOpened"), *atFirst != '\0') << "when a new file was begun";
        if (isBig)
            agent.write(std::string(1 << 20, 'x'));
        os.clock.advance(pause);
        agent.write("second");
        EXPECT_EQ(os.registry.values["TestLogCounter"].second, afterwards) << "case " << number;
        const std::string text = readFile(directory / name);
        EXPECT_NE(text.find("second"), std::string::npos);
        EXPECT_EQ(text.find("Log continued from") != std::string::npos, *afterwards != '\0') << text;
    }
}

TEST_F(LogFileTest, ALockThatOthersHoldCostsTheLineButNotAShortageOfDescriptors) {
    LoggerAgentFile agent;
    agent.setFile(path);
    agent.write("first");
    Monopoly other("x.log");
    ASSERT_TRUE(other.enforce());
    EXPECT_FALSE(agent.write("lost"));
    other.relax();
    rlimit limit{};
    ASSERT_EQ(getrlimit(RLIMIT_NOFILE, &limit), 0);
    const rlimit none{3, limit.rlim_max};
    setrlimit(RLIMIT_NOFILE, &none);
    EXPECT_TRUE(agent.write("kept"));
    setrlimit(RLIMIT_NOFILE, &limit);
    EXPECT_TRUE(readFile(path).ends_with("kept\r\n"));
    EXPECT_EQ(readFile(path).find("lost"), std::string::npos);
}

TEST_F(LogFileTest, AFileThatSomebodyTookAwayIsBegunAnew) {
    LoggerAgentFile agent;
    agent.setFile(path);
    agent.write("old");
    const auto rename = [this] { std::filesystem::rename(path, path + ".1"); };
    const std::function<void()> deeds[] = {rename, [this] { std::filesystem::remove(path); },
                                           [&] { rename(), directory.write("log/x.log", "theirs\n"); }};
    for (const auto& deed : deeds) {
        deed();
        os.clock.advance(1);
        agent.write("new");
        EXPECT_NE(readFile(path).find("new"), std::string::npos);
        EXPECT_EQ(readFile(path).find("old"), std::string::npos);
    }
}

TEST_F(LogFileTest, AnUnwritableFileIsToldOnceOnStandardError) {
    const auto log = [this] {
        SmartPointer<LogMessenger> messenger(new LogMessenger());
        messenger->setFile(directory / "absent/x.log");
        Logger logger;
        logger.set(SmartPointer<LoggerUnit>(
            new LoggerUnit(SmartPointer<LoggerCentre>(new LoggerCentre(2, messenger)), LogModule::runtally)));
        logger.notice(8);
        std::_Exit(0);
    };
    EXPECT_EXIT(log(), testing::ExitedWithCode(0), "^The debug log can't be written \\(.*absent/x.log\\)[^\n]*\n$");
}

TEST_F(LogFileTest, ConfigurationMovesTheFileAndSetsLevels) {
    os.registry.set("StartupLogDir", directory / "log//");
    os.registry.setNumber("StartupDebugLevel", 2);
    os.registry.set("LogFileRotationScheme", "time,none,size,rubbish");
    LoggerContext context;
    context.debugLogName = "x.log";
    context.programId = LogProgram::runtally;
    context.moduleId = LogModule::runtally;
    ASSERT_TRUE(startLogging(context));
    EXPECT_EQ(LoggerUnit::getDebugLevel(), 2);
    EXPECT_EQ(LoggerAgentFile::getScheme(), LoggerAgentFile::schemeSize);
    context.conf = SmartPointer<ConfReader>(new ConfReader(context.centre));
    const std::string moved = directory / "moved/";
    context.conf->buildDOMTree(directory.write(
        "x.conf",
        "Velmor () = '' { directories () = '' { log (DirName) = '" + moved +
            "' {} } } log () = '' { rotation () = '' { scheme (String) = ' Time ' {} time (TimeSpan) = P1H {} }"
            " global () = '' { debug-level (Integer) = 9 {} severity (String) = rubbish {} } }"));
    ASSERT_TRUE(startLogging(context)) << "a second time it configures";
    EXPECT_EQ(LoggerUnit::getDebugLevel(), 2) << "a level above 5 leaves it alone";
    EXPECT_EQ(LoggerAgentFile::getScheme(), LoggerAgentFile::schemeTime);
    EXPECT_EQ(logFileSettings().sizeLimit, 0U);
    EXPECT_NE(readFile(moved + "x.log").find("Log continued from"), std::string::npos);
}

TEST_F(LogFileTest, NumberedMessagesAreForwardedAsTheyAreOrStayInTheLog) {
    LogMessengerIPC messenger;
    messenger.setFile(path);
    LogMessage message = numbered();
    std::string text;
    LogCommons::encodeMessage(message, text);
    EXPECT_FALSE(messenger.post("rubbish"));
    EXPECT_FALSE(messenger.post(text)) << "without a core service";
    EXPECT_NE(readFile(path).find("CRITICAL"), std::string::npos);
    MailSlot core(MailSlotMode::receiver, "Velmor_Core");
    EXPECT_TRUE(messenger.post(text));
    message.isLog = false;
    std::string debugText;
    LogCommons::encodeMessage(message, debugText);
    EXPECT_TRUE(messenger.post(debugText));
    std::vector<std::string> received;
    const auto haveCome = [&](size_t count) {
        return eventually([&] {
            messenger.sendWaiting();
            core.receive(received);
            return received.size() == count;
        });
    };
    EXPECT_TRUE(haveCome(1));
    EXPECT_EQ(received, std::vector<std::string>{"Velmor\x1bLOGMSG\x1b\x1b" + text + "\x1b"});
    Monopoly turn("Velmor_MailSlot", NamedLockAccess::family);
    ASSERT_TRUE(turn.enforce());
    const uint32_t begin = os.clock.ticks();
    EXPECT_FALSE(messenger.post(text));
    EXPECT_EQ(os.clock.ticks(), begin) << "whoever logs waits for nobody";
    turn.relax();
    EXPECT_EQ(messenger.sendWaiting(), 0U);
    EXPECT_TRUE(haveCome(2)) << "what had to wait is sent on";
    ASSERT_TRUE(turn.enforce());
    for (int i = 0; i < 1003; ++i)
        EXPECT_FALSE(messenger.post(text));
    EXPECT_EQ(messenger.sendWaiting(), 3U) << "the oldest make room";
    turn.relax();
    EXPECT_TRUE(haveCome(1002));
}

TEST_F(LogFileTest, AMessageBehindOneThatStandsStillGivesUpSoonAndALostThreadGivesItsTurnBack) {
    StandingCore core;
    const Platform* before = &platform();
    Platform ports = *before;
    ports.mailslots = &core;
    usePlatform(&ports);
    LogMessengerIPC messenger;
    messenger.setFile(path);
    const auto post = [](void* argument) -> uint32_t {
        std::string text;
        LogCommons::encodeMessage(numbered(), text);
        return static_cast<LogMessengerIPC*>(argument)->post(text) ? 1 : 0;
    };
    ThreadInstance sender(post, &messenger);
    sender.execute();
    ASSERT_TRUE(eventually([&] { return core.messages == 1; }));
    const uint32_t begin = os.clock.ticks();
    for (int i = 0; i < 10; ++i)
        EXPECT_EQ(post(&messenger), 0U);
    EXPECT_LT(os.clock.ticks() - begin, 10000U);
    EXPECT_EQ(core.messages, 1) << "the turn of a thread that lives is its own";
    sender.stop();
    os.clock.advance(30);
    EXPECT_EQ(post(&messenger), 0U);
    EXPECT_EQ(post(&messenger), 1U);
    usePlatform(before);
}

} // namespace Velmor
