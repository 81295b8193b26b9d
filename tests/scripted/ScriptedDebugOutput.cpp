#include "tests/scripted/ScriptedDebugOutput.h"

#include <Base/platform/os/DebugOutput.h>

namespace test {

std::vector<std::string> gDebugOutput;

}  // namespace test

namespace ZBase::os {

void WriteDebugText(const unsigned short* text) {
    std::string narrow = "W:";
    for (; text != nullptr && *text != 0; ++text) narrow += static_cast<char>(*text);
    test::gDebugOutput.push_back(narrow);
}

void WriteDebugText(const char* text) {
    test::gDebugOutput.push_back(std::string("A:") + (text == nullptr ? "" : text));
}

}  // namespace ZBase::os
