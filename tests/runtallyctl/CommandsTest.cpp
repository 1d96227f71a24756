#include "programs/runtallyctl/Commands.h"

#include "platform/MessageQueues.h"
#include "platform/Threads.h"
#include "runtallyctl/OutputCapture.h"
#include "shared/library/common/IPCClient.h"
#include "shared/library/common/IPCException.h"
#include "shared/library/common/ParamStream.h"
#include "shared/library/common/win32/MailSlot.h"
#include "shared/library/logger/LogCommons.h"
#include "shared/library/logger/LoggerUnit.h"
#include "support/ScriptedPlatform.h"
#include "support/TempDirectory.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <chrono>
#include <cstdlib>
#include <memory>
#include <thread>

namespace Velmor {

namespace {
class CommandsTest : public ::testing::Test {
protected:
    CommandsTest() {
        setenv("VELMOR_RUNTIME_DIR", directory.path().c_str(), 1);
        LoggerUnit::setDebugLevel(0);
    }
    ~CommandsTest() override { unsetenv("VELMOR_RUNTIME_DIR"); }

    /// The next message on a mailslot, with its separators as "|".
    static std::string next(MailSlot& slot) {
        std::vector<std::string> list;
        while (list.empty()) {
            slot.receive(list);
            std::this_thread::sleep_for(std::chrono::milliseconds(1));
        }
        std::replace(list.front().begin(), list.front().end(), '\x1b', '|');
        return list.front();
    }

    TempDirectory directory;
};

/// Tells a thread when something has been printed.
class NotifyingBuffer : public std::stringbuf {
public:
    explicit NotifyingBuffer(uint32_t listener) : listener_(listener) {}

private:
    int sync() override {
        platform().messageQueues->post(listener_, WindowMessage::quit);
        return 0;
    }

    uint32_t listener_;
};
} // namespace

TEST_F(CommandsTest, WithoutACollectorCommandsSaySoAtOnce) {
    const OutputCapture err(std::cerr);
    EXPECT_EQ(sendCommand("DIE"), CommandStatus::noCollector);
    EXPECT_EQ(sendAndWait("RUNTALLYDUMP", 10), CommandStatus::noCollector);
    EXPECT_NE(err.text().find("No collector listens"), std::string::npos) << err.text();
}

TEST_F(CommandsTest, ACommandWithoutReplyIsOneMessage) {
    MailSlot collector(MailSlotMode::receiver, "Velmor_Runtally");
    EXPECT_EQ(sendCommand("RECONFIG"), CommandStatus::done);
    EXPECT_EQ(next(collector), "Velmor|COMMAND||RECONFIG|");
}

TEST_F(CommandsTest, ACollectorThatDoesntAnswerIsWaitedForAsLongAsAskedFor) {
    ScriptedPlatform os;
    MailSlot collector(MailSlotMode::receiver, "Velmor_Runtally");
    const OutputCapture err(std::cerr);
    const uint32_t begin = os.clock.ticks();
    EXPECT_EQ(sendAndWait("RUNTALLYDUMP", 7), CommandStatus::noReply);
    EXPECT_EQ((os.clock.ticks() - begin) / 1000, 7U);
    EXPECT_EQ(next(collector), "Velmor|COMMAND|Velmor_ctl_77|RUNTALLYDUMP|Velmor_ctl_77|");
}

TEST_F(CommandsTest, TheReplyIsToldApartFromOtherMessages) {
    MailSlot collector(MailSlotMode::receiver, "Velmor_Runtally");
    std::thread answering([&] {
        const std::string request = next(collector);
        const size_t begin = request.find("Velmor_ctl_");
        const std::string own = request.substr(begin, request.find('|', begin) - begin);
        IPCClient client(own);
        client.send("REPLY", "somebody else's", "wrong", "");
        client.send("LOGMSG", own, "wrong", "");
        client.send("REPLY", own, "4711,4712", "Velmor_Runtally");
    });
    const OutputCapture out(std::cout);
    EXPECT_EQ(sendAndWait("SEND_PROCESS_INFO", 30), CommandStatus::done);
    answering.join();
    EXPECT_EQ(out.text(), "4711,4712\n");
}

TEST_F(CommandsTest, ForwardedMessagesArePrintedWithTheirWording) {
    std::filesystem::create_directory(directory / "LogMessages");
    directory.write("LogMessages/runtally.mess", "25: The id %i is in use again.\n");
    LogMessage message;
    message.isLog = true;
    message.program = LogProgram::runtally;
    message.module = LogModule::runtally;
    message.severity = Severity::warning;
    message.messageId = 25;
    ParamStream parameters;
    parameters << 1234;
    message.text = parameters.getText();
    std::string encoded;
    LogCommons::encodeMessage(message, encoded);

    NotifyingBuffer printed(platform().threads->currentId());
    std::streambuf* const former = std::cout.rdbuf(&printed);
    std::thread sender([&] {
        for (bool sent = false; !sent;) {
            try {
                IPCClient client("Velmor_Core");
                client.send("COMMAND", "", "not for here", "");
                sent = client.send("LOGMSG", "", encoded, "");
            } catch (const IPCException&) {
                std::this_thread::sleep_for(std::chrono::milliseconds(1)); // nobody listens yet
            }
        }
    });
    EXPECT_EQ(listen(directory.path(), 0), CommandStatus::done);
    sender.join();
    std::cout.rdbuf(former);
    EXPECT_TRUE(printed.str().starts_with("WARNING  ")) << printed.str();
    EXPECT_TRUE(printed.str().ends_with(" (2.08.25) The id 1234 is in use again.\n")) << printed.str();
}

} // namespace Velmor
