#include "platform/linux/family/LinuxRegistry.h"

#include "platform/Errors.h"
#include "platform/linux/family/Directories.h"
#include "support/RuntimeFixture.h"

#include <sys/stat.h>

namespace Velmor {

namespace {
class RegistryTest : public RuntimeFixture {
protected:
    /// Type and bytes of a value; "none" if there isn't one.
    std::string read(const std::string& name) {
        uint32_t type = 0;
        std::string data;
        if (!registry.read(name, type, data, error))
            return error == NativeError::fileNotFound ? "none" : "error";
        return std::to_string(type) + ":" + data;
    }

    LinuxRegistry registry;
    uint32_t error = 0;
    std::string cause;
};
} // namespace

TEST_F(RegistryTest, ValuesComeWithTheirTypesAsTheFileHoldsThemNow) {
    directory.write("resources.toml",
                    "InstallDir = \"/opt/\\u00e4 \\\"x\\\"\"\nLevel = -2\nParts = [\"a\", \"\", \"b\"]\n"
                    "Empty = \"\"\n[table]\nDeep = \"x\"\n");
    EXPECT_EQ(read("InstallDir"), "1:/opt/\xc3\xa4 \"x\"");
    EXPECT_EQ(read("Level"), std::string("4:\xfe\xff\xff\xff"));
    EXPECT_EQ(read("Parts"), std::string("7:a\0\0b\0", 7));
    EXPECT_EQ(read("Empty"), "1:");
    EXPECT_EQ(read("table"), "none");
    directory.write("resources.toml", "Empty = \"full\"\n");
    EXPECT_EQ(read("Empty"), "1:full") << "a changed file is read again";
    EXPECT_EQ(read("Level"), "none");
}

TEST_F(RegistryTest, WrittenValuesWinAndTheAdministratorsFileStaysAsItIs) {
    const std::string text = "LogCounter = \"1\"\nInstallDir = \"/opt\"\n";
    const std::string path = directory.write("resources.toml", text);
    const std::string nasty = "\"7\"\n# \\ '''\t\xc3\xa4";
    ASSERT_TRUE(registry.writeText("LogCounter", nasty, error)) << error;
    ASSERT_TRUE(registry.writeText("JOB_Runtally", "12", error)) << error;
    EXPECT_EQ(read("LogCounter"), "1:" + nasty);
    EXPECT_EQ(read("InstallDir"), "1:/opt");
    EXPECT_EQ(readFile(path), text);
    EXPECT_FALSE(registry.writeText("LogCounter", "\xff", error)) << "no text that the file could hold";
    ASSERT_TRUE(LinuxRegistry().writeText("JOB_Runtally", "13", error));
    EXPECT_EQ(read("LogCounter"), "1:" + nasty) << "what others wrote stays";
    EXPECT_EQ(read("JOB_Runtally"), "1:13") << "what another program wrote is seen";
}

TEST_F(RegistryTest, TheServiceManagersDirectoriesCountWithoutOnesOfOurOwn) {
    using Case = std::tuple<const char*, const char*, std::string (*)()>;
    for (const auto& [ours, managers, answer] : {Case{"VELMOR_STATE_DIR", "STATE_DIRECTORY", stateDirectory},
                                                 Case{"VELMOR_RUNTIME_DIR", "RUNTIME_DIRECTORY", runtimeDirectory}}) {
        setenv(managers, "/first:/second", 1);
        EXPECT_EQ(answer(), std::getenv(ours));
        unsetenv(ours);
        EXPECT_EQ(answer(), "/first");
        unsetenv(managers);
        EXPECT_TRUE(answer().ends_with("/velmor")) << answer();
    }
}

TEST_F(RegistryTest, TheCauseNamesFileAndLineOrWhatToDo) {
    EXPECT_FALSE(registry.isReadable(cause));
    EXPECT_NE(cause.find("VELMOR_RESOURCES"), std::string::npos) << cause;
    for (const char* value : {"2147483648", "1.5", "true", "[1, 2]", "{ x = \"y\" }"}) {
        directory.write("resources.toml", std::string("A = \"1\"\n\nLevel = ") + value + "\n");
        EXPECT_FALSE(registry.isReadable(cause)) << value;
        EXPECT_NE(cause.find("line 3 (Level"), std::string::npos) << cause;
    }
    for (const char* line : {"B = = 2", "[\xEF\xBB\xBF_]", "\xCE\xA2\xCE\xA2 = 1"}) { // foreign letters in a name
        const std::string path = directory.write("resources.toml", std::string("A = \"1\"\n") + line + "\n");
        EXPECT_FALSE(registry.isReadable(cause)) << line;
        EXPECT_NE(cause.find(path), std::string::npos) << cause;
        EXPECT_NE(cause.find("line 2"), std::string::npos) << cause;
        EXPECT_EQ(cause.find('\n'), std::string::npos);
    }
    setenv("VELMOR_RESOURCES", directory.path().c_str(), 1);
    EXPECT_FALSE(registry.isReadable(cause)) << "a directory";
}

TEST_F(RegistryTest, ADamagedFileOfOursIsToldAndNotWrittenOver) {
    directory.write("resources.toml", "A = \"1\"\n");
    const std::string path = directory.write("state/resources.toml", "LogCounter = \"5\"\nB = [\n");
    EXPECT_FALSE(registry.isReadable(cause));
    EXPECT_NE(cause.find(path), std::string::npos) << cause;
    EXPECT_FALSE(registry.writeText("LogCounter", "6", error));
    EXPECT_TRUE(readFile(path).starts_with("LogCounter = \"5\""));
    EXPECT_EQ(read("A"), "1:1");
}

} // namespace Velmor
