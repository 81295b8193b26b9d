#include <Base/messages/SystemErrors.h>

#include <gtest/gtest.h>

#include <initializer_list>
#include <map>
#include <new>
#include <string>
#include <thread>

#include "tests/support/Allocations.h"
#include "tests/support/WideText.h"

namespace {

using namespace ZBase;

// A number of no system code.
constexpr unsigned int kNoCode = 0x20000001;

const std::map<int, const char*> kErrorSymbols = {
    {1, "EPERM"},      {2, "ENOENT"},  {3, "ESRCH"},     {4, "EINTR"},         {5, "EIO"},     {6, "ENXIO"},
    {7, "E2BIG"},      {8, "ENOEXEC"}, {9, "EBADF"},     {10, "ECHILD"},       {11, "EAGAIN"}, {12, "ENOMEM"},
    {13, "EACCES"},    {14, "EFAULT"}, {16, "EBUSY"},    {17, "EEXIST"},       {18, "EXDEV"},  {19, "ENODEV"},
    {20, "ENOTDIR"},   {21, "EISDIR"}, {22, "EINVAL"},   {23, "ENFILE"},       {24, "EMFILE"}, {25, "ENOTTY"},
    {27, "EFBIG"},     {28, "ENOSPC"}, {29, "ESPIPE"},   {30, "EROFS"},        {31, "EMLINK"}, {32, "EPIPE"},
    {33, "EDOM"},      {34, "ERANGE"}, {36, "EDEADLK"},  {38, "ENAMETOOLONG"}, {39, "ENOLCK"}, {40, "ENOSYS"},
    {41, "ENOTEMPTY"}, {42, "EILSEQ"}, {139, "ETXTBSY"},
};

const std::map<unsigned int, std::string> kExceptionSymbols = {
    {0x80000002, "EXCEPTION_DATATYPE_MISALIGNMENT"},
    {0x80000003, "EXCEPTION_BREAKPOINT"},
    {0x80000004, "EXCEPTION_SINGLE_STEP"},
    {0xC0000005, "EXCEPTION_ACCESS_VIOLATION"},
    {0xC0000006, "EXCEPTION_IN_PAGE_ERROR"},
    {0xC000001D, "EXCEPTION_ILLEGAL_INSTRUCTION"},
    {0xC0000025, "EXCEPTION_NONCONTINUABLE_EXCEPTION"},
    {0xC0000026, "EXCEPTION_INVALID_DISPOSITION"},
    {0xC000008C, "EXCEPTION_ARRAY_BOUNDS_EXCEEDED"},
    {0xC000008D, "EXCEPTION_FLT_DENORMAL_OPERAND"},
    {0xC000008E, "EXCEPTION_FLT_DIVIDE_BY_ZERO"},
    {0xC000008F, "EXCEPTION_FLT_INEXACT_RESULT"},
    {0xC0000090, "EXCEPTION_FLT_INVALID_OPERATION"},
    {0xC0000091, "EXCEPTION_FLT_OVERFLOW"},
    {0xC0000092, "EXCEPTION_FLT_STACK_CHECK"},
    {0xC0000093, "EXCEPTION_FLT_UNDERFLOW"},
    {0xC0000094, "EXCEPTION_INT_DIVIDE_BY_ZERO"},
    {0xC0000095, "EXCEPTION_INT_OVERFLOW"},
    {0xC0000096, "EXCEPTION_PRIV_INSTRUCTION"},
    {0xC00000FD, "EXCEPTION_STACK_OVERFLOW"},
};

void ExpectErrorSymbol(int number) {
    const auto row = kErrorSymbols.find(number);
    const bool known = row != kErrorSymbols.end();
    EXPECT_STREQ(GetStandardCLibraryErrorSymbolOrNULL(number).c_str(), known ? row->second : nullptr);
    EXPECT_STREQ(GetStandardCLibraryErrorSymbolOrDecimalString(number).c_str(),
                 known ? row->second : std::to_string(number).c_str());
}

TEST(SystemErrorsSymbol, EveryNumberHasTheSymbolOfTheTableOrNone) {
    ASSERT_EQ(kErrorSymbols.size(), 39u);
    for (int number = -200; number <= 400; ++number) ExpectErrorSymbol(number);
    for (const int number : {0x7FFFFFFF, -0x7FFFFFFF, -0x7FFFFFFF - 1}) ExpectErrorSymbol(number);
}

TEST(SystemErrorsSymbol, GapsAndTheLastRow) {
    EXPECT_STREQ(GetStandardCLibraryErrorSymbolOrNULL(2).c_str(), "ENOENT");
    for (const int number : {15, 0, -1})
        EXPECT_EQ(GetStandardCLibraryErrorSymbolOrNULL(number).c_str(), nullptr);
    EXPECT_STREQ(GetStandardCLibraryErrorSymbolOrDecimalString(15).c_str(), "15");
    EXPECT_STREQ(GetStandardCLibraryErrorSymbolOrDecimalString(-1).c_str(), "-1");
    EXPECT_STREQ(GetStandardCLibraryErrorSymbolOrDecimalString(139).c_str(), "ETXTBSY");
}

TEST(SystemErrorsExceptionSymbol, EveryRowAndTheCodesBesideIt) {
    ASSERT_EQ(kExceptionSymbols.size(), 20u);
    for (const auto& row : kExceptionSymbols) {
        for (const unsigned int code : {row.first - 1, row.first, row.first + 1}) {
            const auto known = kExceptionSymbols.find(code);
            const ReturnString symbol = GetWin32ExceptionSymbolOrNULL(code);
            if (known == kExceptionSymbols.end()) {
                EXPECT_EQ(symbol.c_str(), nullptr);
            } else {
                EXPECT_EQ(symbol.c_str(), known->second);
                EXPECT_EQ(GetWin32ExceptionSymbolOrHexUpperString(code).c_str(), known->second);
            }
        }
    }
    EXPECT_EQ(GetWin32ExceptionSymbolOrNULL(0xC0000017).c_str(), nullptr);
}

TEST(SystemErrorsExceptionSymbol, UnknownCodeIsEightUpperCaseDigits) {
    const std::map<unsigned int, const char*> rows = {
        {0xE06D7363, "0xE06D7363"}, {0x12345, "0x00012345"},  {0, "0x00000000"},
        {0xF, "0x0000000F"},        {0xABCDEF, "0x00ABCDEF"}, {0xFFFFFFFF, "0xFFFFFFFF"},
    };
    for (const auto& [code, text] : rows)
        EXPECT_STREQ(GetWin32ExceptionSymbolOrHexUpperString(code).c_str(), text);
}

TEST(SystemErrorsDescription, IsALineWithTheCodeInBothForms) {
    EXPECT_EQ(test::Wide(GetSystemErrorDescription(5).c_str()),
              u"System Error 0x00000005 (5): --- Access is denied.");
}

TEST(SystemErrorsDescription, CodeWithoutTextEndsInUnknownError) {
    EXPECT_EQ(GetWin32APIErrorDescriptionOrNULL(kNoCode, 0).c_str(), nullptr);
    EXPECT_EQ(test::Wide(GetSystemErrorDescription(kNoCode).c_str()),
              u"System Error 0x20000001 (536870913): --- Unknown error.");
}

TEST(SystemErrorsDescription, CodeIsUnsigned) {
    EXPECT_EQ(test::Wide(GetSystemErrorDescription(0xFFFFFFFF).c_str()),
              u"System Error 0xFFFFFFFF (4294967295): --- Unknown error.");
    EXPECT_EQ(test::Wide(GetSystemErrorDescription(0x80000000).c_str()),
              u"System Error 0x80000000 (2147483648): --- Unknown error.");
}

TEST(SystemErrorsDescription, NamesTheErrorBehindAResultOrStatus) {
    const auto described = [](unsigned int code) {
        return test::Wide(GetSystemErrorDescription(code).c_str());
    };
    const std::u16string noMemory = test::Wide(GetWin32APIErrorDescriptionOrNULL(14, 0).c_str());
    EXPECT_EQ(described(0x8007000E), u"System Error 0x8007000E (2147942414): --- " + noMemory);
    EXPECT_EQ(described(0xC007000E), u"System Error 0xC007000E (3221684238): --- " + noMemory);
    EXPECT_EQ(described(0x80070005), u"System Error 0x80070005 (2147942405): --- Access is denied.");
    EXPECT_TRUE(IsSystemError(0x80070005));
}

TEST(SystemErrorsDescription, EveryCodeHasItsTextInTheOtherForms) {
    for (unsigned int code = 1; code <= 0xFFFF; ++code) {
        const ReturnWString plain = GetWin32APIErrorDescriptionOrNULL(code, 0);
        for (const unsigned int form : {0x80070000, 0xC0070000}) {
            const ReturnWString text = GetWin32APIErrorDescriptionOrNULL(form | code, 0);
            ASSERT_EQ(test::Wide(text.c_str()), test::Wide(plain.c_str())) << code;
            ASSERT_EQ(IsSystemError(form | code), plain.c_str() != nullptr) << code;
        }
    }
}

TEST(SystemErrorsDescription, SuccessAndOtherFacilitiesHaveNone) {
    for (const unsigned int code :
         {0x80070000u, 0xC0070000u, 0x80040005u, 0x80080005u, 0x00070005u, 0x40070005u}) {
        EXPECT_EQ(GetWin32APIErrorDescriptionOrNULL(code, 0).c_str(), nullptr) << code;
        EXPECT_FALSE(IsSystemError(code)) << code;
    }
}

TEST(SystemErrorsDescription, WantOfMemoryIsThrownAndNothingLeaks) {
    const std::size_t before = test::LiveBlocks();
    const std::size_t failures = test::ForEachFailingAllocation([] {
        try {
            EXPECT_EQ(GetSystemErrorDescription(5).GetLength(), 50u);
        } catch (const std::bad_alloc&) {
        }
    });
    EXPECT_GE(failures, 2u);
    EXPECT_EQ(test::LiveBlocks(), before);
}

TEST(SystemErrorsWin32Description, IsServedInEnglishAndInTheSystemsLanguageOnly) {
    EXPECT_EQ(test::Wide(GetWin32APIErrorDescriptionOrNULL(5, 0).c_str()), u"Access is denied.");
    EXPECT_EQ(test::Wide(GetWin32APIErrorDescriptionOrNULL(5, 0x409).c_str()), u"Access is denied.");
    for (const auto language : std::initializer_list<unsigned short>{1, 0x407, 0x809, 0x40A, 0xFFFF}) {
        EXPECT_EQ(GetWin32APIErrorDescriptionOrNULL(5, language).c_str(), nullptr) << language;
    }
}

TEST(SystemErrorsIsSystemError, TellsKnownCodesFromOthersAndLeavesItsMarkInTheLastCode) {
    EXPECT_TRUE(IsSystemError(5));
    EXPECT_EQ(GetLastError(), 122u);
    EXPECT_FALSE(IsSystemError(kNoCode));
    EXPECT_EQ(GetLastError(), 317u);
    EXPECT_TRUE(IsSystemError(0));
    EXPECT_FALSE(IsSystemError(0xFFFFFFFF));
}

TEST(SystemErrorsLastError, BelongsToTheThread) {
    IsSystemError(5);
    std::thread([] {
        EXPECT_EQ(GetLastError(), 0u);
        IsSystemError(kNoCode);
        EXPECT_EQ(GetLastError(), 317u);
    }).join();
    EXPECT_EQ(GetLastError(), 122u);
}

TEST(SystemErrorsNumberDescription, SpeaksEnglish) {
    EXPECT_EQ(test::Wide(GetStandardCLibraryErrorDescriptionOrNULL(2).c_str()), u"No such file or directory");
    EXPECT_EQ(test::Wide(GetStandardCLibraryErrorDescriptionOrNULL(13).c_str()), u"Permission denied");
}

TEST(SystemErrorsNumberDescription, NumberThatIsNoneHasNoDescription) {
    for (const int number : {-1, 41, 58, 134, 0x7FFFFFFF, -0x7FFFFFFF - 1}) {
        EXPECT_EQ(GetStandardCLibraryErrorDescriptionOrNULL(number).c_str(), nullptr) << number;
    }
}

}  // namespace
