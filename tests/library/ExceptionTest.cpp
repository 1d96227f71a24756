#include "shared/library/common/ConfigException.h"
#include "shared/library/common/FileException.h"
#include "shared/library/common/IPCException.h"
#include "shared/library/common/JobException.h"
#include "shared/library/common/TimeException.h"

#include <gtest/gtest.h>

namespace Velmor {

namespace {
std::string described(const Exception& failure) {
    std::string text;
    failure.describe(text);
    return text;
}
} // namespace

TEST(ExceptionTest, OneLineNamesLabelTextAndCode) {
    EXPECT_EQ(described(IPCException(IC_CANNOT_SEND)), "IPC: Unable to send message. (Code: 4.5)");
    EXPECT_EQ(described(ConfigException(CF_CONF)), "Configuration: Error in conf file. (Code: 1.1)");
    EXPECT_EQ(described(TimeException(TM_INPUT)), "Time: Illegal input format. (Code: 4.10)");
    EXPECT_EQ(described(FileException(FL_ERROR)), "File: An error occured. (No changes made.) (Code: 47.27)");
    EXPECT_EQ(described(FileException(FL_ACCESS_COMB)), "File: Illegal combination of access flaggs. (Code: 47.8)");
    EXPECT_EQ(described(JobException(JB_THREAD)), "Job: Unable to access thread in external process. (Code: 48.8)");
    EXPECT_EQ(described(Exception(0)), "Exception: Unknown error (Code: 50.0)");
    EXPECT_EQ(described(FileException(28)), "File: Unknown error (Code: 47.28)");
    EXPECT_EQ(described(JobException(-1)), "Job: Unknown error (Code: 48.-1)");
}

TEST(ExceptionTest, TheTrailKeepsFileNamesUpToTheirLastPoint) {
    FileException failure(FL_READ, "a.txt", "/src/x/Agent.cpp", 330);
    failure.addPosition("c:\\src\\Main.v2.cpp", 7);
    failure.addPosition("", 9);
    failure.addPosition("shared\\library\\common\\win32\\MailSlot", 4);
    EXPECT_EQ(failure.getFullDescription(), "File: Unable to read. (Code: 47.10)\r\n  >  (a.txt)\r\n"
                                            "  >  Agent.(330) - Main.v2.(7) - MailSlot(4)");
    EXPECT_EQ(FileException(FL_READ).getFullDescription(), "File: Unable to read. (Code: 47.10)");
}

} // namespace Velmor
