#pragma once

#include <cstddef>
#include <cstdint>
#include <string>

namespace test {

/// Runs the program that the bytes spell, operation by operation, on messages of several sizes and alignments
/// and on models of them. Gives what differs, with the operation after which it does; empty when nothing
/// does.
std::string RunMessageProgram(const std::uint8_t* bytes, std::size_t size);

}  // namespace test
