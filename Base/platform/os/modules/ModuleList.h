#pragma once

#include <cstdint>

namespace ZBase::os {

struct ModuleSection {
    std::uint32_t virtualAddress;  // from the start of the module
    std::uint32_t virtualSize;
    std::uint32_t sizeOfRawData;
};

/// Section number `index`, from 0, of the module that begins at `base`; false after the last one.
bool GetModuleSection(std::uint64_t base, unsigned int index, ModuleSection& section);

struct ModuleInformation {
    std::uint64_t base;
    std::uint64_t size;
};

/// Puts the handles of the process's modules, as many as fit into `bytes`, into `modules`, and the bytes
/// needed for all of them into `needed`.
bool EnumerateModules(std::uint64_t* modules, std::uint32_t bytes, std::uint32_t& needed);

/// Writes the file name of a module without its directory, cut to `capacity` with the terminator.
std::uint32_t GetModuleBaseName(std::uint64_t module, char* name, std::uint32_t capacity);

bool GetModuleInformation(std::uint64_t module, ModuleInformation& information);

}  // namespace ZBase::os
