#include <Base/frame/Environment.h>
#include <Base/frame/WideLiteral.h>
#include <Base/platform/os/processes/Environment.h>

#include <string>

namespace ZBase {

ReturnWString GetEnvironmentVariableOrNULL(const unsigned short* name) {
    std::basic_string<unsigned short> value;
    if (name == nullptr || !os::GetEnvironment(name, value)) return ReturnWString(nullptr);
    return ReturnWString(value.c_str());
}

ReturnWString ReadEnvironmentVariable(const unsigned short* name) {
    ReturnWString value = GetEnvironmentVariableOrNULL(name);
    return value.c_str() == nullptr ? ReturnWString(""_w) : value;
}

void SetEnvironmentVariable(const unsigned short* name, const unsigned short* value) {
    if (name == nullptr) return;
    os::PutEnvironment(name, value == nullptr ? ""_w : value);
}

std::int64_t GetNumericEnvironmentVariable(const char* name, std::int64_t defaultValue) {
    try {
        const char* value = name == nullptr ? nullptr : os::GetNarrowEnvironment(name);
        return value == nullptr ? defaultValue : std::stoll(value);
    } catch (...) {
        return defaultValue;
    }
}

}  // namespace ZBase
