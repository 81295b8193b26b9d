#include <Base/platform/os/Environment.h>
#include <Base/platform/os/linux/NativeText.h>

#include <cstdlib>

namespace ZBase::os {

bool GetEnvironment(const unsigned short* name, std::basic_string<unsigned short>& value) {
    const char* text = std::getenv(ToNative(name).c_str());
    if (text == nullptr) return false;
    value = FromNative(text);
    return true;
}

bool PutEnvironment(const unsigned short* name, const unsigned short* value) {
    const std::string nativeName = ToNative(name);
    if (*value == 0) return unsetenv(nativeName.c_str()) == 0;
    return setenv(nativeName.c_str(), ToNative(value).c_str(), 1) == 0;
}

const char* GetNarrowEnvironment(const char* name) {
    return std::getenv(name);
}

}  // namespace ZBase::os
