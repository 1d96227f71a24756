#include "platform/linux/files/LinuxFileSystem.h"

#include "platform/Errors.h"
#include "support/NoSync.h"
#include "support/TempDirectory.h"

#include <algorithm>
#include <grp.h>
#include <gtest/gtest.h>
#include <set>
#include <sys/stat.h>
#include <unistd.h>

namespace Velmor {

namespace {
int failure = 0; // the errno with which the call that a test has replaced fails
int callsToPass = 0;

bool mustFail() {
    if (callsToPass-- > 0)
        return false;
    errno = failure;
    return true;
}

class FileSystemTest : public testing::Test {
protected:
    FileSystemTest() { callsToPass = 0; }
    /// Writes through the port; the error, or 0.
    uint32_t write(const std::string& path, OpenMode mode, const std::string& text) {
        const auto file = files.openFile(path, mode, error);
        size_t written = 0;
        if (!file || !file->write(text, written, error) || !file->close(error))
            return error;
        return 0;
    }
    std::string text(const std::string& name) const { return readFile(directory / name); }

    LinuxFileSystem files;
    TempDirectory directory;
    uint32_t error = 0;
    FoundFile found;
    ReplacedCalls calls;
};
} // namespace

TEST_F(FileSystemTest, ModesOpenAsTheySay) {
    using Case = std::tuple<OpenMode, uint32_t, const char*>; // error without the file; what "ab" becomes by "X"
    for (const auto& [mode, missing, written] :
         {Case{OpenMode::write, 0, "X"}, Case{OpenMode::append, 0, "abX"},
          Case{OpenMode::readWrite, NativeError::fileNotFound, "Xb"}, Case{OpenMode::readWriteEmptied, 0, "X"},
          Case{OpenMode::readAppend, 0, "abX"}}) {
        std::filesystem::remove(directory / "new");
        directory.write("old", "ab");
        EXPECT_EQ(write(directory / "new", mode, ""), missing);
        EXPECT_EQ(write(directory / "old", mode, "X"), 0U);
        EXPECT_EQ(text("old"), written);
    }
    EXPECT_EQ(modeOf(directory / "new"), 0640U);
}

TEST_F(FileSystemTest, InAnotherUsersDirectoryRootActsAsThatUser) {
    if (geteuid() != 0)
        GTEST_SKIP() << "only root can be another user";
    constexpr uid_t nobody = 65534;
    const TempDirectory theirs;
    ASSERT_EQ(chown(theirs.path().c_str(), nobody, nobody), 0);
    const gid_t rootsGroup = 0;
    ASSERT_EQ(setgroups(1, &rootsGroup), 0); // as after a login
    const std::string secret = directory.write("secret", "untouched");
    ASSERT_EQ(chmod(secret.c_str(), 0660), 0);
    ASSERT_EQ(chmod(directory.path().c_str(), 0711), 0);
    ASSERT_EQ(symlink(secret.c_str(), (theirs / "link").c_str()), 0);
    EXPECT_EQ(write(theirs / "link", OpenMode::write, "x"), NativeError::accessDenied);
    EXPECT_FALSE(files.copy(directory.write("new", "new"), theirs / "link", true, error));
    EXPECT_EQ(text("secret"), "untouched");
    EXPECT_EQ(write(theirs / "file", OpenMode::write, "x"), 0U);
    EXPECT_TRUE(files.makeDirectory(theirs / "made/", error)) << error;
    for (const char* made : {"file", "made"}) {
        struct stat state {};
        stat((theirs / made).c_str(), &state);
        EXPECT_TRUE(state.st_uid == nobody && state.st_gid == nobody) << made;
    }
    EXPECT_EQ(write(secret, OpenMode::write, "x"), 0U) << "elsewhere it is root again";
}

TEST_F(FileSystemTest, PathsAreTranslatedAtTheLastMoment) {
    std::string path = directory.write("Sub/File.Txt", "x");
    std::replace(path.begin(), path.end(), '/', '\\');
    using Case = std::tuple<std::string, uint32_t, const char*>;
    for (const auto& [asked, wanted, name] : {
             Case{"C:" + path, 0, "File.Txt"},
             Case{"c:" + (directory / "Sub/"), 0, "Sub"},
             Case{directory / "sUB\\fILE.tXT", NativeError::fileNotFound, ""},
             Case{directory / "Sub/other", NativeError::fileNotFound, ""},
             Case{directory / "Sub/File.Txt/x", NativeError::pathNotFound, ""},
         }) {
        found = {};
        EXPECT_EQ(files.find(asked, found, error), wanted == 0) << asked;
        EXPECT_EQ(error, wanted) << asked;
        EXPECT_EQ(found.name, name) << asked;
    }
    EXPECT_FALSE(files.openFile(directory / "sub/file.txt", OpenMode::read, error));
    EXPECT_TRUE(files.findExecutable(directory / "sub\\file.txt")) << "executables come in lower case";
    directory.write("Sub/FILE.TXT", "y");
    EXPECT_FALSE(files.findExecutable(directory / "sub/file.txt")) << "two differ only in case";
    EXPECT_TRUE(files.findExecutable(directory / "Sub/FILE.TXT")) << "the exact name needs no luck";
    directory.write("back\\slash", "z");
    EXPECT_FALSE(files.find(directory / "back\\slash", found, error));
    std::string full;
    ASSERT_TRUE(files.fullPath("C:\\a\\.\\b\\..\\c", full, error));
    EXPECT_EQ(full, "/a/c");
}

TEST_F(FileSystemTest, ScanMatchesStarsAndQuestionMarksOnly) {
    for (const char* name : {"a.data", "b.data", "B.DATA", "[a].data", "c.dat", "d\n.data"})
        directory.write(name, "");
    std::vector<FoundFile> entries;
    EXPECT_TRUE(files.scan(directory.path(), "*.data", entries, error));
    std::set<std::string> names;
    for (const FoundFile& entry : entries)
        names.insert(entry.name);
    EXPECT_EQ(names, (std::set<std::string>{"[a].data", "a.data", "b.data", "d?.data"}));
    EXPECT_FALSE(files.scan(directory / "absent", "*", entries, error));
    EXPECT_EQ(error, NativeError::fileNotFound);
}

TEST_F(FileSystemTest, CopiesNeverLoseWhatIsThere) {
    const std::string from = directory.write("from", std::string(200000, 'a'));
    const std::string to = directory.write("to", "old");
    EXPECT_FALSE(files.copy(from, to, false, error));
    EXPECT_FALSE(files.move(from, to, false, error));
    EXPECT_EQ(error, NativeError::alreadyExists);
    EXPECT_EQ(text("to"), "old");
    EXPECT_TRUE(files.copy(from, to, true, error));
    EXPECT_EQ(text("to"), text("from"));
    EXPECT_FALSE(files.copy(from, from, true, error));
    EXPECT_EQ(text("from").size(), 200000U) << "a file copied on itself stays whole";
    systemCalls().write = [](int, const void*, size_t) -> ssize_t { return mustFail() ? -1 : 0; };
    failure = ENOSPC;
    EXPECT_FALSE(files.copy(from, directory / "half", false, error));
    EXPECT_EQ(directory.names(), "from to");
}

TEST_F(FileSystemTest, AcrossVolumesAMoveIsACopyUnderAnotherNameFirst) {
    const std::string from = directory.write("from", "new");
    const std::string to = directory.write("to", "old");
    ASSERT_EQ(chmod(from.c_str(), 0604), 0);
    systemCalls().rename = [](const char* source, const char* target) {
        if (std::string(source).ends_with("/from")) {
            return failed(EXDEV);
        }
        return ::rename(source, target);
    };
    systemCalls().fdatasync = [](int) { return mustFail() ? -1 : 0; };
    failure = EIO;
    callsToPass = 1; // that of the source
    EXPECT_FALSE(files.move(from, to, true, error));
    EXPECT_EQ(error, NativeError::ioDevice);
    EXPECT_EQ(directory.names(), "from to");
    EXPECT_EQ(text("to"), "old");
    callsToPass = 9;
    EXPECT_TRUE(files.move(from, to, true, error));
    EXPECT_EQ(directory.names(), "to");
    EXPECT_EQ(text("to"), "new");
    EXPECT_EQ(modeOf(to), 0604U);
}

TEST_F(FileSystemTest, AReplacingMoveFlushesDataThenNameThenDirectory) {
    static std::string order;
    order.clear();
    systemCalls().fdatasync = [](int) {
        order += "data ";
        return 0;
    };
    systemCalls().rename = [](const char* from, const char* to) {
        order += "rename ";
        return ::rename(from, to);
    };
    systemCalls().fsync = [](int) {
        order += "directory ";
        return mustFail() ? -1 : 0;
    };
    failure = EIO;
    EXPECT_FALSE(files.move(directory.write("a", "x"), directory / "b", true, error))
        << "it may not survive a power cut";
    EXPECT_EQ(error, NativeError::ioDevice);
    EXPECT_EQ(order, "data rename directory ");
    EXPECT_EQ(text("b"), "x");
}

} // namespace Velmor
