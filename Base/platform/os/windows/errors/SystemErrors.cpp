#include <Base/platform/os/errors/SystemErrors.h>
#include <Base/platform/os/shared/SystemMessageText.h>
#include <Base/platform/os/windows/WideText.h>

#include <windows.h>

#include <cstdlib>
#include <cstring>

namespace ZBase::os {

namespace {

// The result of a call that failed by a code of the system that is none. Not every version goes without a
// text.
constexpr unsigned int kResultWithoutCode = 0x00070000;
constexpr unsigned int kOfResult = 0x1FFFFFFF;  // without its severity

constexpr DWORD kSource = FORMAT_MESSAGE_FROM_SYSTEM | FORMAT_MESSAGE_IGNORE_INSERTS;

// Whether the system has a text, which goes to nobody.
bool HasText(unsigned int code, unsigned short language) {
    wchar_t* text = nullptr;
    const DWORD length = FormatMessageW(kSource | FORMAT_MESSAGE_ALLOCATE_BUFFER, nullptr, code, language,
                                        reinterpret_cast<wchar_t*>(&text), 0, nullptr);
    LocalFree(text);
    return length != 0;
}

// English is the same on every system: the texts of the table. What the table lacks, and what is in another
// language, is the system's.
template <class Ch, class FromSystem>
unsigned int Format(unsigned int code, unsigned short language, Ch* buffer, unsigned int capacity,
                    FromSystem fromSystem) {
    if ((code & kOfResult) == kResultWithoutCode) {
        SetLastError(ERROR_MR_MID_NOT_FOUND);
        return 0;
    }
    const bool isEnglish = language == kSystemLanguage || language == kEnglish;
    if (const char* text = isEnglish ? FindCarriedMessage(code) : nullptr)
        return WriteSystemMessage(text, buffer, capacity);
    // Not every system has its English texts: then the language is left to it.
    const bool isLeft = language == kSystemLanguage && !HasText(code, kEnglish);
    const unsigned short served = isEnglish && !isLeft ? kEnglish : language;
    if (buffer == nullptr || capacity == 0) {
        SetLastError(HasText(code, served) ? ERROR_INSUFFICIENT_BUFFER : ERROR_MR_MID_NOT_FOUND);
        return 0;
    }
    const DWORD length = fromSystem(served);
    if (length == 0 && GetLastError() != ERROR_INSUFFICIENT_BUFFER) SetLastError(ERROR_MR_MID_NOT_FOUND);
    return length;
}

}  // namespace

unsigned int GetLastCode() {
    return GetLastError();
}

void SetLastCode(unsigned int code) {
    SetLastError(code);
}

unsigned int FormatSystemMessage(unsigned int code, unsigned short language, unsigned short* buffer,
                                 unsigned int capacity) {
    return Format(code, language, buffer, capacity, [=](unsigned short served) {
        return FormatMessageW(kSource, nullptr, code, served, ToSystem(buffer), capacity, nullptr);
    });
}

unsigned int FormatSystemMessage(unsigned int code, unsigned short language, char* buffer,
                                 unsigned int capacity) {
    return Format(code, language, buffer, capacity, [=](unsigned short served) {
        return FormatMessageA(kSource, nullptr, code, served, buffer, capacity, nullptr);
    });
}

const char* DescribeErrorNumber(int errorNumber) {
    if (errorNumber < 0 || errorNumber >= _sys_nerr) return nullptr;
    const char* const text = _sys_errlist[errorNumber];
    return text == nullptr || std::strcmp(text, "Unknown error") == 0 ? nullptr : text;
}

}  // namespace ZBase::os
