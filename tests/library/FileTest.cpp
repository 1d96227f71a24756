#include "shared/library/common/errors/FileException.h"
#include "shared/library/common/errors/TimeException.h"
#include "shared/library/common/files/BasicFile.h"
#include "shared/library/common/files/FileFactory.h"
#include "shared/library/common/files/FileGZ.h"
#include "shared/library/common/files/FileOps.h"
#include "shared/library/common/files/FilePlain.h"
#include "shared/library/common/files/FileUtils.h"
#include "support/NoSync.h"
#include "support/ScriptedPlatform.h"
#include "support/TempDirectory.h"

#include <gtest/gtest.h>

#include <fcntl.h>
#include <filesystem>
#include <fstream>
#include <functional>
#include <sys/stat.h>

namespace Velmor {

namespace {
constexpr uint16_t safeWrite = FileBase::ACCESS_WRITE | FileBase::ACCESS_TRUNCATE | FileBase::ACCESS_CREATE;

template <typename Operation>
int32_t codeOf(Operation&& operation) {
    try {
        operation();
    } catch (const FileException& failure) {
        return failure.getCode();
    }
    return FL_NONE;
}

class FileTest : public ::testing::Test {
protected:
    ReplacedCalls calls;
    ScriptedPlatform os;
    TempDirectory directory;
};
} // namespace

TEST_F(FileTest, BasicFileReadsLinesAndBlocks) {
    const std::string path = directory.write("a", "one\r\ntw\ro\n\n" + std::string(3000, 'x') + "\nlast");
    BasicFile file;
    EXPECT_TRUE(file.open(path, BasicFile::MODE_READ));
    EXPECT_EQ(file.readLine(), "one");
    EXPECT_EQ(file.readLine(), "two");
    EXPECT_EQ(file.readLine(), "");
    EXPECT_EQ(file.readLine().size(), 3000U);
    EXPECT_EQ(file.readLine(), "last");
    EXPECT_TRUE(file.eof(BasicFile::LAST_USED));
    file.readLine();
    EXPECT_EQ(file.getError(), BasicFile::ERROR_AT_END);
    EXPECT_TRUE(file.seek(-4, BasicFile::FROM_END, BasicFile::READING));
    std::string text;
    EXPECT_TRUE(file.read(text, 100));
    EXPECT_EQ(text, "last");
    EXPECT_FALSE(file.seek(-1, BasicFile::FROM_BEGIN, BasicFile::READING));
    EXPECT_EQ(file.getError(), BasicFile::ERROR_SEEK);
}

TEST_F(FileTest, AFailedWriteLeavesNoHalfText) {
    // What another program appends meanwhile stays.
    for (const auto& [others, left] : {std::pair{"", "whole\n"}, {"other\n", "whole\nother\ntor"}}) {
        FileOps::deleteFile(directory / "f");
        const std::string path = directory / "f";
        BasicFile file;
        ASSERT_TRUE(file.open(path, BasicFile::MODE_APPEND));
        ASSERT_TRUE(file.write("whole\n"));
        std::ofstream(path, std::ios::app) << others;
        static int count;
        count = 0;
        systemCalls().write = [](int descriptor, const void* data, size_t) -> ssize_t {
            if (++count == 1)
                return ::write(descriptor, data, 3); // a short one, and then the disk is full
            return failed(ENOSPC);
        };
        EXPECT_FALSE(file.write("torn record"));
        EXPECT_EQ(file.getError(), BasicFile::ERROR_WRITE);
        systemCalls() = calls.real;
        EXPECT_EQ(readFile(path), left);
        EXPECT_TRUE(file.write("next\n"));
        EXPECT_EQ(readFile(path), left + std::string("next\n"));
    }
}

TEST_F(FileTest, ASafeWriteShowsOnlyWhenItIsClosed) {
    const std::string path = directory.write("f", "old");
    FilePlain file(path);
    file.open(safeWrite);
    EXPECT_EQ(codeOf([&] { file.open(safeWrite); }), FL_IS_OPEN);
    file.write("new", 3);
    EXPECT_EQ(readFile(path), "old") << "and the lock's holding leaves it alone";
    EXPECT_EQ(directory.names(), "f f.lock f.tmp");
    os.clock.advance(1); // writers of one second can't be told apart
    EXPECT_EQ(codeOf([&] { FilePlain(path).open(safeWrite); }), FL_IS_LOCKED);
    file.close();
    file.close();
    EXPECT_EQ(readFile(path), "new");
    file.open(safeWrite);
    EXPECT_TRUE(file.write(std::string("x")));
    file.abort();
    EXPECT_EQ(readFile(path), "new");
    EXPECT_EQ(directory.names(), "f");
}

TEST_F(FileTest, WhateverIsMaskedModesAreExactAndASafeWriteKeepsThem) {
    const std::string paths[] = {directory / "a/plain", directory / "a/x.gz"};
    for (const mode_t mask : {0000U, 0077U}) {
        const mode_t before = umask(mask);
        EXPECT_TRUE(FileUtils::makeDirectories(directory / "a/"));
        for (const uint16_t access : {safeWrite, safeWrite, uint16_t{FileBase::ACCESS_WRITE | FileBase::ACCESS_APPEND}})
            for (const std::string& path : paths) {
                const uint32_t mode = std::filesystem::exists(path) ? 0604 : 0640;
                chmod(path.c_str(), 0604);
                const auto file = FileFactory::create(path);
                file->open(access);
                file->write(std::string("x"));
                file->close();
                EXPECT_EQ(modeOf(path), mode) << path << " with " << mask;
            }
        umask(before);
        EXPECT_EQ(modeOf(directory / "a"), 0750U);
        std::filesystem::remove_all(directory / "a");
    }
}

TEST_F(FileTest, ALockRunsOutByItself) {
    const std::string path = directory.write("f", "x");
    const auto lockOf = [&](int32_t from, int32_t to) {
        directory.write("f.lock", DateTime(from).toString(true, true) + "\n" + DateTime(to).toString(true, true) +
                                      "\n000000Zsomebody..\noriginal\n");
    };
    const int32_t now = os.clock.now();
    lockOf(now, now + 30);
    EXPECT_FALSE(LockFile(path).release());
    EXPECT_EQ(codeOf([&] { FilePlain(path).open(safeWrite); }), FL_IS_LOCKED);
    os.clock.advance(30);
    LockFile lock(path);
    EXPECT_TRUE(lock.isLocked());
    EXPECT_TRUE(lock.release());
    EXPECT_EQ(directory.names(), "f");
    EXPECT_TRUE(lock.lock(TimeSpan(30), true));
    const std::string text = readFile(directory / "f.lock");
    EXPECT_EQ(text.substr(0, 41), "20010909T014710Z\n20010909T014740Z\n014710Z");
    EXPECT_EQ(text.substr(51), "\noriginal\n");
    for (const std::string& damaged : {std::string(), DateTime(now).toString(true, true) + "\n"}) {
        directory.write("f.lock", damaged);
        EXPECT_FALSE(LockFile(path).release()) << "what can't be read is not proven dead";
    }
    for (const char* damaged : {"rubbish\n", "\n\n"}) {
        directory.write("f.lock", damaged);
        EXPECT_THROW(LockFile{path}, TimeException);
    }
}

TEST_F(FileTest, WhatTheDiskHasNotTakenIsToldAndKeepsItsTemporaryName) {
    static int count;
    const auto failOnce = [](int) { return ++count > 1 ? 0 : failed(EIO); }; // as the kernel tells it
    const auto failAlways = [](const char*, const char*) { return ++count > 10 ? 0 : failed(EIO); };
    using Case = std::tuple<std::function<void(SystemCalls&)>, const char*, int32_t, int32_t>;
    for (const auto& [replace, finalName, code, patience] : {
             Case{[&](auto& called) { called.fdatasync = failOnce; }, "", FL_RENAME, 0},
             Case{[&](auto& called) { called.fdatasync = failOnce; }, "final", FL_RENAME, 0},
             Case{[&](auto& called) { called.close = failOnce; }, "", FL_CANNOT_CLOSE, 0},
             Case{[&](auto& called) { called.rename = failAlways; }, "", FL_RENAME, 20},
         }) {
        const TempDirectory place;
        FilePlain file(place / "f");
        file.open(safeWrite);
        file.write("data", 4);
        file.setFinalName(*finalName ? place / finalName : std::string());
        count = 0;
        replace(systemCalls());
        const int32_t begin = os.clock.now();
        EXPECT_EQ(codeOf([&] { file.close(); }), code);
        systemCalls() = calls.real;
        EXPECT_GE(os.clock.now() - begin, patience);
        EXPECT_TRUE(patience == 0 || count == 10) << count;
        EXPECT_EQ(place.names(), "f f.tmp");
        EXPECT_EQ(readFile(place / "f.tmp"), "data");
        file.open(safeWrite);
        file.write("next", 4);
        EXPECT_EQ(codeOf([&] { file.close(); }), FL_NONE) << "the failure is over";
        EXPECT_EQ(readFile(place / "f"), "next");
        file.open(safeWrite);
        std::filesystem::remove(place / "f.tmp");
        EXPECT_EQ(codeOf([&] { file.close(); }), FL_RENAME) << "what has vanished was not moved";
    }
}

TEST_F(FileTest, WhatCantBeDoneHasItsCode) {
    char byte = 0;
    std::string text;
    const std::function<void(FileBase&)> deeds[] = {
        [&](FileBase& file) { file.read(&byte, 1); }, [&](FileBase& file) { file.readLine(text); },
        [](FileBase& file) { file.write("x", 1); }, [](FileBase& file) { file.seek(-1, FileBase::OFFSET_BEGIN); },
        [&](FileBase& file) { file.read(text, 9), file.readLine(text); }};
    constexpr uint16_t write = FileBase::ACCESS_WRITE | FileBase::ACCESS_UNSAFE | FileBase::ACCESS_NOLOCK;
    using Case = std::tuple<const char*, uint16_t, std::vector<int32_t>>;
    for (const auto& [name, access, codes] : {
             Case{"x", 0, {FL_IS_CLOSED, FL_IS_CLOSED, FL_IS_CLOSED, FL_IS_CLOSED, FL_READ}},
             Case{"x", FileBase::ACCESS_READ, {0, 0, FL_CANNOT_WRITE, FL_POSITION, FL_EOF}},
             Case{"x", write, {FL_READ, FL_CANNOT_READ, 0, FL_POSITION, FL_READ}},
             Case{"x.gz", 0, {FL_IS_CLOSED, FL_IS_CLOSED, FL_IS_CLOSED, FL_IS_CLOSED, FL_IS_CLOSED}},
             Case{"x.gz", FileBase::ACCESS_READ, {0, 0, FL_CANNOT_WRITE, FL_POSITION, FL_EOF}},
             Case{"x.gz", write, {FL_READ, FL_CANNOT_READ, 0, FL_ERROR, FL_READ}},
         }) {
        std::vector<int32_t> met;
        for (const auto& deed : deeds) {
            const auto file = FileFactory::create(directory.write(name, "a\n"));
            if (access != 0)
                file->open(access);
            met.push_back(codeOf([&] { deed(*file); }));
        }
        EXPECT_EQ(met, codes) << name << " " << access;
    }
    for (const uint16_t access : {0, FileBase::ACCESS_READ | FileBase::ACCESS_CREATE,
                                  FileBase::ACCESS_WRITE | FileBase::ACCESS_TRUNCATE | FileBase::ACCESS_APPEND})
        EXPECT_EQ(codeOf([&] { FilePlain(directory / "x").open(access); }), FL_ACCESS_COMB) << access;
    EXPECT_EQ(codeOf([&] { FileGZ(directory / "x.gz").open(FileBase::ACCESS_READ | write); }), FL_ACCESS_COMB);
    for (const char* name : {"none", "none.gz"})
        EXPECT_EQ(codeOf([&] { FileFactory::create(directory / name)->open(FileBase::ACCESS_READ); }), FL_EXISTS_NOT);
}

TEST_F(FileTest, ReadsTellHowMuchCameAndATextEndsAtItsZero) {
    FilePlain file(directory.write("x", std::string("ab\0cd\nef", 8)));
    file.open(FileBase::ACCESS_READ);
    std::string buffer(6, 'x');
    EXPECT_EQ(file.read(buffer.data(), 5), 5U);
    EXPECT_EQ(buffer, std::string("ab\0xxx", 6));
    EXPECT_EQ(file.seek(-2, FileBase::OFFSET_END), 6);
    EXPECT_EQ(file.tell(), 6);
    EXPECT_FALSE(file.read(buffer, 9)) << "fewer than asked for";
    EXPECT_EQ(buffer, "ef");
    EXPECT_TRUE(file.eof());
    FileGZ compressed(directory / "y.gz");
    compressed.open(safeWrite);
    EXPECT_TRUE(compressed.write(std::string("ab")));
    EXPECT_EQ(compressed.seek(2, FileBase::OFFSET_CURRENT), 4) << "forward only";
}

TEST_F(FileTest, TheSystemsAnswersAreTakenOver) {
    const std::string path = directory.write("x", "four");
    const timespec times[] = {{1000000000, 0}, {1000000001, 0}};
    ASSERT_EQ(utimensat(AT_FDCWD, path.c_str(), times, 0), 0);
    int64_t change = 0;
    EXPECT_TRUE(FileOps::lastChange(path, change));
    EXPECT_EQ(change, 1000000001);
    EXPECT_FALSE(FileOps::lastChange(directory / "none", change));
    FileInfo info;
    FileOps::getInfo(path, info);
    EXPECT_EQ(DateTime(info.modified).getSeconds(), change);
    EXPECT_TRUE(info.exists && info.sizeLow == 4 && info.sizeHigh == 0 && info.fullPath == path);
    EXPECT_EQ(info.attributes & InfoAttribute::readOnly, 0U);
    EXPECT_TRUE(FileOps::setAttributes(path, InfoAttribute::readOnly));
    FileOps::getInfo(path, info);
    EXPECT_NE(info.attributes & InfoAttribute::readOnly, 0U);
    FileOps::getInfo(directory / "none", info);
    EXPECT_FALSE(info.exists);
}

TEST_F(FileTest, OldContentComesThroughAnAppend) {
    FileGZ file(directory / "x.gz");
    for (const size_t size : {0, 1023, 1024, 1025, 10000}) {
        const std::string old(size, 'a');
        for (const auto& [text, access] :
             {std::pair{old, safeWrite}, {"tail", uint16_t{FileBase::ACCESS_WRITE | FileBase::ACCESS_APPEND}}}) {
            file.open(access);
            file.write(text);
            file.close();
        }
        EXPECT_EQ(directory.names(), "x.gz");
        file.open(FileBase::ACCESS_READ);
        std::string text(20000, ' ');
        text.resize(file.read(text.data(), text.size()));
        file.close();
        EXPECT_EQ(text, old + "tail") << size;
    }
}

} // namespace Velmor
