#include <Base/platform/os/SystemErrors.h>
#include <Base/platform/os/linux/errors/ErrorCodes.h>
#include <Base/platform/os/linux/errors/SystemMessageTable.h>

#include <algorithm>
#include <cstring>
#include <iterator>

namespace ZBase::os {

namespace {

constinit thread_local unsigned int tLastCode = 0;

constexpr unsigned short kSystemLanguage = 0;
constexpr unsigned short kEnglish = 0x409;
constexpr char kLineEnd[] = {'\r', '\n'};

constexpr unsigned int kResultOfWin32 = 0x80070000;  // HRESULT_FROM_WIN32
constexpr unsigned int kStatusOfWin32 = 0xC0070000;  // NTSTATUS_FROM_WIN32

// A failure may carry its Win32 code in the form of an `HRESULT` or an `NTSTATUS`. Success is no failure in
// any form.
const char* FindMessage(unsigned int code) {
    const unsigned int form = code & 0xFFFF0000;
    const unsigned int carried = code & 0xFFFF;
    if (form != kResultOfWin32 && form != kStatusOfWin32) return FindSystemMessage(code);
    return carried == 0 ? nullptr : FindSystemMessage(carried);
}

template <class Ch>
unsigned int Format(unsigned int code, unsigned short language, Ch* buffer, unsigned int capacity) {
    const bool served = language == kSystemLanguage || language == kEnglish;
    const char* text = served ? FindMessage(code) : nullptr;
    if (text == nullptr) {
        SetLastCode(kMessageNotFound);
        return 0;
    }
    const std::size_t textLength = std::strlen(text);
    const std::size_t length = textLength + sizeof(kLineEnd);
    if (buffer == nullptr || capacity <= length) {
        SetLastCode(kInsufficientBuffer);
        return 0;
    }
    // The texts are ASCII.
    buffer = std::copy_n(text, textLength, buffer);
    buffer = std::copy(std::begin(kLineEnd), std::end(kLineEnd), buffer);
    *buffer = 0;
    return static_cast<unsigned int>(length);
}

}  // namespace

unsigned int GetLastCode() {
    return tLastCode;
}

void SetLastCode(unsigned int code) {
    tLastCode = code;
}

unsigned int FormatSystemMessage(unsigned int code, unsigned short language, unsigned short* buffer,
                                 unsigned int capacity) {
    return Format(code, language, buffer, capacity);
}

unsigned int FormatSystemMessage(unsigned int code, unsigned short language, char* buffer,
                                 unsigned int capacity) {
    return Format(code, language, buffer, capacity);
}

const char* DescribeErrorNumber(int errorNumber) {
    return strerrordesc_np(errorNumber);
}

}  // namespace ZBase::os
