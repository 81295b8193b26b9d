#include <Base/frame/WideString.h>
#include <Base/messages/SystemErrors.h>
#include <Base/messages/detail/AsciiCase.h>
#include <Base/platform/os/errors/SystemErrors.h>
#include <Base/text/MultibyteConversions.h>
#include <Base/text/NumberText.h>

#include <algorithm>
#include <iterator>
#include <string>
#include <string_view>

namespace ZBase {

namespace {

constexpr unsigned int kInsufficientBuffer = 122;

struct Symbol {
    unsigned int number;
    const char* name;
};

// The numbers are those of the Windows C library, which has the same gaps.
constexpr Symbol kErrorNumbers[] = {
    {1, "EPERM"},      {2, "ENOENT"},  {3, "ESRCH"},     {4, "EINTR"},         {5, "EIO"},     {6, "ENXIO"},
    {7, "E2BIG"},      {8, "ENOEXEC"}, {9, "EBADF"},     {10, "ECHILD"},       {11, "EAGAIN"}, {12, "ENOMEM"},
    {13, "EACCES"},    {14, "EFAULT"}, {16, "EBUSY"},    {17, "EEXIST"},       {18, "EXDEV"},  {19, "ENODEV"},
    {20, "ENOTDIR"},   {21, "EISDIR"}, {22, "EINVAL"},   {23, "ENFILE"},       {24, "EMFILE"}, {25, "ENOTTY"},
    {27, "EFBIG"},     {28, "ENOSPC"}, {29, "ESPIPE"},   {30, "EROFS"},        {31, "EMLINK"}, {32, "EPIPE"},
    {33, "EDOM"},      {34, "ERANGE"}, {36, "EDEADLK"},  {38, "ENAMETOOLONG"}, {39, "ENOLCK"}, {40, "ENOSYS"},
    {41, "ENOTEMPTY"}, {42, "EILSEQ"}, {139, "ETXTBSY"},
};

constexpr Symbol kExceptions[] = {
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

static_assert(std::ranges::is_sorted(kErrorNumbers, {}, &Symbol::number));
static_assert(std::ranges::is_sorted(kExceptions, {}, &Symbol::number));

template <std::size_t N>
const char* FindSymbol(const Symbol (&table)[N], unsigned int number) {
    const Symbol* row = std::ranges::lower_bound(table, number, {}, &Symbol::number);
    return row != std::end(table) && row->number == number ? row->name : nullptr;
}

// "0x" and eight upper-case digits.
std::string HexCode(unsigned int code) {
    std::string text = "0x00000000";
    for (std::size_t i = text.size(); code != 0; code >>= 4) text[--i] = "0123456789ABCDEF"[code & 15];
    return text;
}

void Append(WideString& text, std::string_view ascii) {
    text.append(ascii.begin(), ascii.end());
}

}  // namespace

unsigned int GetLastError() {
    return os::GetLastCode();
}

ReturnWString GetSystemErrorDescription(unsigned int code) {
    WideString text;
    Append(text, "System Error ");
    Append(text, HexCode(code));
    Append(text, " (");
    Append(text, ToDecimal64String(code).c_str());
    Append(text, "): --- ");
    const ReturnWString description = GetWin32APIErrorDescriptionOrNULL(code, 0);
    if (description.c_str() != nullptr) {
        text += description.c_str();
    } else {
        Append(text, "Unknown error.");
    }
    return ReturnWString(text.c_str());
}

bool IsSystemError(unsigned int code) {
    // Called for its last code: without a buffer a known code fails with "buffer too small".
    os::FormatSystemMessage(code, 0, static_cast<char*>(nullptr), 0);
    return os::GetLastCode() == kInsufficientBuffer;
}

ReturnWString GetWin32APIErrorDescriptionOrNULL(unsigned int code, unsigned short language) {
    constexpr unsigned int capacity = 255;  // a longer description counts as none
    constexpr unsigned int lineEnd = 2;
    unsigned short text[capacity + 1];
    const unsigned int length = os::FormatSystemMessage(code, language, text, capacity);
    if (length < lineEnd) return ReturnWString(nullptr);
    text[length - lineEnd] = 0;
    return ReturnWString(text);
}

ReturnWString GetStandardCLibraryErrorDescriptionOrNULL(int errorNumber) {
    const char* text = os::DescribeErrorNumber(errorNumber);
    // Some C libraries return "unknown error" for a number without a description.
    if (text == nullptr || *text == 0 || detail::EqualsInAnyAsciiCase(text, "unknown error")) {
        return ReturnWString(nullptr);
    }
    return MultiByteToWideChar(text, true);
}

ReturnString GetStandardCLibraryErrorSymbolOrNULL(int errorNumber) {
    return ReturnString(FindSymbol(kErrorNumbers, static_cast<unsigned int>(errorNumber)));
}

ReturnString GetStandardCLibraryErrorSymbolOrDecimalString(int errorNumber) {
    const char* symbol = FindSymbol(kErrorNumbers, static_cast<unsigned int>(errorNumber));
    return symbol != nullptr ? ReturnString(symbol) : ToDecimalString(errorNumber);
}

ReturnString GetWin32ExceptionSymbolOrNULL(unsigned int code) {
    return ReturnString(FindSymbol(kExceptions, code));
}

ReturnString GetWin32ExceptionSymbolOrHexUpperString(unsigned int code) {
    const char* symbol = FindSymbol(kExceptions, code);
    return ReturnString(symbol != nullptr ? symbol : HexCode(code).c_str());
}

}  // namespace ZBase
