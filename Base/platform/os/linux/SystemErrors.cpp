#include <Base/platform/os/SystemErrors.h>
#include <Base/platform/os/linux/ErrorCodes.h>
#include <Base/platform/os/linux/SystemMessageTable.h>

#include <algorithm>
#include <cstring>
#include <iterator>

namespace ZBase::os {

namespace {

constinit thread_local unsigned int tLastCode = 0;

constexpr unsigned short kSystemLanguage = 0;
constexpr unsigned short kEnglish = 0x409;
constexpr char kLineEnd[] = {'\r', '\n'};

template <class Ch>
unsigned int Format(unsigned int code, unsigned short language, Ch* buffer, unsigned int capacity) {
    const bool served = language == kSystemLanguage || language == kEnglish;
    const char* text = served ? FindSystemMessage(code) : nullptr;
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
