#include "platform/MessageQueues.h"
#include "platform/Platform.h"
#include "shared/library/common/errors/IPCException.h"
#include "shared/library/common/errors/JobException.h"
#include "shared/library/common/ipc/IPCClient.h"
#include "shared/library/common/ipc/IPCServer.h"
#include "shared/library/common/ipc/MailSlot.h"
#include "shared/library/common/time/Timer.h"
#include "shared/library/common/win32/ThreadInstance.h"
#include "support/Eventually.h"
#include "support/RuntimeFixture.h"

#include <atomic>
#include <mutex>
#include <thread>

namespace Velmor {

namespace {
class IpcTest : public RuntimeFixture {
protected:
    IpcTest() { LoggerUnit::setDebugLevel(0); }

    static std::vector<std::string> receive(MailSlot& slot, size_t count) {
        std::vector<std::string> list;
        eventually([&] {
            slot.receive(list);
            return list.size() >= count;
        });
        return list;
    }
};

/// The code of the exception with which an operation fails; 0 if it doesn't.
template <typename Failure, typename Operation>
int32_t codeOf(Operation&& operation) {
    try {
        operation();
    } catch (const Failure& failure) {
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
    EXPECT_EQ(codeOf<IPCException>(sending), IC_CANNOT_SEND);
    {
        MailSlot reader(MailSlotMode::receiver, "slot");
        EXPECT_EQ(codeOf<IPCException>([&] { reader.send("x"); }), IC_NOT_SENDER);
        EXPECT_EQ(codeOf<IPCException>([&] { receive(writer, 1); }), IC_NOT_RECEIVER);
        EXPECT_EQ(codeOf<IPCException>([] { MailSlot(MailSlotMode::receiver, "slot"); }), IC_CANNOT_CREATE_COMM);
        EXPECT_TRUE(writer.send("opened anew"));
    }
    EXPECT_EQ(codeOf<IPCException>(sending), IC_CANNOT_SEND);
    MailSlot second(MailSlotMode::receiver, "slot");
    EXPECT_TRUE(writer.send("opened anew"));
    EXPECT_EQ(receive(second, 1).at(0), "opened anew");
}

TEST_F(IpcTest, AllMessagesOfManyWritersWaitForASlowReader) {
    constexpr int writers = 20;
    constexpr int each = 500;
    MailSlot reader(MailSlotMode::receiver, "slot");
    std::vector<std::thread> threads;
    threads.reserve(writers);
    for (int i = 0; i < writers; ++i)
        threads.emplace_back([i] {
            MailSlot writer(MailSlotMode::sender, "slot");
            for (int k = 0; k < each; ++k)
                writer.send(std::to_string(i) + " " + std::to_string(k));
        });
    for (std::thread& thread : threads)
        thread.join();
    std::vector<int> next(writers, 0);
    for (const std::string& text : receive(reader, writers * each)) {
        const int writer = std::stoi(text);
        EXPECT_EQ(std::stoi(text.substr(text.find(' '))), next[static_cast<size_t>(writer)]++);
    }
    EXPECT_EQ(next, std::vector<int>(writers, each));
}

TEST_F(IpcTest, TheServerHandsOverMessagesOfTheFamilyOnlyAndLeavesWhenToldTo) {
    Hearer heard;
    IPCServer server("server", SmartPointer<LoggerCentre>(), heard);
    IPCClient client("server");
    const auto order = [&] { client.send("COMMAND", "", "DIE", ""); };
    EXPECT_TRUE(eventually([&] { return codeOf<IPCException>(order) == 0; }));
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
    server.stop();
    EXPECT_EQ(codeOf<IPCException>(order), IC_CANNOT_SEND) << "it has given its mailslot back";
}

namespace {
uint32_t ignoresAll(void* running) {
    static_cast<std::atomic<bool>*>(running)->store(true);
    for (;;)
        Timer::sleep(1000000);
}
} // namespace

TEST(ThreadInstanceTest, AThreadThatIgnoresAllIsEndedByForceAndCanRunAgain) {
    std::atomic<bool> running{false};
    ThreadInstance thread(ignoresAll, &running);
    EXPECT_EQ(thread.stop(), 0);
    EXPECT_EQ(codeOf<JobException>([&] { thread.suspend(); }), JB_NEVER_STARTED);
    thread.execute();
    eventually([&] { return running.load(); });
    EXPECT_EQ(thread.suspend(), 1U);
    EXPECT_EQ(thread.resume(), 1U);
    EXPECT_EQ(thread.stop(), 1);
    EXPECT_EQ(thread.getStatus(), JobStatus::terminated);
    uint32_t code = 0;
    EXPECT_EQ(thread.getExitCode(code), JobStatus::exitCodeDelivered);
    EXPECT_EQ(code, static_cast<uint32_t>(-1));
    running = false;
    thread.execute();
    eventually([&] { return running.load(); });
    EXPECT_EQ(thread.getStatus(), JobStatus::running);
}

} // namespace Velmor
