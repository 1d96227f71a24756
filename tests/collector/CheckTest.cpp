// What "runtally --check" finds: each mistake by its file and line, and nothing in what is well.

#include "collector/CollectorFixture.h"

#include "programs/collectors/agent/Win32/Runtally/check/ConfigurationCheck.h"
#include "programs/collectors/agent/Win32/Runtally/check/KeyCheck.h"
#include "support/DataFiles.h"

#include <algorithm>
#include <filesystem>
#include <regex>

namespace Velmor {

namespace {
/// Lines of a configuration with all keys; "@" stands for its directory.
const std::vector<std::string> wholeConfiguration{
    R"(Velmor () = "" { directories () = "" {)",
    R"(conf (DirName) = "@" { })",
    R"(log (DirName) = "@/log" { })",
    R"(temp (DirName) = "@/temp" { })",
    R"(} })",
    R"(log () = "" { time (String) = local { })",
    R"(rotation () = "" { scheme (String) = size { })",
    R"(size (Integer) = 10 { })",
    R"(time (TimeSpan) = P7D { } })",
    R"(global () = "" { severity (String) = NOTICE { })",
    R"(debug-level (Integer) = 0 { } } })",
    R"(runtally () = "" { log () = "" { debug-level (Integer) = 1 { } })",
    R"(interval (TimeSpan) = P12H {)",
    R"(performance-monitor (TimeSpan) = P1H { } })",
    R"(working-dir (DirName) = "@/data" { })",
    R"(include-exclude (FileName) = "@/include-exclude" { })",
    R"(primetime-file (FileName) = "@/primetime" { })",
    R"(logging () = "" { process-data () = "" {)",
    R"(polling (Bool) = true {)",
    R"(interval (TimeSpan) = P5M { } })",
    R"(events (Bool) = true {)",
    R"(native (Bool) = true { } })",
    R"(log-to-file (Bool) = true {)",
    R"(delete-after-days (Integer) = 7 { } } })",
    R"(module-data (Bool) = true {)",
    R"(interval (TimeSpan) = P1M {)",
    R"(filter (FileName) = "@/runtally_modpoller.conf" { } } })",
    R"(performance-monitor (Bool) = true {)",
    R"(interval (TimeSpan) = P5S { })",
    R"(counters (FileName) = "@/Runtally_Counters.conf" { })",
    R"(rules (FileName) = "@/Runtally_ProcessRules.conf" { } })",
    R"(} })",
};

/// A file with a mistake, and a part of what is said of it.
struct Mistake {
    std::string text;
    int line; // that is named
    const char* says;
};

/// The same of one line of the configuration above.
struct ConfMistake {
    int line;
    const char* text; // in its place
    const char* says;
    int named = 0; // the line, if it is another one
};

class CheckTest : public RuntimeFixture {
protected:
    CheckTest() {
        std::filesystem::copy(VELMOR_SOURCES "/examples/etc/velmor", directory.path(),
                              std::filesystem::copy_options::recursive);
        writeResources("");
        writeConfiguration(wholeConfiguration);
    }
    void writeResources(const std::string& more) {
        directory.write("resources.toml", "ConfigurationDir = \"" + directory.path() + "\"\n" + more);
    }
    void writeConfiguration(const std::vector<std::string>& lines) {
        std::string text;
        for (const std::string& line : lines)
            text += line + '\n';
        write("runtally.conf", text);
    }
    void write(const std::string& file, const std::string& text) {
        directory.write(file, std::regex_replace(text, std::regex("@"), directory.path()));
    }
    Findings check(ConfigurationCheck::Kept kept = {}) {
        ConfigurationCheck checking(kept);
        if (checking.checkResources())
            checking.checkConfiguration(directory / "runtally.conf", directory.path());
        return checking.findings();
    }
    /// Whether one of the findings is in that line of that file and says that.
    testing::AssertionResult names(const std::string& file, int line, const std::string& says) {
        const std::string found = check().text();
        const std::string place = (directory / file) + ":" + std::to_string(line) + ": ";
        for (const std::string& each : linesOf(found))
            if (each.starts_with(place) && each.find(says) != std::string::npos)
                return testing::AssertionSuccess();
        return testing::AssertionFailure() << place << says << "\nis not in:\n" << found;
    }
    /// Each of these as the text of that file.
    void expectNamed(const std::string& file, const std::vector<Mistake>& mistakes) {
        const std::string whole = readFile(directory / file);
        EXPECT_EQ(check().text(), "") << "without a mistake";
        for (const Mistake& mistake : mistakes) {
            write(file, mistake.text);
            EXPECT_TRUE(names(file, mistake.line, mistake.says)) << mistake.text;
        }
        directory.write(file, whole);
    }
};
} // namespace

TEST_F(CheckTest, TheExamplesAndAWholeConfigurationAreClean) {
    EXPECT_EQ(check().text(), "");
    EXPECT_EQ(check().json(), "[]\n");
    std::string text = readFile(VELMOR_SOURCES "/examples/etc/velmor/runtally.conf");
    text = std::regex_replace(text, std::regex("/etc/velmor|/var/lib/velmor"), directory.path());
    text = std::regex_replace(text, std::regex("\\(Bool\\) = false"), "(Bool) = true");
    write("runtally.conf", text);
    EXPECT_EQ(check().text(), "") << "all that is off in it turned on";
    EXPECT_EQ(check().exitStatus(), 0);
    for (const char* made : {"log", "temp", "data", "Log", "state", "run"})
        EXPECT_FALSE(std::filesystem::exists(directory / made)) << made << ": nothing is made";
}

TEST_F(CheckTest, MistakesInTheConfigurationAreNamed) {
    for (const auto& [line, text, says, named] : std::vector<ConfMistake>{
             // words and types
             {1, "velmor () = '' { directories () = '' {", "did you mean Velmor?"},
             {1, "Velmor () = '' { directory () = '' {", "did you mean directories?"},
             {4, "tmp (DirName) = '@/temp' { }", "did you mean temp?"},
             {4, "tmp (DirName) = '@/temp' { }", "error: the key Velmor.directories.temp is missing", 1},
             {4, "temp (FileName) = '@/temp' { }", "write (DirName)"},
             {4, "temp (DirName) = '' { }", "is empty"},
             {6, "logg () = '' { time (String) = local { }", "did you mean log?"},
             {6, "log () = '' { time (String) = lokal { }", "did you mean local?"},
             {6, "log () = '' { tme (String) = local { }", "did you mean time?"},
             {7, "rotation () = '' { scheme (String) = sise { }", "did you mean size?"},
             {7, "rotation () = '' { scheme (String) = 'size,tme' { }", "did you mean time?"},
             {7, "rotation () = '' { scheme (string) = size { }", "write (String)"},
             {8, "size (Integer) = ten { }", "0 is taken"},
             {8, "size (Integer) = 10M { }", "10 is taken"},
             {8, "size (Integer) = 0 { }", "is too little"},
             {8, "size (Integer) = -5 { }", "is too little"},
             {8, "siz (Integer) = 10 { }", "has no log.rotation.size", 7},
             {9, "time (TimeSpan) = 7D { } }", "is no time span"},
             {10, "global () = '' { severity (String) = notice { }", "did you mean NOTICE?"},
             {10, "global () = '' { severity (String) = WARN { }", "did you mean WARNING?"},
             {11, "debug-level (Integer) = 9 { } } }", "write 0 to 5"},
             {11, "debuglevel (Integer) = 1 { } } }", "did you mean debug-level?"},
             {12, "runtaly () = '' { log () = '' { debug-level (Integer) = 1 { } }", "did you mean runtally?"},
             {13, "interval (TimeSpan) = \"12h\" {", "is no time span"},
             {13, "interval (TimeSpan) = P12 {", "is only read in part"},
             {13, "interval (TimeSpan) = P12h {", "is only read in part"},
             {13, "interval (TimeSpan) = PT12H {", "is only read in part"},
             {13, "interval (TimeSpan) = P1H2H {", "is only read in part"},
             {13, "interval (TimeSpan) = 'P12 H' {", "is only read in part"},
             {13, "interval (TimeSpan) = '' {", "no interval above zero"},
             {13, "interval (TimeSpan) = P0 {", "no interval above zero"},
             {13, "interval (TimeSpan) = P-1H {", "no interval above zero"},
             {13, "interval (TimeSpan) = P24856D {", "no interval above zero"},
             {13, "interval (Timespan) = P12H {", "write (TimeSpan)"},
             {13, "interval (Integer) = 43200 {", "write (TimeSpan)"},
             {13, "interval () = P12H {", "without a type"},
             {13, "intervall (TimeSpan) = P12H {", "did you mean"},
             {14, "performance-monitr (TimeSpan) = P1H { } }", "did you mean performance-monitor?"},
             {15, "workingdir (DirName) = '@/data' { }", "did you mean working-dir?"},
             {15, "working-dir (DirName) = data { }", "is no whole path"},
             {15, "working-dir (DirName) = '${Velmor.directories.dat}x' { }", "which has no value"},
             {15, "working-dir (DirName) = '${Velmor.directories.tmp}x' { }", "did you mean Velmor.directories.temp?"},
             {15, "working-dir (DirName) = '${Velmor.directories.temp' { }", "without its }"},
             {15, "working-dir (DirName) = '${runtally.working-dir}x' { }", "leads back to itself"},
             {15, "working-dir (DirName) = '@/primetime/x' { }", "error: the directory"},
             {15, "working-dir (DirName) = '@\\data' { }", "single backslash"},
             {15, "working-dir (DirName) = /tmp/M\xC3\xBCller { }", "letter beyond ASCII"},
             {15, "working-dir (DirName) = '/tmp/M\xFCller' { }", "isn't UTF-8"},
             {16, "include-exclude (FileName) = '@/none' { }", "error: the file"},
             {16, "include-exclude (FileName) = '@/' { }", "is no file name"},
             {16, "include-exclude (FileName) = '@/*' { }", "is no file name"},
             {16, "include-exclude (String) = '@/include-exclude' { }", "write (FileName)"},
             {16, "include_exclude (FileName) = '@/include-exclude' { }", "did you mean include-exclude?"},
             {16, "", "error: no rule file is named", 12},
             {17, "primetime-file (FileName) = '@/prime' { }", "isn't there"},
             {17, "primetime (FileName) = '@/primetime' { }", "did you mean primetime-file?"},
             {18, "loging () = '' { process-data () = '' {", "did you mean logging?"},
             {18, "logging () = '' { process-dat () = '' {", "did you mean process-data?"},
             {19, "polling (Bool) = True {", "neither true nor false"},
             {19, "polling (Bool) = yes {", "neither true nor false"},
             {19, "polling (Bool) = 1 {", "neither true nor false"},
             {19, "polling (bool) = true {", "write (Bool)"},
             {19, "pollng (Bool) = true {", "did you mean polling?"},
             {19, "Polling (Bool) = true {", "did you mean polling?"},
             {19, "polling (Bool) = true { } polling (Bool) = false {", "is given twice side by side"},
             {20, "intervl (TimeSpan) = P5M { } }", "did you mean interval?"},
             {20, "interval (TimeSpan) = 5M { } }", "is no time span"},
             {21, "event (Bool) = true {", "did you mean events?"},
             {21, "events (Bool) = false {", "native without events does nothing", 22},
             {22, "nativ (Bool) = true { } }", "did you mean native?"},
             {22, "native (Bool) = false { } }", "events without native do nothing", 21},
             {22, "native (String) = true { } }", "write (Bool)"},
             {23, "log-to-fil (Bool) = true {", "did you mean log-to-file?"},
             {24, "delete-after-day (Integer) = 7 { } } }", "did you mean delete-after-days?"},
             {24, "delete-after-days (TimeSpan) = P7D { } } }", "write (Integer)"},
             {24, "delete-after-days (Integer) = seven { } } }", "0 is taken"},
             {25, "module_data (Bool) = true {", "did you mean module-data?"},
             {27, "filters (FileName) = '@/runtally_modpoller.conf' { } } }", "did you mean filter?"},
             {27, "filter (FileName) = '@/modpoller.conf' { } } }", "isn't there"},
             {28, "perfmonitor (Bool) = true {", "did you mean"},
             {30, "counters (FileName) = '@/Counters.conf' { }", "error: the file"},
             {30, "counter (FileName) = '@/Runtally_Counters.conf' { }", "did you mean counters?"},
             {31, "rule (FileName) = '@/Runtally_ProcessRules.conf' { } }", "did you mean rules?"},
             {31, "rules (FileName) = '@/none' { } }", "error: the file"},
             {12, "runtally () = '' { polling (Bool) = true { }",
              "did you mean runtally.logging.process-data.polling?"},
             // the language
             {5, "}", "error: the block of \"Velmor\" never closes", 1},
             {5, "} } }", "error: a \"}\" closes nothing, and ends the reading"},
             {32, "}", "error: the block of \"runtally\" never closes", 12},
             {32, "} } extra (String) = x", "isn't whole at the end"},
             {32, "} } /* open", "a comment never ends"},
             {15, "working-dir (DirName) = \"@/data { }", "goes on in the next line"},
             {31, "rules (FileName) = '@/x { } }", "error: a quoted text never ends"},
             {15, "working-dir DirName = '@/data' { }", "error: Missing '('"},
             {15, "working-dir (DirName = '@/data' { }", "error: Missing ')'"},
             {15, "working-dir (DirName) '@/data' { }", "error: Missing '='"},
             {15, "working-dir (DirName) = '@/data'", "error: Missing '{'"},
             {15, "working-dir (DirName) = /a b { }", "error: Missing '{'"},
             {15, "working-dir (DirName) = { }", "error: Missing '{'"},
             {15, "; comment", "error: Missing '('"},
         }) {
        std::vector<std::string> lines = wholeConfiguration;
        lines[static_cast<size_t>(line) - 1] = text;
        writeConfiguration(lines);
        EXPECT_TRUE(names("runtally.conf", named > 0 ? named : line, says)) << text;
        if (std::string(says).starts_with("error: Missing")) {
            EXPECT_EQ(check().text().find("so n"), std::string::npos) << "a consequence of it is told as well";
        }
    }
    std::vector<std::string> lines = wholeConfiguration;
    lines[18] = "polling (Bool) = false {";
    lines[20] = "events (Bool) = false {";
    writeConfiguration(lines);
    EXPECT_TRUE(names("runtally.conf", 19, "error: no source of processes is on"));
    lines[18] = "poling (Bool) = true {";
    lines[20] = "event (Bool) = true {";
    writeConfiguration(lines);
    EXPECT_TRUE(names("runtally.conf", 18, "error: no source of processes is on"));
    EXPECT_FALSE(check({true, false, false}).hasErrors()) << "one that stays on without its key";
    directory.write("runtally.conf", "\xFF\xFEV");
    EXPECT_TRUE(names("runtally.conf", 1, "UTF-16"));
    std::filesystem::remove(directory / "runtally.conf");
    EXPECT_TRUE(names("runtally.conf", 1, "can't be read"));
}

TEST_F(CheckTest, MistakesInRulesAreNamed) {
    expectNamed("include-exclude",
                {
                    {"", 1, "error: the file has no rules"},
                    {"# nothing\n", 1, "error: no rule can include"},
                    {"exclude datatype=*\n", 1, "error: no rule can include"},
                    {"exclude datatype=*\ninclude user=a\n", 2, "is never reached, since that of line 1"},
                    {"include user=*\ninclude user=bob\n", 2, "is never reached"},
                    {"include app=*\ninclude user=a\n", 2, "is never reached"},
                    {"exclude user=svc*\ninclude user=svc* app=x\n", 2, "is never reached"},
                    {"includ user=a\n", 1, "did you mean include?"},
                    {"Include user=a\n", 1, "did you mean include?"},
                    {"exlude user=a\ninclude user=b\n", 1, "did you mean exclude?"},
                    {"includes user=a\n", 1, "error: Invalid status"},
                    {"ref office\n{\nuser=a\n}\n", 1, "did you mean ref:?"},
                    {"include usr=a\n", 1, "did you mean user?"},
                    {"include User=a\n", 1, "did you mean user?"},
                    {"include\n{\naplication=a\n}\n", 3, "Invalid key"},
                    {"include durration=3\n", 1, "did you mean duration?"},
                    {"include user=a  app=b\n", 1, "exactly one blank"},
                    {"include user = a\n", 1, "none around ="},
                    {"include user=a # his\n", 1, "comments on lines of their own"},
                    {"include user=a #x=y\n", 1, "comments on lines of their own"},
                    {"include app=Adobe Reader\n", 1, "\"Reader\" is no condition"},
                    {"include everything\n", 1, "\"everything\" is no condition"},
                    {"include {\nuser=a\n}\n", 1, "{ alone on the next line"},
                    {"include user=a,b app=\"x y\n", 1, "a quote never ends"},
                    {"include\n{\nuser=\"a\n}\n", 3, "a quote within a value"},
                    {"include\nuser=a\n", 2, "error: Missing '{'"},
                    {"include\n{\nuser=a\n", 3, "error: Missing '}'"},
                    {"include\n{\n}\ninclude datatype=*\n", 1, "leaves no rule"},
                    {"ref:a\n{\n}\ninclude datatype=*\n", 1, "is dropped"},
                    {"include\n{\nuser\n}\n", 3, "has no value"},
                    {"include user=\n", 1, "an empty pattern fits nothing"},
                    {"include ref=office\ninclude app=*\n", 1, "there is no block ref:office"},
                    {"ref:office\n{\nuser=a\n}\ninclude ref=ofice\ninclude app=*\n", 5, "did you mean office?"},
                    {"ref:a\n{\nuser=a\n}\nref:a\n{\nuser=b\n}\ninclude ref=a\n", 5, "replaces that of line 1"},
                    {"ref:a\n{\nref=b\n}\nref:b\n{\nref=a\n}\ninclude ref=a\n", 1, "leads back to itself"},
                    {"ref:a\n{\nref=a\nuser=x\n}\ninclude ref=a\n", 1, "leads back to itself"},
                    {"ref:a\n{\nuser=a\n}\ninclude app=*\n", 1, "is used by no rule"},
                    {"ref: a\n{\nuser=a\n}\ninclude ref=a\n", 1, "begins with a blank"},
                    {"ref:a\n{\nwdays=mon\n}\ninclude ref=a\n", 1, "times alone"},
                    {"include datatype=usage\ninclude app=*\n", 1, "no record has the datatype"},
                    {"include datatype=runtaly\n", 1, "did you mean runtally?"},
                    {"include datatype=modul\ninclude app=*\n", 1, "did you mean module?"},
                    {"include before=tomorrow\n", 1, "error: Invalid date-time"},
                    {"include before=2030-13-01\n", 1, "2030-13-01"},
                    {"include before=2030-1-31\n", 1, "is no date"},
                    {"include before=2099-12-31T25:00\n", 1, "2099-12-31T25:00"},
                    {"include before=31.12.2099\n", 1, "31.12.2099"},
                    {"include before=2001-01-31\ninclude app=*\n", 1, "that moment is past"},
                    {"include after=2031-01-01 before=2030-12-31\ninclude app=*\n", 1, "exclude each other"},
                    {"include wdays=Mon\n", 1, "did you mean mon?"},
                    {"include wdays=mon-fri\n", 1, "error: Invalid week day"},
                    {"include wdays=monday\n", 1, "did you mean mon?"},
                    {"include wdays=\ninclude app=*\n", 1, "it names no day"},
                    {"include wdays=mon wdays=tue\ninclude app=*\n", 1, "exclude each other"},
                    {"include before-tod=25\n", 1, "is no time of day"},
                    {"include after-tod=8:75\n", 1, "is no time of day"},
                    {"include after-tod=8h\n", 1, "error: Invalid time-of-day"},
                    {"include before-tod=8:00am\n", 1, "error: Invalid time-of-day"},
                    {"include after-tod=18 before-tod=8\ninclude app=*\n", 1, "exclude each other"},
                    {"include before-tod=0\ninclude app=*\n", 1, "nothing is before midnight"},
                    {"include duration=1m\n", 1, "error: Invalid numerical value"},
                    {"include duration=--5\n", 1, "is no number"},
                    {"include cpu=1.2.3\n", 1, "is no number"},
                    {"include duration=60 duration=-30\ninclude app=*\n", 1, "exclude each other"},
                    {"include user=a user=b\ninclude app=*\n", 1, "exclude each other"},
                    {"include datatype=module cpu=1\ninclude app=*\n", 1, "no kind of record"},
                    {"include module=libx* memory=9\ninclude app=*\n", 1, "no kind of record"},
                    {"include group=staff\ninclude app=*\n", 1, "no record tells a group"},
                    {"include platform=unix\ninclude app=*\n", 1, "no platform is called"},
                    {"include arch=x86_64\ninclude app=*\n", 1, "write amd64"},
                    {"include os=Linux\ninclude app=*\n", 1, "no system is called just"},
                    {"include exe=/opt/MyTool/*\ninclude app=*\n", 1, "in lower case"},
                    {"include exe=usr/bin/*\ninclude app=*\n", 1, "begin it with / or *"},
                    {"include exe=bash\ninclude app=*\n", 1, "write exe=*/bash"},
                    {"include app=M\xFCller\ninclude user=*\n", 1, "isn't UTF-8"},
                    {"\xEF\xBB\xBFinclude app=*\n", 1, "byte order mark"},
                    {"include app=*\rinclude user=x\r", 1, "carriage returns alone"},
                });
}

TEST_F(CheckTest, RulesThatWantOnlyRecordsThatArentMadeRecordNothing) {
    std::vector<std::string> usageAlone = wholeConfiguration;
    usageAlone[24] = "module-data (Bool) = false {";
    usageAlone[27] = "performance-monitor (Bool) = false {";
    for (const auto& [rules, canRecord] : {
             std::pair{"include datatype=module\n", false},
             std::pair{"include cpu=1\n", false},
             std::pair{"exclude datatype=runtally\ninclude datatype=*\n", false},
             std::pair{"exclude datatype=run* app=x\ninclude datatype=*\n", true},
             std::pair{"include ref=a\nref:a\n{\nuser=x\n}\n", true},
         }) {
        write("include-exclude", rules);
        writeConfiguration(usageAlone);
        EXPECT_EQ(check().hasErrors(), !canRecord) << rules << check().text();
        writeConfiguration(wholeConfiguration);
        EXPECT_FALSE(check().hasErrors()) << rules << check().text();
    }
}

TEST_F(CheckTest, MistakesInThePrimeTimeAreNamed) {
    expectNamed("primetime", {
                                 {"*:*:*:*:* exclde\n", 1, "did you mean exclude?"},
                                 {"*:*:*:*:* off\n", 1, "makes the moments prime"},
                                 {"*:*:*:mon-fri:8-17\n", 1, "as 1-5 for mon-fri"},
                                 {"*:*:*:1-5:8am\n", 1, "is no pattern of numbers"},
                                 {"*:*:*:1-5:8-17:30\n", 1, "is no pattern of numbers"},
                                 {"*:*:*:1-5:8:00-17:00\n", 1, "is no pattern of numbers"},
                                 {"*:*:*:1-5:17-8\n", 1, "is an empty range"},
                                 {"*:*:*:5-1:*\n", 1, "is an empty range"},
                                 {"*:*:*:*:8-24\n", 1, "is beyond 0 to 23"},
                                 {"*:*:*:7:*\n", 1, "Sunday is 0"},
                                 {"*:13:*:*:*\n", 1, "is beyond 1 to 12"},
                                 {"*:*:32:*:*\n", 1, "is beyond 1 to 31"},
                                 {"*:2:30:*:*\n", 1, "has no day 30"},
                                 {"26:*:*:*:*\n", 1, "is beyond 1970"},
                                 {"*:*:*:*\n", 1, "4 of the five fields"},
                                 {"*:*:*:1-5 8-17\n", 1, "4 of the five fields"},
                                 {"*::*:*:*\n", 1, "the month is empty"},
                                 {"*:*:*:*:1,3-5\n", 1, "mixes a range with a comma"},
                                 {"*:*:*:*:8-\n", 1, "lacks a number"},
                                 {"*:*:*:*:8,,9\n", 1, "lacks a number"},
                                 {"* : *:*:*:*\n", 1, "is no pattern of numbers"},
                                 {"*:*:*:1-5:8-17\n*:*:*:*:* exclude\n", 1, "the line does nothing"},
                                 {"\xEF\xBB\xBF*:*:*:*:*\n", 1, "byte order mark"},
                             });
}

TEST_F(CheckTest, MistakesInMappingsAreNamed) {
    expectNamed("components/appmapping.conf", {
                                                  {"ignor\n{\na\n}\n", 1, "did you mean ignore?"},
                                                  {"map-always\n{\na=b\n}\n", 1, "did you mean mapalways?"},
                                                  {"map-always\n{\na=b\n}\n", 2, "error: a block has no kind"},
                                                  {"mapalways {\na=b\n}\n", 1, "write { on a line of its own"},
                                                  {"ignore\nmaplast\n{\na=b\n}\n", 1, "the word has no block"},
                                                  {"ignore\n", 1, "the word has no block"},
                                                  {"vim = Vim\n", 1, "stands in no block"},
                                                  {"}\n", 1, "a } closes nothing"},
                                                  {"ignore\n{\na\n", 1, "error: the block never closes"},
                                                  {"ignore\n{\na = b\n}\n", 3, "has no name for the application"},
                                                  {"maplast\n{\nvim\n}\n", 3, "is given no name"},
                                                  {"maplast\n{\nvim =\n}\n", 3, "is given no name"},
                                                  {"maplast\n{\n/usr/bin/vim = V\n}\n", 3, "leave the directory out"},
                                                  {"maplast\n{\npython3.11 = P\n}\n", 3, "write python3"},
                                                  {"maplast\n{\nvim* = V\n}\n", 3, "names aren't patterns"},
                                                  {"maplast\n{\nvi, vim = V\n}\n", 3, "hardly the name of a file"},
                                                  {"maplast\n{\n\"vim\" = V\n}\n", 3, "quotes belong"},
                                                  {"maplast\n{\nvim = V # editor\n}\n", 3, "behind #"},
                                                  {"maplast\n{\nvim = V\nVIM = W\n}\n", 4, "in line 3, which counts"},
                                                  {"ignore\n{\na\nmaplast\n{\nb=c\n}\n", 5, "within a block"},
                                              });
}

TEST_F(CheckTest, MistakesInNamePatternsAndCountersAreNamed) {
    const std::vector<Mistake> patterns{
        {"+\nvim\n", 1, "fits none"},
        {"-\nvim\n", 1, "says yes on all of them"},
        {"+ hots=*\nvim\n", 1, "did you mean host=*?"},
        {"+ host *\nvim\n", 1, "fits none"},
        {"+ host=* vim\nemacs\n", 1, "holds a blank"},
        {"+ Host=*\nvim\n", 1, "did you mean host=*?"},
        {"+ xhost=*\nvim\n", 1, "isn't the word host"},
        {"+ host=a,b\nvim\n", 1, "no computer is called"},
        {"+ host=*\nvim,emacs\n", 2, "one pattern on each line"},
        {"vim\n+ host=*\nemacs\n", 1, "before the first + or -"},
        {"+ host=*\n- host=*\nvim\n", 1, "lists no names"},
        {"+ host=*\n/usr/bin/vim\n", 2, "leave the directory out"},
        {"+ host=*\nhost=web*\n", 2, "taken for a pattern of names"},
        {"+ host=*\n\"vim\"\n", 2, "quotes belong"},
        {"+ host=*\nvim\nvim\n", 3, "decided in line 2 already"},
        {"+ host=*\n*\n- host=*\nvim\n", 4, "decided in line 2 already"},
        {"\xEF\xBB\xBF+ host=*\nvim\n", 1, "byte order mark"},
        {"", 1, "error: the"},
    };
    expectNamed("Runtally_ProcessRules.conf", patterns);
    expectNamed("Runtally_ProcessRules.conf", {{"# none\n", 1, "no process is watched"}});
    expectNamed("runtally_modpoller.conf", patterns);
    const std::string elapsed = "Elapsed Time|abs\n";
    expectNamed("Runtally_Counters.conf", {
                                              {"", 1, "error: the file has no counter"},
                                              {"# none\n", 1, "error: the file has no counter"},
                                              {"Private Bytes|avg\n", 1, "\"Elapsed Time\" is missing"},
                                              {elapsed + "Private Byte|avg\n", 2, "did you mean Private Bytes?"},
                                              {elapsed + "Private Bytes |avg\n", 2, "a blank before the |"},
                                              {elapsed + "Private Bytes|mean\n", 2, "no way to gather"},
                                              {elapsed + "Private Bytes|avgg\n", 2, "did you mean avg?"},
                                              {elapsed + "Private Bytes avg\n", 2, "has no counter"},
                                              {elapsed + elapsed, 2, "in line 1 already"},
                                          });
}

TEST_F(CheckTest, MistakesInCataloguesAndSharedValuesAreNamed) {
    const std::string catalogue = "LogMessages/agent.mess";
    expectNamed(catalogue, {
                               {"99: x\n", 1, "no message has the number 99"},
                               {"1: x\n1: y\n", 2, "in line 1, which counts"},
                               {"1 x\n", 1, "no number"},
                               {"# comment\n", 1, "begin comments with //"},
                               {"one: x\n", 1, "no number"},
                               {"1:\n", 1, "has no wording"},
                               {"1: %d%z\n", 1, "stands for nothing"},
                               {"1: 100%\n", 1, "stands for nothing"},
                               {"1: \xFC\n", 1, "isn't UTF-8"},
                           });
    directory.write("LogMessages/agnt.mess", "");
    EXPECT_TRUE(names("LogMessages/agnt.mess", 1, "did you mean agent?"));
    std::filesystem::remove(directory / "LogMessages/agnt.mess");
    for (const auto& [text, line, says] : std::vector<Mistake>{
             {"InstalDir = \"/x\"\n", 2, "did you mean InstallDir?"},
             {"startuplogdir = \"/x\"\n", 2, "did you mean StartupLogDir?"},
             {"StartupDebugLevel = \"3\"\n", 2, "write it without quotes"},
             {"StartupDebugLevel = 7\n", 2, "write 0 to 5"},
             {"InstallDir = 3\n", 2, "put it in quotes"},
             {"MailslotAccess = \"everybody\"\n", 2, "did you mean everyone?"},
             {"LogFileRotationScheme = \"sizes\"\n", 2, "did you mean size?"},
             {"InstallDir = \"${Home}/x\"\n", 2, "which has no value"},
             {"StartupLogDir = \"/nowhere\"\n", 2, "isn't there"},
             {"InstallDir = true\n", 2, "error: InstallDir is no text"},
             {"InstallDir = /x\n", 2, "error: "},
             {"InstallDir\n", 2, "error: "},
             {"ConfigurationDir = \"/x\"\n", 2, "error: "},
         }) {
        writeResources(text);
        EXPECT_TRUE(names("resources.toml", line, says)) << text;
    }
    directory.write("resources.toml", "# ConfigurationDir\n");
    EXPECT_TRUE(names("resources.toml", 1, "error: the value ConfigurationDir is missing"));
    directory.write("resources.toml", "ConfigurationDir = \"/nowhere/at/all\"\n");
    EXPECT_TRUE(names("resources.toml", 1, "error: the directory"));
    std::filesystem::remove(directory / "resources.toml");
    EXPECT_TRUE(names("resources.toml", 1, "error: the file can't be read"));
}

TEST_F(CheckTest, NineOfTenMisspeltWordsGetTheRightHint) {
    size_t all = 0;
    size_t right = 0;
    std::string wrong;
    const auto count = [&](const std::string& word, const std::string& misspelt, const std::string& advice) {
        ++all;
        const bool isRight = advice.find("did you mean " + word + "?") != std::string::npos ||
                             advice.find("." + word + "?") != std::string::npos;
        right += isRight ? 1 : 0;
        if (!isRight)
            wrong += misspelt + " ";
    };
    const auto misspellings = [](const std::string& word) {
        const size_t middle = word.size() / 2;
        std::string swapped = word;
        std::swap(swapped[middle], swapped[middle - 1]);
        std::string replaced = word;
        replaced[middle] = 'x';
        std::string doubled = word;
        doubled.insert(middle, 1, word[middle]);
        std::string capital = word;
        capital[0] = static_cast<char>(capital[0] ^ ' ');
        return std::vector<std::string>{swapped, replaced,       doubled,
                                        capital, word.substr(1), word.substr(0, word.size() - 1)};
    };
    for (const KnownKey& known : knownKeys()) {
        const std::string key(known.key);
        const std::string word = key.substr(key.rfind('.') + 1);
        for (const std::string& misspelt : misspellings(word)) {
            if (misspelt == word || misspelt == "event" || misspelt == "log")
                continue;
            // The path to the key, each of its sections by itself.
            std::string text = misspelt + " (String) = x { }";
            std::string path = key.substr(0, key.rfind('.'));
            for (size_t point = path.rfind('.'); !path.empty(); point = path.rfind('.')) {
                const size_t begin = point == std::string::npos ? 0 : point + 1;
                text = path.substr(begin) + " () = '' { " + text + " }";
                path.resize(point == std::string::npos ? 0 : point);
            }
            write("one.conf", text);
            ConfReader conf{SmartPointer<LoggerCentre>()};
            Findings findings;
            conf.buildDOMTree(directory / "one.conf");
            checkKeys(conf, {findings, "one.conf"});
            count(word, misspelt, findings.text());
        }
    }
    for (const RuleWord& row : ruleWords)
        for (const std::string& misspelt : misspellings(std::string(row.word))) {
            write("rules", "include " + misspelt + "=x\n");
            IncludeExclude rules;
            std::string error;
            Findings findings;
            if (!rules.load(directory / "rules", error, {findings, "rules"}))
                count(std::string(row.word), misspelt, findings.text());
        }
    RecordProperty("right", static_cast<int>(right));
    RecordProperty("all", static_cast<int>(all));
    EXPECT_GT(all, 200U);
    EXPECT_GE(right * 10, all * 9) << right << " of " << all << "; not: " << wrong;
}

TEST_F(CheckTest, EachKeyThatIsAskedForIsKnown) {
    const std::string sources = std::string(VELMOR_SOURCES) + "/src/";
    std::string code;
    for (const auto& entry : std::filesystem::recursive_directory_iterator(sources))
        if (entry.path().extension() == ".cpp" && entry.path().filename() != "KeyCheck.cpp")
            code += readFile(entry.path().string());
    std::set<std::string> asked;
    const std::regex literal("\"((runtally|log|Velmor)\\.[a-z][a-z.-]+[a-z])\"");
    for (auto match = std::sregex_iterator(code.begin(), code.end(), literal); match != std::sregex_iterator(); ++match)
        asked.insert((*match)[1]);
    for (const std::string& key : asked)
        EXPECT_TRUE(std::any_of(knownKeys().begin(), knownKeys().end(),
                                [&](const KnownKey& known) { return known.key == key; }) ||
                    key.ends_with(".conf"))
            << key;
    EXPECT_GT(asked.size(), 15U);
}

TEST_F(CheckTest, FindingsAreSortedAndHaveTwoForms) {
    Findings findings;
    findings.add({false, "/b", 3, "w \"x\xFC\"", "do\033"});
    findings.add({true, "/a", 10, "e", "mend"});
    findings.add({false, "/a", 9, "e", "mend"});
    findings.add({false, "/a", 9, "e", "mend"});
    EXPECT_EQ(findings.text(), "/a:9: warning: e; mend\n/a:10: error: e; mend\n/b:3: warning: w \"x\xFC\"; do?\n");
    EXPECT_NE(findings.json().find(R"({"file": "/b", "line": 3, "severity": "warning", "what": "w \"x\ufffd\"", )"
                                   R"("advice": "do?"})"),
              std::string::npos)
        << findings.json();
    EXPECT_EQ(findings.exitStatus(), 2);
}

} // namespace Velmor
