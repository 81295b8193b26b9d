#include <Base/platform/os/linux/errors/ErrorCodes.h>
#include <Base/platform/os/linux/text/NativeText.h>
#include <Base/platform/os/processes/Environment.h>

#include <sys/auxv.h>
#include <cstdlib>
#include <string>

namespace ZBase::os {

bool GetEnvironment(const unsigned short* name, std::basic_string<unsigned short>& value) {
    const char* text = std::getenv(ToNative(name).c_str());
    if (text == nullptr) return false;
    value = FromNative(text);
    return true;
}

bool PutEnvironment(const unsigned short* name, const unsigned short* value) {
    const std::string text = ToNative(name) + "=" + ToNative(value);  // split where the system would split it
    const std::size_t nameLength = text.find('=');
    const std::string variable = text.substr(0, nameLength);
    const char* content = text.c_str() + nameLength + 1;
    const int result = *content == 0 ? unsetenv(variable.c_str()) : setenv(variable.c_str(), content, 1);
    if (result != 0) SetLastCodeFromErrno();
    return result == 0;
}

const char* GetNarrowEnvironment(const char* name) {
    // The caller of a set-user-id program controls its environment, which must not direct the program.
    return getauxval(AT_SECURE) != 0 ? nullptr : std::getenv(name);
}

}  // namespace ZBase::os
