#include <Base/platform/os/errors/SystemErrors.h>
#include <Base/platform/os/linux/errors/ErrorCodes.h>
#include <Base/platform/os/shared/SystemMessageText.h>

#include <cstring>

namespace ZBase::os {

namespace {

constinit thread_local unsigned int tLastCode = 0;

template <class Ch>
unsigned int Format(unsigned int code, unsigned short language, Ch* buffer, unsigned int capacity) {
    const bool served = language == kSystemLanguage || language == kEnglish;
    const char* text = served ? FindCarriedMessage(code) : nullptr;
    if (text == nullptr) {
        SetLastCode(kMessageNotFound);
        return 0;
    }
    return WriteSystemMessage(text, buffer, capacity);
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
