#include <Base/memory/BufferGrowth.h>

#include <Base/memory/detail/BufferBase.h>
#include <Base/memory/detail/DebugBuffer.h>

namespace ZBase {

bool LimitGrowth(Buffer* buffer, std::size_t chunkBytes) {
    if (auto* const debug = dynamic_cast<DebugBuffer*>(buffer)) return debug->LimitGrowth(chunkBytes);
    auto* const own = dynamic_cast<BufferBase*>(buffer);
    if (own == nullptr) return false;
    own->LimitGrowth(chunkBytes);
    return true;
}

}  // namespace ZBase
