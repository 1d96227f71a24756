#include "process/naming/ExeFinder.h"
#include "process/naming/IdValues.h"

#include "shared/library/common/files/FileUtils.h"
#include "shared/library/common/text/TextUtils.h"
#include "support/ScriptedPlatform.h"
#include "support/TempDirectory.h"

#include <gtest/gtest.h>

#include <sstream>

namespace Velmor {

namespace {
/// The files of the family's other tools. Where they lie is found once in a program's life, so all tests share it.
class IdValuesTest : public ::testing::Test {
protected:
    IdValuesTest() {
        os.registry.set("InstallDir", shared().path());
        std::filesystem::remove_all(place());
        std::filesystem::create_directories(place());
        static int32_t later = os.clock.now();
        os.clock.set(later += 100000); // the last cleaning lies far back
    }

    static TempDirectory& shared() {
        static TempDirectory directory;
        return directory;
    }
    static std::string place() { return shared() / "Log/temp/"; }
    static void leave(const std::string& name, const std::string& text) { shared().write("Log/temp/" + name, text); }
    static std::string names() { return TempDirectory::namesOf(place()); }

    static std::string textOf(const std::string& user, uint32_t pid) {
        std::string text = user;
        EXPECT_TRUE(getIdValues(user, text, "user id", "project id", pid, "c:\\apps\\cad.exe"));
        return text;
    }

    ScriptedPlatform os;
};

class ExeFinderTest : public ::testing::Test {
protected:
    ApplicationMappings mappings(const std::string& text) {
        ApplicationMappingsReader reader;
        std::istringstream lines(text);
        for (std::string line; std::getline(lines, line);)
            EXPECT_TRUE(reader.addLine(line)) << line;
        return reader.mappings();
    }

    /// Puts a file in place that says this about itself, and returns its path.
    std::string describe(const std::string& name, const std::string& description, const std::string& product) {
        std::filesystem::create_directories(FileUtils::getDirectory(directory / name));
        const std::string path = directory.write(name, "x");
        os.versionResources.describe(toLowerCopy(path), description, product);
        return path;
    }

