#include "tests/scripted/ScriptedSystemErrors.h"

#include <Base/platform/os/errors/SystemErrors.h>

namespace {

template <class Ch>
unsigned int Answer(unsigned int code, unsigned short language, Ch* buffer, unsigned int capacity) {
    test::SystemErrors& system = test::gSystemErrors;
    system.askedCode = code;
    system.askedLanguage = language;
    system.askedCapacity = capacity;
    system.lastCode = system.codeAfter;
    if (buffer != nullptr && system.text.size() < capacity) {
        for (const unsigned short unit : system.text) *buffer++ = static_cast<Ch>(unit);
        *buffer = 0;
    }
    return system.result;
}

}  // namespace

namespace ZBase::os {

unsigned int GetLastCode() {
    return test::gSystemErrors.lastCode;
}

void SetLastCode(unsigned int code) {
    test::gSystemErrors.lastCode = code;
}

unsigned int FormatSystemMessage(unsigned int code, unsigned short language, unsigned short* buffer,
                                 unsigned int capacity) {
    return Answer(code, language, buffer, capacity);
}

unsigned int FormatSystemMessage(unsigned int code, unsigned short language, char* buffer,
                                 unsigned int capacity) {
    return Answer(code, language, buffer, capacity);
}

const char* DescribeErrorNumber(int errorNumber) {
    test::gSystemErrors.askedErrorNumber = errorNumber;
    return test::gSystemErrors.description;
}

}  // namespace ZBase::os
