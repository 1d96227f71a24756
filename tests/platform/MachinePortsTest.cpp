#include "platform/Errors.h"
#include "platform/linux/base/Capabilities.h"
#include "platform/linux/base/FileDescriptor.h"
#include "platform/linux/family/LinuxMailslots.h"
#include "platform/linux/family/LinuxNamedLocks.h"
#include "platform/linux/family/LinuxRegistry.h"
#include "platform/linux/family/LinuxServiceManager.h"
#include "platform/linux/machine/LinuxAccounts.h"
#include "platform/linux/machine/LinuxMachine.h"
#include "support/Child.h"
#include "support/Eventually.h"
#include "support/RuntimeFixture.h"

#include <algorithm>
#include <atomic>
#include <cstdlib>
#include <filesystem>
#include <functional>
#include <future>
#include <sys/prctl.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <thread>
#include <unistd.h>

namespace Velmor {

namespace {
class MailslotTest : public RuntimeFixture {
protected:
    /// Waits for as many messages; the reader itself never does.
    static std::vector<std::string> readAll(MailslotReader& reader, size_t count) {
        std::vector<MailslotMessage> messages;
        eventually([&] { return !reader.read(messages) || messages.size() >= count; });
        std::vector<std::string> texts;
        for (const MailslotMessage& message : messages) {
            EXPECT_TRUE(message.sender.mayCommand);
            EXPECT_EQ(message.sender.process, static_cast<uint32_t>(getpid()));
            EXPECT_EQ(message.sender.user, "S-1-22-1-" + std::to_string(geteuid()));
            texts.push_back(message.text);
        }
        return texts;
    }

    LinuxMailslots mailslots;
    uint32_t error = 0;
};

/// A name service that a test can hold up.
struct NameService {
    std::atomic<int> questions{0};
    std::promise<void> release;
    std::shared_future<void> mayAnswer{release.get_future()};
};
} // namespace

TEST_F(MailslotTest, TenThousandMessagesOfAnySizeWaitWithoutHoldingTheWriterUp) {
    const auto reader = mailslots.create("slot", MailslotAccess::group, error);
    const auto writer = mailslots.open("slot", Mailslots::usualPatience, error);
    ASSERT_TRUE(writer);
    std::vector<std::string> sent{"", std::string(65536, 'x'), std::string(150000, 'x')};
    while (sent.size() < 10000)
        sent.push_back("message " + std::to_string(sent.size()) + '\0');
    for (const std::string& message : sent)
        ASSERT_TRUE(writer->write(message, error)) << message.size() << " gave " << error;
    EXPECT_EQ(readAll(*reader, sent.size()), sent);
    EXPECT_FALSE(writer->write(std::string(64 << 20, 'x'), error)) << "too long is refused, not cut";
    std::vector<MailslotMessage> none;
    EXPECT_TRUE(reader->read(none));
    EXPECT_TRUE(none.empty());
}

TEST_F(MailslotTest, AReaderNoticesThatItsSlotWasTakenAway) {
    const auto reader = mailslots.create("slot", MailslotAccess::group, error);
    EXPECT_TRUE(reader->isReachable());
    std::filesystem::remove_all(directory / "run");
    EXPECT_FALSE(reader->isReachable());
    const auto another = mailslots.create("slot", MailslotAccess::group, error);
    ASSERT_TRUE(another) << error;
    EXPECT_FALSE(reader->isReachable());
    EXPECT_TRUE(another->isReachable());
}

TEST_F(MailslotTest, NoLinkUnderANameOfOursIsFollowed) {
    const std::string secret = directory.write("secret", "x");
    std::filesystem::permissions(secret, std::filesystem::perms::owner_read);
    for (const char* name : {"run/mailslot/slot", "run/lock/lock", "state/resources.toml.lock"}) {
        std::filesystem::create_directories(std::filesystem::path(directory / name).parent_path());
        std::filesystem::create_symlink(secret, directory / name);
    }
    LinuxRegistry().writeText("LogCounter", "1", error);
    EXPECT_TRUE(mailslots.create("slot", MailslotAccess::everyone, error)) << "it takes the link's place";
    EXPECT_FALSE(LinuxNamedLocks().create("lock", NamedLockAccess::own, error));
    EXPECT_EQ(modeOf(secret), 0400U);
    EXPECT_EQ(readFile(secret), "x");
    std::filesystem::permissions(directory / "run/lock", std::filesystem::perms::all);
    EXPECT_FALSE(LinuxNamedLocks().create("other", NamedLockAccess::own, error)) << "anybody could take it away";
}

TEST(ServiceManagerTest, WordsAndTheSentenceOfAStateComeTogether) {
    const TempDirectory directory;
    const FileDescriptor manager(socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0));
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    (directory / "notify").copy(&address.sun_path[0], sizeof(address.sun_path) - 1);
    ASSERT_EQ(bind(manager.get(), reinterpret_cast<const sockaddr*>(&address), sizeof(address)), 0);
    setenv("NOTIFY_SOCKET", (directory / "notify").c_str(), 1);
    LinuxServiceManager service;
    using Case = std::tuple<std::function<void()>, const char*, const char*>;
    for (const auto& [tell, watchdog, told] : {
             Case{[&] { service.ready("Tracks."); }, nullptr, "READY=1\nSTATUS=Tracks."},
             Case{[&] { service.alive("Tracks."); }, nullptr, "STATUS=Tracks."},
             Case{[&] { service.alive("Tracks."); }, "300000000", "WATCHDOG=1\nSTATUS=Tracks."},
             Case{[&] { service.stopping(); }, nullptr, "STOPPING=1"},
         }) {
        watchdog ? setenv("WATCHDOG_USEC", watchdog, 1) : unsetenv("WATCHDOG_USEC");
        tell();
        std::string text(100, '\0');
        text.resize(
            static_cast<size_t>(std::max<ssize_t>(0, recv(manager.get(), text.data(), text.size(), MSG_DONTWAIT))));
        EXPECT_EQ(text, told);
    }
    unsetenv("NOTIFY_SOCKET");
    unsetenv("WATCHDOG_USEC");
}

