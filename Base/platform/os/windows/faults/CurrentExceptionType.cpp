#include <Base/platform/os/CurrentExceptionType.h>

#include <cxxabi.h>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <typeinfo>

namespace ZBase::os {

void GetCurrentExceptionType(char* name, std::size_t capacity) noexcept {
    name[0] = 0;
    const std::type_info* const type = abi::__cxa_current_exception_type();
    if (type == nullptr) return;
    int status = 0;
    const std::unique_ptr<char, decltype(&std::free)> readable(
        abi::__cxa_demangle(type->name(), nullptr, nullptr, &status), &std::free);
    std::strncpy(name, readable ? readable.get() : type->name(), capacity - 1);
    name[capacity - 1] = 0;
}

}  // namespace ZBase::os
