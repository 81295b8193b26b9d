#include "tests/scripted/ScriptedModules.h"

#include <Base/platform/os/modules/Modules.h>

namespace ZBase::os {

namespace {

unsigned int PutPath(unsigned short* path, unsigned int capacity) {
    test::gModules.pathCapacity = capacity;
    const char* text = test::gModules.modulePath;
    unsigned int length = 0;
    for (; text != nullptr && text[length] != 0 && length + 1 < capacity; ++length) {
        path[length] = static_cast<unsigned char>(text[length]);
    }
    if (length != 0) path[length] = 0;
    return length;
}

}  // namespace

const unsigned short* ComponentEnding() {
    static constexpr unsigned short ending[] = {'_', '6', '4', '.', 'd', 'l', 'l', 0};
    return ending;
}

Module LoadModule(const unsigned short* fileName, std::basic_string<unsigned short>&) {
    test::gModules.loadedName = fileName;
    if (!test::gModules.loads) return nullptr;
    ++test::gModules.loadedModules;
    return &test::gModules;
}

void FreeModule(Module module) {
    if (module == &test::gModules) --test::gModules.loadedModules;
}

Module FindLoadedModule(const char* name) {
    test::gModules.askedModule = name;
    const char* heap = test::gModules.heapName;
    return heap != nullptr && test::gModules.askedModule == heap ? &test::gModules : nullptr;
}

void* FindFunction(Module, const char* name) {
    test::gModules.askedFunction = name;
    const auto found = test::gModules.functions.find(name);
    return found == test::gModules.functions.end() ? nullptr : found->second;
}

bool FindAllocationBase(const void*, const void*& base) {
    base = test::gModules.allocationBase;
    return test::gModules.addressIsPossible;
}

unsigned int GetModulePath(Module, unsigned short* path, unsigned int capacity) {
    return PutPath(path, capacity);
}

unsigned int GetModulePathAt(const void*, unsigned short* path, unsigned int capacity) {
    return PutPath(path, capacity);
}

}  // namespace ZBase::os