TEST(CapabilitiesTest, WhatIsNotUsedIsNotInForce) {
    if (geteuid() != 0)
        GTEST_SKIP() << "nobody else has any";
    constexpr uint64_t look = 1U << 19U | 1U << 2U; // CAP_SYS_PTRACE, CAP_DAC_READ_SEARCH
    constexpr uint64_t netAdmin = 1U << 12U;
    const auto ofThread = [](const char* set) {
        const std::string status = readFile("/proc/thread-self/status");
        return std::stoull(status.substr(status.find(set) + 8), nullptr, 16);
    };
    Child child([&] {
        if (prctl(PR_SET_KEEPCAPS, 1) != 0 || setuid(65534) != 0)
            return 1;
        limitCapabilities();
        std::vector<uint64_t> met{ofThread("CapPrm"), ofThread("CapEff")}; // a change of user leaves none in force
        const RaisedCapability ptrace(Capability::sysPtrace);
        const RaisedCapability search(Capability::dacReadSearch);
        {
            const RaisedCapability raised(Capability::netAdmin);
            met.push_back(ofThread("CapEff"));
            const LoweredCapabilities lowered;
            met.push_back(ofThread("CapEff") + (hasCapability(Capability::netAdmin) ? 0 : 1));
        }
        std::thread([] { giveCapabilitiesUp(); }).join();
        met.push_back(ofThread("CapEff"));
        giveCapabilitiesUp();
        met.push_back(ofThread("CapPrm") + (hasCapability(Capability::netAdmin) ? 1 : 0));
        const uint64_t all = look | netAdmin | uint64_t{1} << 38U;
        return met == std::vector<uint64_t>{all, 0, look | netAdmin, 0, look, 0} ? 0 : 2;
    });
    EXPECT_EQ(child.reap(), 0);
}

TEST(MachineTest, AUserWithoutRightsStartsHealthyAndIsToldWhatItCosts) {
    Child child([] {
        if (geteuid() == 0 && setuid(65534) != 0)
            return 2;
        LinuxMachine machine;
        std::string call;
        uint32_t error = 0;
        const bool told = machine.missingRights().find("CAP_SYS_PTRACE") != std::string::npos;
        return machine.enableDebugPrivilege(call, error) && call.empty() && told ? 0 : 1;
    });
    EXPECT_EQ(child.reap(), 0);
}

TEST(AccountsTest, SidsOfUsersHaveNamesAndOthersAreUnknown) {
    LinuxAccounts accounts;
    std::string user;
    std::string domain;
    uint32_t error = 0;
    EXPECT_TRUE(accounts.lookup("S-1-22-1-0", user, domain, error));
    EXPECT_EQ(user, "root");
    EXPECT_TRUE(accounts.lookup("S-1-22-1-4000000007", user, domain, error));
    EXPECT_EQ(user, "4000000007") << "nobody's number stands for itself";
    for (const char* sid : {"S-1-22-1-", "S-1-22-1-12x", "S-1-5-18", "S-1-22-1-99999999999"}) {
        EXPECT_FALSE(accounts.lookup(sid, user, domain, error)) << sid;
        EXPECT_EQ(error, NativeError::noneMapped);
    }
}

TEST(AccountsTest, AServiceThatAnswersLateCostsItsWaitOnce) {
    auto service = std::make_shared<NameService>();
    LinuxAccounts accounts(
        [service](uint32_t) {
            ++service->questions;
            service->mayAnswer.wait();
            return std::string("la\x1e\n");
        },
        20);
    std::string user;
    std::string domain;
    uint32_t error = 0;
    for (int i = 0; i < 3; ++i) {
        EXPECT_TRUE(accounts.lookup("S-1-22-1-1000", user, domain, error));
        EXPECT_EQ(user, "1000");
    }
    EXPECT_TRUE(eventually([&] { return service->questions == 1; }));
    const auto nameOf = [&](const std::string& sid) {
        EXPECT_TRUE(accounts.lookup(sid, user, domain, error));
        return user;
    };
    EXPECT_EQ(nameOf("S-1-22-1-1001"), "1001");
    service->release.set_value();
    EXPECT_TRUE(eventually([&] { return nameOf("S-1-22-1-1000") == "la??" && nameOf("S-1-22-1-1001") == "la??"; }))
        << "an answer that nobody waits for any more is an answer, and forges no separators";
    EXPECT_EQ(service->questions, 2) << "no user is asked for twice";
}

} // namespace Velmor
