#pragma once

#include <Base/memory/Buffer.h>

#include <memory>

namespace ZBase {

/// Deleter of a buffer: `Delete`.
struct DeleteBuffer {
    void operator()(Buffer* buffer) const { buffer->Delete(); }
};

/// Owns a buffer: `const BufferPtr buffer(CreateBuffer(...))`. Like the destructor of a `std::unique_ptr` it
/// ends the process when a clean-up throws; with such clean-ups call `release()->Delete()`.
using BufferPtr = std::unique_ptr<Buffer, DeleteBuffer>;

}  // namespace ZBase
