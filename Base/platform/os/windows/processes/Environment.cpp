#include <Base/platform/os/processes/Environment.h>
#include <Base/platform/os/windows/WideText.h>

#include <windows.h>

#include <cstdlib>
#include <map>
#include <mutex>
#include <utility>

namespace ZBase::os {

bool GetEnvironment(const unsigned short* name, std::basic_string<unsigned short>& value) {
    const wchar_t* const text = *name == 0 ? nullptr : _wgetenv(ToSystem(name));
    if (text == nullptr) return false;
    const std::wstring_view view(text);
    value.assign(view.begin(), view.end());
    return true;
}

bool PutEnvironment(const unsigned short* name, const unsigned short* value) {
    const std::wstring assignment = std::wstring(ToSystem(name)) + L'=' + ToSystem(value);
    if (_wputenv(assignment.c_str()) == 0) return true;
    SetLastError(ERROR_INVALID_PARAMETER);
    return false;
}

// The C library's narrow environment is in the code page of the system's own programs. What was given stays:
// a variable that changes leaves its old value behind, and a server's do not change often.
const char* GetNarrowEnvironment(const char* name) {
    static std::mutex lock;
    static std::map<std::pair<std::string, std::string>, bool> given;
    const std::wstring wide = FromUtf8(name);
    const wchar_t* const text = wide.empty() ? nullptr : _wgetenv(wide.c_str());
    if (text == nullptr) return nullptr;
    const std::lock_guard guard(lock);
    return given.try_emplace({name, ToUtf8(text)}, true).first->first.second.c_str();
}

}  // namespace ZBase::os
