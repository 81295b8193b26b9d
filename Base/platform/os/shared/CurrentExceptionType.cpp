// Of every system whose C++ run-time has the interface that GCC and Clang have in common.

#include <Base/platform/os/CurrentExceptionType.h>

#include <cxxabi.h>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <typeinfo>

namespace ZBase::os {

bool GetCurrentExceptionType(char* name, std::size_t capacity, bool hasHeap) noexcept {
    name[0] = 0;
    const std::type_info* const type = abi::__cxa_current_exception_type();
    if (type == nullptr) return false;
    int status = 0;
    const std::unique_ptr<char, decltype(&std::free)> readable(
        hasHeap ? abi::__cxa_demangle(type->name(), nullptr, nullptr, &status) : nullptr, &std::free);
    std::strncpy(name, readable ? readable.get() : type->name(), capacity - 1);
    name[capacity - 1] = 0;
    return true;
}

}  // namespace ZBase::os
