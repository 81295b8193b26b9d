#include <Base/ZBase.h>

#include <gtest/gtest.h>

#include <cstring>

#include "tests/injection/Operation.h"
#include "tests/injection/Texts.h"

namespace test {

namespace {

using namespace ZBase::Literals;

constexpr const unsigned short* kVariable = "ZBASE_INJECTED"_w;
constexpr const unsigned short* kOther = "ZBASE_INJECTED_BUT_NEVER_SET_AT_ALL"_w;

void ReadsVariables(Trial& trial) {
    setenv("ZBASE_INJECTED", "a value that is long enough for a block of its own", 1);
    trial([] {
        const ZBase::ReturnWString value = ZBase::GetEnvironmentVariableOrNULL(kVariable);
        EXPECT_TRUE(Is(value.c_str(), "a value that is long enough for a block of its own"));
        EXPECT_EQ(ZBase::GetEnvironmentVariableOrNULL(kOther).c_str(), nullptr);
        EXPECT_TRUE(Is(ZBase::ReadEnvironmentVariable(kOther).c_str(), ""));
    });
}

void SetsVariables(Trial& trial) {
    setenv("ZBASE_INJECTED", "old", 1);
    trial([] { ZBase::SetEnvironmentVariable(kVariable, "new"_w); });
    const char* const value = getenv("ZBASE_INJECTED");
    EXPECT_TRUE(std::strcmp(value, "new") == 0 || (!trial.IsUntouched() && std::strcmp(value, "old") == 0))
        << value;
    trial([] { ZBase::SetEnvironmentVariable(kVariable, nullptr); });
    EXPECT_TRUE(getenv("ZBASE_INJECTED") == nullptr || !trial.IsUntouched());
    unsetenv("ZBASE_INJECTED");
}

void ReadsANumber(Trial& trial) {
    setenv("ZBASE_INJECTED", "17", 1);
    trial([] { EXPECT_EQ(ZBase::GetNumericEnvironmentVariable("ZBASE_INJECTED", 3), 17); });
}

void SetsTheContainerPath(Trial& trial) {
    ZBase::SetContainerPath("/an/old/path/that/takes/a/block/of/its/own");
    const bool done =
        trial([] { ZBase::SetContainerPath("/a/new/path/that/takes/a/larger/block/of/its/own/to/be/kept"); });
    EXPECT_TRUE(Is(ZBase::GetContainerPath().c_str(),
                   done ? "/a/new/path/that/takes/a/larger/block/of/its/own/to/be/kept"
                        : "/an/old/path/that/takes/a/block/of/its/own"));
    trial([] { ZBase::GetContainerPath(); });
    ZBase::SetContainerPath("");
}

void TellsOfTheProcess(Trial& trial) {
    trial([] {
        EXPECT_NE(ZBase::GetProcessLocale(), nullptr);
        std::size_t size = 0;
        EXPECT_TRUE(ZBase::GetSymPageSize(&size));
        EXPECT_EQ(size, 4096u);
        EXPECT_NE(ZBase::GetCurrentProcessID(), 0u);
        EXPECT_EQ(ZBase::GetCurrentThreadID(), ZBase::GetCurrentThreadIDNative());
        ZBase::YieldToAnotherThread();
        ZBase::Sleep(0);
        ZBase::Sleep(1);
        EXPECT_EQ(ZBase::GetLibraryVersionNumber(), ZBASE_VERSION_NUMBER);
        EXPECT_TRUE(Is(ZBase::GetLibraryVersion(), ZBASE_VERSION));
        ZBase::GetLastError();
    });
}

template <class Result, class Ch>
void MakesResults(Trial& trial, const Ch* text) {
    Ch* block = nullptr;
    trial([&] {
        Result whole(text);
        const Result part(2, text);
        const Result taken(whole);
        EXPECT_EQ(whole.c_str(), nullptr);
        EXPECT_EQ(taken.GetLength(), 5u);
        EXPECT_EQ(part.GetLength(), 2u);
        Result filled(3, nullptr);
        filled.Swap(block);
        EXPECT_EQ(filled.c_str(), nullptr);
    });
    if (block != nullptr) Result(static_cast<const Ch*>(nullptr)).Swap(block);
    // Whoever swaps a block in gives it back at its end.
    if (block != nullptr) ADD_FAILURE() << "the block was not taken";
}

}  // namespace

std::vector<Operation> FrameOperations() {
    return {
        {"reads variables",
         {"ZBase::GetEnvironmentVariableOrNULL", "ZBase::ReadEnvironmentVariable"},
         kReturns | kBadAlloc,
         ReadsVariables},
        {"sets variables", {"ZBase::SetEnvironmentVariable"}, kReturns | kBadAlloc, SetsVariables},
        {"reads a numeric variable", {"ZBase::GetNumericEnvironmentVariable"}, kReturns, ReadsANumber},
        {"sets the container path",
         {"ZBase::SetContainerPath", "ZBase::GetContainerPath"},
         kReturns | kBadAlloc,
         SetsTheContainerPath},
        {"tells of the process",
         {"ZBase::GetProcessLocale", "ZBase::GetSymPageSize", "ZBase::GetCurrentProcessID",
          "ZBase::GetCurrentThreadID", "ZBase::GetCurrentThreadIDNative", "ZBase::YieldToAnotherThread",
          "ZBase::Sleep", "ZBase::GetLibraryVersion", "ZBase::GetLibraryVersionNumber",
          "ZBase::GetLastError"},
         kReturns,
         TellsOfTheProcess},
        {"makes narrow results",
         {"ZBase::ReturnString::*"},
         kReturns | kBadAlloc,
         [](Trial& trial) { MakesResults<ZBase::ReturnString>(trial, "abcde"); }},
        {"makes UTF16 results",
         {"ZBase::ReturnUString::*"},
         kReturns | kBadAlloc,
         [](Trial& trial) { MakesResults<ZBase::ReturnUString>(trial, "abcde"_w); }},
        {"makes wide results",
         {"ZBase::ReturnWString::*"},
         kReturns | kBadAlloc,
         [](Trial& trial) { MakesResults<ZBase::ReturnWString>(trial, "abcde"_w); }},
    };
}

}  // namespace test
