#include "process/naming/ExeFinder.h"

#include "shared/library/common/files/FileUtils.h"
#include "shared/library/common/text/TextUtils.h"
#include "support/ScriptedPlatform.h"
#include "support/TempDirectory.h"

#include <gtest/gtest.h>

#include <sstream>

namespace Velmor {

namespace {
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
