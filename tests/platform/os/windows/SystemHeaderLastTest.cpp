#include <Base/ZBase.h>
#include <ZLiteXML/UTF8Reader.h>
#include <ZLiteXML/UTF8Writer.h>

#include <windows.h>

#include <gtest/gtest.h>

#include <string>

#include "tests/platform/os/windows/HeaderCalls.h"

namespace {

TEST(SystemHeaderLast, MayStandLast) {
    const Calls calls = MakeCalls();
    EXPECT_EQ(calls.formatted, "a1[2][3] (Unknown message 8)");
    EXPECT_EQ(calls.domainOfWide, calls.formatted);
    EXPECT_GT(calls.computerName, 0u);
    EXPECT_TRUE(calls.isSameIdentifier);
    EXPECT_EQ(calls.number, "1");
    // The system's own functions keep their names.
    char text[64];
    DWORD size = sizeof text;
    EXPECT_NE(::GetComputerNameA(text, &size), 0);
}

}  // namespace
