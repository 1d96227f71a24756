#include "programs/runtallyctl/Commands.h"

#include "platform/MessageQueues.h"
#include "platform/Threads.h"
#include "runtallyctl/OutputCapture.h"
#include "shared/library/common/errors/IPCException.h"
#include "shared/library/common/ipc/IPCClient.h"
#include "shared/library/common/ipc/MailSlot.h"
#include "shared/library/logger/LoggerUnit.h"
#include "support/Eventually.h"
#include "support/RuntimeFixture.h"
#include "support/ScriptedPlatform.h"

#include <algorithm>
#include <thread>

namespace Velmor {

namespace {
class CommandsTest : public RuntimeFixture {
protected:
    CommandsTest() { LoggerUnit::setDebugLevel(0); }

    /// The next message on a mailslot, with its separators as "|".
    static std::string next(MailSlot& slot) {
        std::vector<std::string> list;
        const bool came = eventually([&] {
            slot.receive(list);
            return !list.empty();
        });
        std::string text = came ? list.front() : "none";
        std::replace(text.begin(), text.end(), '\x1b', '|');
        return text;
    }
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
    EXPECT_EQ(sendCommand("DIE"), CommandStatus::noAnswer);
    EXPECT_EQ(sendAndWait("RUNTALLYDUMP", 10), CommandStatus::noAnswer);
    EXPECT_NE(err.text().find("No collector listens"), std::string::npos) << err.text();
}

TEST_F(CommandsTest, ACollectorThatDoesntAnswerIsWaitedForAsLongAsAskedFor) {
    ScriptedPlatform os;
    MailSlot collector(MailSlotMode::receiver, "Velmor_Runtally");
    const OutputCapture err(std::cerr);
    const uint32_t begin = os.clock.ticks();
    EXPECT_EQ(sendAndWait("RUNTALLYDUMP", 7), CommandStatus::noAnswer);
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
    directory.write("LogMessages/runtally.mess", "25: The id %i is in use again.\n");
    std::string message = "Velmor|LOG|2|8|0|1|n1234\x1a|25|";
    std::replace(message.begin(), message.end(), '|', '\x1c');

    NotifyingBuffer printed(platform().threads->currentId());
    std::streambuf* const former = std::cout.rdbuf(&printed);
    std::thread sender([&] {
        eventually([&] {
            try {
                IPCClient client("Velmor_Core");
                client.send("COMMAND", "", "not for here", "");
                return client.send("LOGMSG", "", message, "");
            } catch (const IPCException&) {
                return false; // nobody listens yet
            }
        });
    });
    EXPECT_EQ(listen(directory.path(), 0), CommandStatus::done);
    sender.join();
    std::cout.rdbuf(former);
    EXPECT_TRUE(printed.str().starts_with("WARNING  ")) << printed.str();
    EXPECT_TRUE(printed.str().ends_with(" (2.08.25) The id 1234 is in use again.\n")) << printed.str();
}

} // namespace Velmor
