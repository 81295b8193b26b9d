#include <string>

#include "tests/tools/ZBaseCommand.h"

namespace {

using test::ChildResult;
using test::ZBase;

TEST(RoadCommand, ShowsEachFailureAsATreeAndAsBytes) {
    const std::string file = ZBASE_SOURCE_DIR "/CMakeLists.txt";
    const ChildResult child = ZBase({"road", file});
    EXPECT_EQ(child.exitCode, 0) << child.errors;
    EXPECT_EQ(child.errors, "");
    for (const char* expected :
         {"all of it UTF-8.", "the contract pays", "the contract refuses", "the governor grants",
          "No memory to be contracted. Contract request rejected.", "the governor is owed 0 bytes",
          "No such file or directory (Windows Standard C Library error 2)",
          "Permission denied (Windows Standard C Library error 13)", "ZBase::UTF8ToWideChar: Invalid",
          "(Server message 101)", "(Server message 110)", "lower level",
          "id 101, domain 300, numbers in base 10, width 0"}) {
        EXPECT_NE(child.output.find(expected), std::string::npos) << expected << "\n" << child.output;
    }
    EXPECT_NE(child.output.find("Cannot open " + file + ".missing."), std::string::npos);
}

TEST(RoadCommand, OfAMissingFileShowsThatToo) {
    const ChildResult child = ZBase({"road", "/no/such/file"});
    EXPECT_NE(child.output.find("Cannot open /no/such/file."), std::string::npos);
}

TEST(RoadCommand, NamesAFileWithoutControlCharacters) {
    const ChildResult child = ZBase({"road", "/no/such/\x1B[2Jfile"});
    EXPECT_NE(child.output.find("1  /no/such/\\x1B[2Jfile is read"), std::string::npos) << child.output;
    EXPECT_EQ(child.output.find('\x1B'), std::string::npos);
}

TEST(RoadCommand, EndsWithTheRecordInASecondProcess) {
    const ChildResult child = ZBase({"road", ZBASE_SOURCE_DIR "/CMakeLists.txt"});
    EXPECT_EQ(child.exitCode, 0) << child.errors;
    EXPECT_NE(child.output.find("<domain>Windows Standard C Library</domain>"), std::string::npos);
    EXPECT_TRUE(child.output.ends_with("  It came back the same.\n")) << child.output;
}

}  // namespace
