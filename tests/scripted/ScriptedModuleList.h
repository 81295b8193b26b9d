#pragma once

#include <Base/platform/os/modules/ModuleList.h>

#include <string>
#include <vector>

namespace test {

struct ListedModule {
    std::uint64_t base;
    std::string name;
    bool hasInformation = true;
};

/// The modules of the process, set by the test. All have the same sections.
struct ModuleList {
    bool enumerates = true;
    std::vector<ListedModule> modules;
    std::vector<ZBase::os::ModuleSection> sections;

    int enumerations = 0;
};

inline ModuleList gModuleList;

}  // namespace test
