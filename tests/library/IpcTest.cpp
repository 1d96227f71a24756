#include "shared/library/common/errors/IPCException.h"
#include "shared/library/common/ipc/IPCClient.h"
#include "shared/library/common/ipc/IPCServer.h"
#include "shared/library/common/ipc/MailSlot.h"
#include "support/Eventually.h"
#include "support/RuntimeFixture.h"
#include "support/ScriptedPlatform.h"

#include <atomic>
#include <mutex>

namespace Velmor {

namespace {
class IpcTest : public RuntimeFixture {
protected:
    IpcTest() { LoggerUnit::setDebugLevel(0); }

    static std::string receive(MailSlot& slot) {
        std::vector<std::string> list;
        eventually([&] { return slot.receive(list), !list.empty(); });
        return list.at(0);
    }
};

/// The code of the exception with which an operation fails; 0 if it doesn't.
template <typename Operation>
int32_t codeOf(Operation&& operation) {
    try {
        operation();
    } catch (const IPCException& failure) {
        return failure.getCode();
    }
    return 0;
}

struct Hearer : IPCListener {
    void ipcCallback(const std::vector<IPCMessage>& come) override {
        const std::lock_guard lock(mutex);
        for (const IPCMessage& m : come)
            messages.push_back(m.type + "|" + m.reference + "|" + m.text + "|" + m.replyTo);
    }
    void messagesRefused(uint64_t count) override { refused += count; }
    void slotRenewed() override { ++renewed; }

    std::mutex mutex;
    std::vector<std::string> messages;
    std::atomic<uint64_t> refused{0};
    std::atomic<int> renewed{0};
};
} // namespace

TEST_F(IpcTest, MisuseAndMissingReadersAreTold) {
    MailSlot writer(MailSlotMode::sender, "slot");
    const auto sending = [&] { writer.send("x"); };
    EXPECT_EQ(codeOf(sending), IC_CANNOT_SEND);
    {
        MailSlot reader(MailSlotMode::receiver, "slot");
        EXPECT_EQ(codeOf([&] { reader.send("x"); }), IC_NOT_SENDER);
        EXPECT_EQ(codeOf([&] { receive(writer); }), IC_NOT_RECEIVER);
        EXPECT_EQ(codeOf([] { MailSlot(MailSlotMode::receiver, "slot"); }), IC_CANNOT_CREATE_COMM);
        EXPECT_TRUE(writer.send("opened anew"));
    }
    EXPECT_EQ(codeOf(sending), IC_CANNOT_SEND);
    MailSlot second(MailSlotMode::receiver, "slot");
    EXPECT_TRUE(writer.send("opened anew"));
    EXPECT_EQ(receive(second), "opened anew");
}

TEST_F(IpcTest, TheServerHandsOverMessagesOfTheFamilyOnlyAndLeavesWhenToldTo) {
    ScriptedPlatform os; // the server looks at its slot once in a while
    os.clock.keepStep();
    Hearer heard;
    IPCServer server("server", SmartPointer<LoggerCentre>(), heard);
    IPCClient client("server");
    const auto order = [&] { client.send("COMMAND", "", "DIE", ""); };
    EXPECT_TRUE(eventually([&] { return codeOf(order) == 0; }));
    client.send("COMMAND", "ref", "text", "me");
    MailSlot raw(MailSlotMode::sender, "server");
    for (std::string text : {"", "Other|COMMAND||x|", "COMMAND", "Velmor", "Velmor|a|b|c|d|extra|"}) {
        std::replace(text.begin(), text.end(), '|', '\x1b');
        raw.send(text);
    }
    const std::vector<std::string> expected{"COMMAND||DIE|", "COMMAND|ref|text|me", "|||", "a|b|c|d"};
    EXPECT_TRUE(eventually([&] {
        const std::lock_guard lock(heard.mutex);
        return heard.messages == expected;
    }));
    std::filesystem::remove_all(directory / "run");
    EXPECT_TRUE(eventually([&] { return heard.renewed > 0; })) << "a slot that was taken away is made anew";
    EXPECT_TRUE(eventually([&] { return codeOf(order) == 0; }));
    server.stop();
    EXPECT_TRUE(eventually([&] { return codeOf(order) == IC_CANNOT_SEND; })) << "it has given its mailslot back";
}

} // namespace Velmor
