// The command line of the collector's program, and its check, as a whole.

#include "support/DataFiles.h"
#include "support/TempDirectory.h"

#include <filesystem>
#include <gtest/gtest.h>
#include <regex>
#include <set>
#include <sys/wait.h>
#include <unistd.h>

namespace Velmor {

namespace {
class CheckEndToEnd : public testing::Test {
protected:
    CheckEndToEnd() {
        std::filesystem::copy(VELMOR_SOURCES "/examples/etc/velmor", directory_.path(),
                              std::filesystem::copy_options::recursive);
        directory_.write("resources.toml", "ConfigurationDir = \"" + directory_.path() + "\"\n");
        std::filesystem::create_directory(directory_ / "run");
        std::filesystem::create_directory(directory_ / "state");
        std::filesystem::permissions(directory_.path(), std::filesystem::perms(0755));
        change("/etc/velmor|/var/lib/velmor", directory_.path());
    }
    void change(const std::string& what, const std::string& into) {
        const std::string text = readFile(directory_ / "runtally.conf");
        directory_.write("runtally.conf", std::regex_replace(text, std::regex(what), into));
    }
    /// The exit status, a blank, and all that is said.
    std::string run(const std::string& words, const std::string& as = "") const {
        const std::string command = "VELMOR_RESOURCES=" + (directory_ / "resources.toml") +
                                    " VELMOR_STATE_DIR=" + (directory_ / "state") +
                                    " VELMOR_RUNTIME_DIR=" + (directory_ / "run") + " " + as + " " + VELMOR_RUNTALLY +
                                    " " + words + " 2>&1 </dev/null";
        FILE* output = popen(command.c_str(), "r");
        std::string text;
        for (int c = std::fgetc(output); c != EOF; c = std::fgetc(output))
            text += static_cast<char>(c);
        return std::to_string(WEXITSTATUS(pclose(output))) + " " + text;
    }
    /// What stands in the directory, with times of change.
    std::set<std::string> state() const {
        std::set<std::string> all;
        for (const auto& entry : std::filesystem::recursive_directory_iterator(directory_.path()))
            all.insert(entry.path().string() + " " +
                       std::to_string(entry.last_write_time().time_since_epoch().count()));
        return all;
    }

    TempDirectory directory_;
};
} // namespace

TEST_F(CheckEndToEnd, WordsThatArentKnownAreOneLineAndStart255) {
    using Case = std::pair<const char*, const char*>;
    for (const auto& [words, says] : {
             Case{"bogus", "255 runtally: The word \"bogus\" isn't known"},
             Case{"status", "255 runtally: The word \"status\" isn't known"},
             Case{"--chek", "did you mean --check?"},
             Case{"--check-config", "did you mean --check?"},
             Case{"-x", "255 "},
             Case{"--check bogus", "255 "},
             Case{"-c", "255 runtally: The option -c has no file behind it"},
             Case{"-c ''", "255 runtally: The option -c has no file behind it"},
             Case{"-c --check", "255 runtally: The option -c has no file behind it"},
             Case{"--json", "255 runtally: The option --json goes with --check"},
         }) {
        const std::string said = run(words);
        EXPECT_NE(said.find(says), std::string::npos) << words << ": " << said;
        EXPECT_EQ(std::count(said.begin(), said.end(), '\n'), 1) << said;
    }
    EXPECT_TRUE(run("--version").starts_with("0 runtally "));
    for (const char* words : {"-h", "--help", "--check --help"})
        EXPECT_TRUE(run(words).starts_with("0 Usage: runtally")) << words;
}

TEST_F(CheckEndToEnd, TheCheckTellsByItsStatusAndChangesNothing) {
    const std::string conf = directory_ / "runtally.conf";
    const auto before = state();
    // Polling by itself may lack rights where the tests run, which are told but for root.
    if (geteuid() == 0) {
        EXPECT_EQ(run("--check"), "0 ");
        EXPECT_EQ(run("--check --json"), "0 []\n");
    }
    EXPECT_EQ(state(), before);
    directory_.write("other.conf", readFile(conf) + "extra (String) = x { }\n");
    for (const std::string& words :
         {"-c " + (directory_ / "other.conf") + " --check", "--check -c" + (directory_ / "other.conf")}) {
        const std::string said = run(words);
        EXPECT_TRUE(said.starts_with("1 ")) << said;
        EXPECT_NE(said.find("other.conf:105: warning: nothing reads the key \"extra\""), std::string::npos) << said;
    }
    directory_.write("include-exclude", "include usr=a\n");
    const std::string said = run("--check --json");
    EXPECT_TRUE(said.starts_with("2 [\n {\"file\": \"" + (directory_ / "include-exclude") +
                                 "\", \"line\": 1, \"severity\": \"error\""))
        << said;
}

TEST_F(CheckEndToEnd, ADirectoryThatMayNotBeWrittenAndMissingRightsAreNamed) {
    if (geteuid() != 0)
        GTEST_SKIP() << "only root can become somebody else";
    change("// events \\(Bool\\) = true \\{", "events (Bool) = true { native (Bool) = true { } }");
    for (const char* made : {"data", "temp", "log"})
        std::filesystem::create_directory(directory_ / made);
    const std::string said =
        run("--check", "setpriv --bounding-set=-all --inh-caps=-all --reuid=65534 --regid=65534 --clear-groups");
    for (const char* part : {"2 ", "error: the directory", "error: process events can't be followed", "CAP_SYS_PTRACE"})
        EXPECT_NE(said.find(part), std::string::npos) << part << " in " << said;
}

} // namespace Velmor
