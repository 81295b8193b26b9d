#include <Base/platform/os/windows/stacks/GuardedCall.h>
#include <Base/platform/os/windows/stacks/ImportJump.h>

#include <cstdint>
#include <cstring>

namespace ZBase::os {

const void* BehindImport(const void* function) {
    constexpr unsigned int kJumpThroughMemory = 0x25FF;
    const auto look = [&] {
        unsigned short opcode = 0;
        std::int32_t distance = 0;
        const auto* const code = static_cast<const char*>(function);
        std::memcpy(&opcode, code, sizeof opcode);
        std::memcpy(&distance, code + sizeof opcode, sizeof distance);
        if (opcode == kJumpThroughMemory)
            std::memcpy(&function, code + sizeof opcode + sizeof distance + distance, sizeof function);
    };
    CallGuarded(look);
    return function;
}

}  // namespace ZBase::os
