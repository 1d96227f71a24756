#include "shared/library/common/FileException.h"

#include <gtest/gtest.h>

namespace Velmor {

TEST(ExceptionTest, TheTrailKeepsFileNamesUpToTheirLastPoint) {
    FileException failure(FL_READ, "a.txt", "/src/x/Agent.cpp", 330);
    failure.addPosition("c:\\src\\Main.v2.cpp", 7);
    failure.addPosition("", 9);
    failure.addPosition("shared\\library\\common\\win32\\MailSlot", 4);
    EXPECT_EQ(failure.getFullDescription(), "File: Unable to read. (Code: 47.10)\r\n  >  (a.txt)\r\n"
                                            "  >  Agent.(330) - Main.v2.(7) - MailSlot(4)");
    for (const int32_t unlisted : {28, -1})
        EXPECT_EQ(FileException(unlisted).getFullDescription(),
                  "File: Unknown error (Code: 47." + std::to_string(unlisted) + ")");
}

} // namespace Velmor
