#pragma once

#include <cstddef>
#include <cstdint>
#include <string>

namespace test {

/// The kinds of buffers that a program can run on; a debug buffer forwards to one for a single thread.
enum class BufferKind : std::uint8_t { kSingleThread, kLockFree, kChosen, kDebug };
inline constexpr BufferKind kBufferKinds[] = {BufferKind::kSingleThread, BufferKind::kLockFree,
                                              BufferKind::kChosen, BufferKind::kDebug};

/// Runs the program in the bytes, operation by operation, on a buffer and on a model of it; the first byte
/// chooses the kind. Returns the first difference; empty if there is none.
std::string RunBufferProgram(const std::uint8_t* bytes, std::size_t size);

}  // namespace test
