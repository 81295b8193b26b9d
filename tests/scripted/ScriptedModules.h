#pragma once

#include <map>
#include <string>

namespace test {

/// The modules for the logic. A null path fails.
struct Modules {
    bool loads = true;
    std::map<std::string, void*> functions;
    const char* modulePath = "/lib/module.so";
    const char* heapName = nullptr;  // of the module that is in the process already
    bool addressIsPossible = true;
    const void* allocationBase = nullptr;

    std::basic_string<unsigned short> loadedName;
    int loadedModules = 0;
    unsigned int pathCapacity = 0;
    std::string askedFunction;
    std::string askedModule;
};

inline Modules gModules;

}  // namespace test
