#pragma once

#include <Base/platform/os/errors/SystemErrors.h>
#include <Base/platform/os/shared/SystemMessageTable.h>

#include <algorithm>
#include <cstring>
#include <iterator>

namespace ZBase::os {

inline constexpr unsigned short kSystemLanguage = 0;
inline constexpr unsigned short kEnglish = 0x409;
inline constexpr unsigned int kNoBufferForMessage = 122;

/// The English text of a code of the table. A failure may carry its Win32 code in the form of an `HRESULT` or
/// an `NTSTATUS`. Success is no failure in any form.
inline const char* FindCarriedMessage(unsigned int code) {
    constexpr unsigned int resultOfWin32 = 0x80070000;  // HRESULT_FROM_WIN32
    constexpr unsigned int statusOfWin32 = 0xC0070000;  // NTSTATUS_FROM_WIN32
    const unsigned int form = code & 0xFFFF0000;
    const unsigned int carried = code & 0xFFFF;
    if (form != resultOfWin32 && form != statusOfWin32) return FindSystemMessage(code);
    return carried == 0 ? nullptr : FindSystemMessage(carried);
}

/// Writes a text of the table, the line end that the system's texts have, and a terminator. Gives the units
/// before the terminator; 0 with the last code 122 if there is no room.
template <class Ch>
unsigned int WriteSystemMessage(const char* text, Ch* buffer, unsigned int capacity) {
    constexpr char lineEnd[] = {'\r', '\n'};
    const std::size_t textLength = std::strlen(text);
    const std::size_t length = textLength + sizeof(lineEnd);
    if (buffer == nullptr || capacity <= length) {
        SetLastCode(kNoBufferForMessage);
        return 0;
    }
    // The texts are ASCII.
    buffer = std::copy_n(text, textLength, buffer);
    buffer = std::copy(std::begin(lineEnd), std::end(lineEnd), buffer);
    *buffer = 0;
    return static_cast<unsigned int>(length);
}

}  // namespace ZBase::os
