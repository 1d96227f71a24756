#include "platform/MessageQueues.h"
#include "shared/library/common/IPCClient.h"
#include "shared/library/common/IPCException.h"
#include "shared/library/common/IPCServer.h"
#include "shared/library/common/JobException.h"
#include "shared/library/common/Timer.h"
#include "shared/library/common/win32/MailSlot.h"
#include "shared/library/common/win32/ThreadInstance.h"
#include "support/ScriptedPlatform.h"
#include "support/TempDirectory.h"

#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <cstdlib>
#include <functional>
#include <mutex>
#include <thread>

namespace Velmor {

namespace {
class IpcTest : public ::testing::Test {
protected:
    IpcTest() {
        setenv("VELMOR_RUNTIME_DIR", directory.path().c_str(), 1);
        LoggerUnit::setDebugLevel(0);
    }
    ~IpcTest() override { unsetenv("VELMOR_RUNTIME_DIR"); }

    static std::vector<std::string> receive(MailSlot& slot, size_t count) {
        std::vector<std::string> list;
        for (int i = 0; i < 2000 && list.size() < count; ++i) {
            slot.receive(list);
            std::this_thread::sleep_for(std::chrono::milliseconds(1));
        }
        return list;
    }

    TempDirectory directory;
};

template <typename Operation>
int32_t ipcCode(Operation&& operation) {
    try {
        operation();
    } catch (const IPCException& failure) {
        return failure.getCode();
    }
    return IC_NONE;
}

struct Heard {
    std::mutex mutex;
    std::vector<std::string> messages;
};
Heard heard;

void hear(const std::string& type, const std::string& reference, const std::string& text, const std::string& replyTo) {
    const std::lock_guard lock(heard.mutex);
    heard.messages.push_back(type + "|" + reference + "|" + text + "|" + replyTo);
}
} // namespace

TEST_F(IpcTest, MessagesArriveWholeAndInOrder) {
    MailSlot reader(MailSlotMode::receiver, "slot");
    std::vector<std::string> list{"kept"};
    reader.receive(list);
    EXPECT_EQ(list.size(), 1U);
    MailSlot writer(MailSlotMode::sender, "slot");
    const std::string big(60 * 1024, 'b');
    for (const std::string& text : {std::string("one"), std::string(), std::string("\xff\x80"), big})
        EXPECT_TRUE(writer.send(text));
    EXPECT_EQ(receive(reader, 4), (std::vector<std::string>{"one", "", "\xff\x80", big}));
}

TEST_F(IpcTest, MisuseAndMissingReadersAreTold) {
    MailSlot reader(MailSlotMode::receiver, "slot");
    EXPECT_EQ(ipcCode([&] { reader.send("x"); }), IC_NOT_SENDER);
    MailSlot writer(MailSlotMode::sender, "nobody");
    std::vector<std::string> list;
    EXPECT_EQ(ipcCode([&] { writer.receive(list); }), IC_NOT_RECEIVER);
    EXPECT_EQ(ipcCode([&] { writer.send("x"); }), IC_CANNOT_SEND);
    EXPECT_EQ(ipcCode([&] { MailSlot(MailSlotMode::receiver, "slot"); }), IC_CANNOT_CREATE_COMM) << "a live reader's";
    EXPECT_EQ(ipcCode([&] { IPCClient("nobody").send("COMMAND", "", "DIE", ""); }), IC_CANNOT_SEND);
}

TEST_F(IpcTest, AMailslotThatItsReaderLeftCanBeTakenAgain) {
    MailSlot writer(MailSlotMode::sender, "slot");
    {
        MailSlot first(MailSlotMode::receiver, "slot");
        EXPECT_TRUE(writer.send("x"));
    }
    EXPECT_EQ(ipcCode([&] { writer.send("lost"); }), IC_CANNOT_SEND);
    MailSlot second(MailSlotMode::receiver, "slot");
    EXPECT_TRUE(writer.send("opened anew"));
    EXPECT_EQ(receive(second, 1).at(0), "opened anew");
}

TEST_F(IpcTest, AllMessagesOfManyWritersWaitForASlowReader) {
    constexpr int writers = 20;
    constexpr int each = 500;
    MailSlot reader(MailSlotMode::receiver, "slot");
    std::vector<std::thread> threads;
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

TEST_F(IpcTest, TheServerHandsOverMessagesOfTheFamilyOnly) {
    ScriptedPlatform os; // its turns take no time
    heard.messages.clear();
    {
        IPCServer server("server", SmartPointer<LoggerCentre>(), hear);
        IPCClient client("server");
        for (int i = 0; ipcCode([&] { client.send("COMMAND", "", "DIE", ""); }) != IC_NONE && i < 2000; ++i)
            std::this_thread::sleep_for(std::chrono::milliseconds(1));
        client.send("COMMAND", "ref", "text", "me");
        MailSlot raw(MailSlotMode::sender, "server");
        for (const char* foreign : {"",
                                    "Other\x1b"
                                    "COMMAND\x1b\x1bx\x1b",
                                    "COMMAND", "Velmor"})
            raw.send(foreign);
        raw.send("Velmor\x1b"
                 "a\x1b"
                 "b\x1b"
                 "c\x1b"
                 "d\x1b"
                 "extra\x1b");
        for (int i = 0; i < 5000; ++i) {
            const std::lock_guard lock(heard.mutex);
            if (heard.messages.size() >= 4)
                break;
            std::this_thread::sleep_for(std::chrono::milliseconds(1));
        }
        server.stop();
    }
    EXPECT_EQ(heard.messages, (std::vector<std::string>{"COMMAND||DIE|", "COMMAND|ref|text|me", "|||", "a|b|c|d"}));
}

namespace {
uint32_t endsAtOnce(void* code) {
    return *static_cast<uint32_t*>(code);
}

uint32_t takesMessages(void*) {
    uint32_t message = 0;
    while (!platform().messageQueues->peek(message) || message != WindowMessage::destroy)
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
    return 5;
}

uint32_t ignoresAll(void* running) {
    static_cast<std::atomic<bool>*>(running)->store(true);
    for (;;)
        Timer::sleep(1000000);
}

void waitFor(const std::function<bool()>& condition) {
    for (int i = 0; i < 5000 && !condition(); ++i)
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
}
} // namespace

TEST(ThreadInstanceTest, AThreadThatEndsByItselfKeepsItsCode) {
    uint32_t code = 7;
    ThreadInstance thread(endsAtOnce, &code);
    EXPECT_EQ(thread.getStatus(), JobStatus::absent);
    EXPECT_EQ(thread.stop(), 0);
    EXPECT_THROW(thread.suspend(), JobException);
    EXPECT_THROW(thread.resume(), JobException);
    for (int i = 0; i < 2; ++i) {
        thread.execute();
        waitFor([&] { return thread.getStatus() == JobStatus::ended; });
        uint32_t result = 0;
        EXPECT_EQ(thread.getExitCode(result), JobStatus::exitCodeDelivered);
        EXPECT_EQ(result, 7U);
        EXPECT_EQ(thread.stop(), 0);
        EXPECT_EQ(thread.suspend(), 0U);
    }
}

TEST(ThreadInstanceTest, AThreadThatTakesMessagesEndsNicely) {
    ThreadInstance thread(takesMessages, nullptr);
    thread.execute();
    uint32_t untouched = 99;
    EXPECT_EQ(thread.getExitCode(untouched), JobStatus::running);
    EXPECT_EQ(untouched, 99U);
    waitFor([&] { return platform().messageQueues->post(thread.getThreadId(), 1000); });
    EXPECT_EQ(thread.stop(), 1);
    EXPECT_EQ(thread.getStatus(), JobStatus::stopped);
}

TEST(ThreadInstanceTest, AThreadThatIgnoresAllIsEndedByForceAndCanRunAgain) {
    std::atomic<bool> running{false};
    ThreadInstance thread(ignoresAll, &running);
    thread.execute();
    waitFor([&] { return running.load(); });
    EXPECT_EQ(thread.suspend(), 1U);
    EXPECT_EQ(thread.suspend(), 2U);
    EXPECT_EQ(thread.resume(), 2U);
    EXPECT_EQ(thread.resume(), 1U);
    EXPECT_EQ(thread.stop(), 1);
    EXPECT_EQ(thread.getStatus(), JobStatus::terminated);
    uint32_t code = 0;
    EXPECT_EQ(thread.getExitCode(code), JobStatus::exitCodeDelivered);
    EXPECT_EQ(code, static_cast<uint32_t>(-1));
    running = false;
    thread.execute();
    waitFor([&] { return running.load(); });
    EXPECT_EQ(thread.getStatus(), JobStatus::running);
}

} // namespace Velmor
