#include <unistd.h>
#include <string>

#include "tests/tools/ZBaseCommand.h"

namespace {

using test::ChildResult;
using test::ZBase;

TEST(HostCommand, TellsWhatTheLibrarySays) {
    const ChildResult child = ZBase({"host"});
    EXPECT_EQ(child.exitCode, 0) << child.errors;
    EXPECT_EQ(child.errors, "");
    char name[256] = {};
    gethostname(name, sizeof name - 1);
    const std::string host = name;
    for (const std::string& line :
         {"computer    " + host.substr(0, host.find('.')) + "\n", std::string("program     zbase\n"),
          "command     " + std::string(ZBASE_COMMAND) + " host\n", std::string("locale      C.UTF-8\n"),
          std::string("page size   4.00KB\n"), std::string("libZBase.so")}) {
        EXPECT_NE(child.output.find(line), std::string::npos) << line << child.output;
    }
}

}  // namespace
