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
#include <thread>

namespace Velmor {

namespace {
std::string formatted(std::string format, const ParamStream& parameters) {
    LogCommons::formatMessage(format, parameters.getText());
    return format;
}

class LogFileTest : public RuntimeFixture {
protected:
    LogFileTest() {
        std::filesystem::create_directory(directory / "log");
        LogFileSettings& settings = logFileSettings();
        settings.programName = "Test";
        settings.rotationScheme = 0;
        settings.rotationPeriod = 0;
        settings.sizeLimit = 10;
        settings.rotateAtStart = true;
        settings.lastPeriod = 0;
        settings.lastSizeLimit = 0;
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

class LogFileOfManyTest : public RuntimeFixture {};

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

TEST_F(LogFileTest, RotationGoesByItsScheme) {
    struct Case {
        uint32_t scheme;
        int32_t period;
        uint32_t limit; // megabytes
        bool bigFile;
        int32_t pause; // seconds before the line that may rotate
        bool rotates;
    };
    using A = LoggerAgentFile;
    int number = 0;
    for (const auto& [scheme, period, limit, bigFile, pause, rotates] : {
             Case{A::schemeSize, 0, 1, true, 0, true},
             Case{A::schemeTime, 60, 10, false, 100, true},
             Case{A::schemeTime, 60, 10, false, 1, false},
             Case{A::schemeTime | A::schemeSize, 60, 1, false, 100, false},
             Case{A::schemeTime | A::schemeSize, 60, 1, true, 1, true},
         }) {
        ++number;
        os.registry.values.clear();
        LogFileSettings& settings = logFileSettings();
        settings.rotationScheme = scheme;
        settings.rotationPeriod = period;
        settings.sizeLimit = limit;
        const std::string file = directory / ("log/r" + std::to_string(number) + "/x.log");
        std::filesystem::create_directories(std::filesystem::path(file).parent_path());
        LoggerAgentFile agent;
        agent.setFile(file);
        agent.write("first");
        if (bigFile)
            agent.write(std::string(1 << 20, 'x'));
        os.clock.advance(pause);
        const auto before = os.registry.values["TestLogCounter"].second;
        agent.write("second");
        EXPECT_EQ(os.registry.values["TestLogCounter"].second != before, rotates) << "case " << number;
        EXPECT_NE(readFile(file).find("second"), std::string::npos);
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

TEST_F(LogFileOfManyTest, WritersOnManyThreadsLoseNoLine) {
    const std::string path = directory / "log.log";
    LoggerUnit::setDebugLevel(1);
    SmartPointer<LogMessenger> messenger(new LogMessenger());
    messenger->setFile(path);
    SmartPointer<LoggerCentre> centre(new LoggerCentre(2, messenger));
    Logger logger;
    logger.set(SmartPointer<LoggerUnit>(new LoggerUnit(centre, LogModule::runtally)));
    std::vector<std::thread> threads;
    threads.reserve(4);
    for (int i = 0; i < 4; ++i)
        threads.emplace_back([&logger, i] {
            for (int k = 0; k < 100; ++k)
                logger.debug(1, "line %i of %i", k, i);
        });
    for (std::thread& thread : threads)
        thread.join();
    const std::string text = readFile(path);
    for (int i = 0; i < 4; ++i)
        for (int k = 0; k < 100; ++k)
            EXPECT_NE(text.find("line " + std::to_string(k) + " of " + std::to_string(i) + "\r\n"), std::string::npos);
    logger.release();
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
    eventually([&] {
        core.receive(received);
        return !received.empty();
    });
    EXPECT_EQ(received, std::vector<std::string>{"Velmor\x1bLOGMSG\x1b\x1b" + text + "\x1b"});
    Monopoly turn("Velmor_MailSlot", NamedLockAccess::family);
    ASSERT_TRUE(turn.enforce());
    const uint32_t begin = os.clock.ticks();
    EXPECT_FALSE(messenger.post(text));
    EXPECT_EQ(os.clock.ticks(), begin) << "whoever logs waits for nobody";
    turn.relax();
    EXPECT_EQ(messenger.sendWaiting(), 0U);
    EXPECT_TRUE(eventually([&] {
        core.receive(received);
        return received.size() == 2;
    })) << "what had to wait is sent on";
    ASSERT_TRUE(turn.enforce());
    for (int i = 0; i < 1003; ++i)
        EXPECT_FALSE(messenger.post(text));
    EXPECT_EQ(messenger.sendWaiting(), 3U) << "the oldest make room";
    turn.relax();
    EXPECT_TRUE(eventually([&] {
        messenger.sendWaiting();
        core.receive(received);
        return received.size() == 1002;
    }));
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
