// What another user of the machine tries against the real collector.

#include "RunningCollector.h"

#include "support/Child.h"

#include <gtest/gtest.h>

#include <fcntl.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

namespace Velmor {

namespace {
constexpr const char* asNobody = "setpriv --reuid 65534 --regid 65534 --clear-groups ";

std::string order(const std::string& word) {
    return "Velmor\x1b"
           "COMMAND\x1b\x1b" +
           word + "\x1b" + '\0';
}

/// Sends messages as a program of their own would, as another user if that is not 0. True if the first was taken.
bool sendAs(uid_t user, const std::string& slot, const std::string& message, int count) {
    Child sender([&] {
        const int directory = open(std::filesystem::path(slot).parent_path().c_str(), O_PATH | O_DIRECTORY);
        if (user != 0 && (setgid(user) != 0 || setuid(user) != 0))
            return 2;
        const int channel = socket(AF_UNIX, SOCK_DGRAM, 0);
        const int room = 1 << 20;
        setsockopt(channel, SOL_SOCKET, SO_SNDBUF, &room, sizeof(room));
        sockaddr_un address{};
        address.sun_family = AF_UNIX;
        (user != 0 ? slot : "/proc/self/fd/" + std::to_string(directory) + "/Velmor_Runtally")
            .copy(&address.sun_path[0], sizeof(address.sun_path) - 1);
        if (connect(channel, reinterpret_cast<const sockaddr*>(&address), sizeof(address)) != 0)
            return 1;
        for (int i = 0; i < count; ++i)
            if (send(channel, message.data(), message.size(), 0) < 0 && i == 0)
                return 1;
        return 0;
    });
    return sender.reap() == 0;
}
} // namespace

TEST(AttackEndToEnd, StrangersCommandNothingAndAFloodHoldsNothingUp) {
    if (geteuid() != 0)
        GTEST_SKIP() << "only root can be another user";
    constexpr uid_t nobody = 65534;
    RunningCollector collector("", "        process-data () = \"\" { polling (Bool) = true { } }\n",
                               {{"include-exclude", "include datatype=*\n"}}, 1);
    const TempDirectory& home = collector.directory();
    const std::string slot = home / "run/mailslot/Velmor_Runtally";
    std::filesystem::permissions(home.path(), std::filesystem::perms::others_exec, std::filesystem::perm_options::add);
    std::filesystem::copy_file(VELMOR_RUNTALLYCTL, home / "tool");
    EXPECT_FALSE(sendAs(nobody, slot, order("DIE"), 1)) << "the slot is for the group";
    const std::string refusal = collector.run("", asNobody + (home / "tool") + " die 2>&1");
    EXPECT_TRUE(refusal.starts_with("4 ")) << refusal;
    EXPECT_NE(refusal.find("members of the group"), std::string::npos) << refusal;
    EXPECT_TRUE(sendAs(0, slot, std::string(300 * 1024, 'x'), 1));
    EXPECT_TRUE(collector.awaitLog("(2.21.34)")) << "too long is refused, not cut";

    home.write("resources.toml", readFile(home / "resources.toml") + "MailslotAccess = \"everyone\"\n");
    ASSERT_EQ(collector.stop(), 0);
    ASSERT_TRUE(collector.start());
    collector.passLog();
    EXPECT_TRUE(sendAs(nobody, slot, order("DIE"), 1)) << "the slot is for everyone, but commands are not";
    EXPECT_TRUE(collector.awaitLog("(2.21.33)"));
    EXPECT_TRUE(sendAs(0, slot, order("RUNTALLYDUMP"), 100000));
    EXPECT_TRUE(collector.control("info").starts_with("0 "));
    EXPECT_EQ(collector.stop(), 0);
}

} // namespace Velmor
