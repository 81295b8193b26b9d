#include "tests/scripted/ScriptedModuleList.h"

#include <algorithm>
#include <cstring>

namespace ZBase::os {

using test::gModuleList;

bool GetModuleSection(std::uint64_t, unsigned int index, ModuleSection& section) {
    if (index >= gModuleList.sections.size()) return false;
    section = gModuleList.sections[index];
    return true;
}

bool EnumerateModules(std::uint64_t* modules, std::uint32_t bytes, std::uint32_t& needed) {
    ++gModuleList.enumerations;
    if (!gModuleList.enumerates) return false;
    const std::size_t count = std::min<std::size_t>(bytes / sizeof *modules, gModuleList.modules.size());
    for (std::size_t i = 0; i != count; ++i) modules[i] = i;  // handles, which are not the bases
    needed = static_cast<std::uint32_t>(gModuleList.modules.size() * sizeof *modules);
    return true;
}

std::uint32_t GetModuleBaseName(std::uint64_t module, char* name, std::uint32_t capacity) {
    const std::string& text = gModuleList.modules[module].name;
    if (text.empty() || text.size() >= capacity) return 0;
    std::strcpy(name, text.c_str());
    return static_cast<std::uint32_t>(text.size());
}

bool GetModuleInformation(std::uint64_t module, ModuleInformation& information) {
    if (!gModuleList.modules[module].hasInformation) return false;
    information = {gModuleList.modules[module].base, 0x1000};
    return true;
}

}  // namespace ZBase::os
