#pragma once

#include <cstddef>
#include <cstdint>
#include <string>

namespace test {

/// Runs the program in the bytes, operation by operation, on messages of several sizes and alignments and on
/// models of them. Returns the first difference, with its operation; empty if there is none.
std::string RunMessageProgram(const std::uint8_t* bytes, std::size_t size);

}  // namespace test