    ScriptedPlatform os;
    TempDirectory directory;
    ExeFinder finder{SmartPointer<LoggerUnit>()};
};
} // namespace

TEST_F(IdValuesTest, AProcessValueWinsOverThatOfItsUser) {
    os.processes.start(7, "c:\\apps\\cad.exe");
    EXPECT_EQ(textOf("bob", 7), "bob");
    leave("project_id-bob.idval", "who knows\nproject=p1\nmore\n");
    EXPECT_EQ(textOf("bob", 7), "bob|project id=p1");
    leave("user_id-bob-7-cad.exe.idval", "\nid=b=7 ");
    EXPECT_EQ(textOf("bob", 7), "bob|user id=b=7 |project id=p1");
    EXPECT_EQ(textOf("bob", 8), "bob|project id=p1");
    EXPECT_EQ(textOf("alice", 7), "alice");
    leave("project_id-bob-7-cad.exe.idval", "\nproject=");
    EXPECT_EQ(textOf("bob", 7), "bob|user id=b=7 ") << "an empty value hides that of the user";
}

TEST_F(IdValuesTest, DamagedFilesGiveNoValue) {
    for (const char* text : {"", "one line=x", "a\nb", "\n\n=late", "\xff\xfe"}) {
        leave("user_id-bob.idval", text);
        EXPECT_EQ(textOf("bob", 7), "bob") << text;
    }
    leave("user_id-bob.idval", "\nid=" + std::string(5000, 'x'));
    EXPECT_EQ(textOf("bob", 7), "bob") << "more than any tool leaves";
    leave("user_id-bob-7-cad.exe.idval", "\n=v|x:0:\x1b[1m\xc3\xa9");
    std::filesystem::create_directories(place() + "project_id-bob-7-cad.exe.idval");
    EXPECT_EQ(textOf("bob", 7), "bob|user id=v_x_0__[1m\xc3\xa9") << "a directory can't be read, a field not forged";
}

TEST_F(IdValuesTest, FilesOfProcessesThatAreGoneAreCleanedEveryFiveMinutes) {
    os.processes.start(7, "c:\\apps\\cad.exe");
    os.processes.start(8, "c:\\apps\\other.exe");
    os.processes.start(9, "c:\\apps\\cad.exe").openError = NativeError::accessDenied;
    for (const char* name : {"user_id-bob-7-CAD.exe", "user_id-bob-8-cad.exe", "user_id-bob-9-cad.exe",
                             "user_id-bob-10-cad.exe", "user_id-bob", "user_id-jean-luc-7-cad.exe"})
        leave(std::string(name) + ".idval", "\nid=1\n");
    std::filesystem::create_directories(place() + "a-b-11-c.idval");
    const std::string foreign = shared().write("foreign", "");
    std::filesystem::permissions(foreign, std::filesystem::perms::owner_read);
    std::filesystem::create_symlink(foreign, place() + "a-b-12-c.idval");
    const std::string kept = "a-b-11-c.idval a-b-12-c.idval user_id-bob-7-CAD.exe.idval user_id-bob.idval";
    textOf("bob", 7);
    EXPECT_EQ(names(), kept);
    EXPECT_EQ(std::filesystem::status(foreign).permissions(), std::filesystem::perms::owner_read);
    leave("user_id-bob-10-cad.exe.idval", "\nid=1\n");
    os.clock.advance(299);
    textOf("bob", 7);
    EXPECT_NE(names(), kept);
    os.clock.advance(1);
    textOf("bob", 7);
    EXPECT_EQ(names(), kept);
}

TEST_F(ExeFinderTest, WhatTheFileSaysIsCleanedAndElseItsNameCounts) {
    using Case = std::tuple<const char*, const char*, const char*>;
    int number = 0;
    for (const auto& [description, product, application] : {
             Case{"Drawing", "Office", "Drawing"},
             Case{"", "Office", "Office"},
             Case{"Drawing \t APPLICATION", "", "Drawing"},
             Case{"application", "", "application"}, // the word isn't shorter than the name
             Case{"x  application", "", "x "},
             Case{" 7-11 (12)", "", "Tool"}, // no letter
             Case{"123", "Office", "Tool"},
             Case{"Dr\xe4wing", "", "Tool"},
         }) {
        const std::string path = describe(std::to_string(++number) + "/Tool.Exe", description, product);
        EXPECT_EQ(finder.find(path), application) << description << "|" << product;
    }
    EXPECT_EQ(finder.find(""), "[UNDEFINED]");
    EXPECT_EQ(finder.find("/bin/a.b.c"), "a.b");
}

TEST_F(ExeFinderTest, MappingsStandAsStronglyAsTheirKind) {
    finder.setMappings(
        mappings("# comment\n}\nIGNORE\n{\n Noise = x\nnoise.d\n}\nmapAlways\n{\nCAD = Big CAD = 2\n"
                 "bare\nnoise.d=late\n}\nmapmedium\n{\nmid=Middle\n}\nmaplast\n{\nend=Last\n}\nlost=x\n"));
    for (const char* name : {"v/cad", "v/mid", "v/end", "v/Noise.D"})
        describe(name, "Description", "Product");
    describe("p/mid", "77", "Product");
    using Case = std::tuple<const char*, const char*>;
    for (const auto& [path, application] : {
             Case{"x/noise = x.exe", "!"},
             Case{"v/Noise.D", "Description"}, // "noise" is in no block
             Case{"x/NOISE.D.exe", "!"},       // the first entry stays
             Case{"v/cad", "Big CAD = 2"},
             Case{"x/bare.exe", ""},
             Case{"x/mid", "Middle"},
             Case{"p/mid", "Product"}, // a description without a letter is none
             Case{"v/end", "Description"},
         })
        EXPECT_EQ(finder.find(directory / path), application) << path;
}

} // namespace Velmor
