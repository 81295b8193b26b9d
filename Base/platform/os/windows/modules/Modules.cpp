#include <Base/platform/os/modules/Modules.h>
#include <Base/platform/os/windows/WideText.h>

#include <windows.h>

#undef FreeModule  // a name of this seam too

namespace ZBase::os {

namespace {

/// While it lives, no box asks somebody at a screen about a missing disk or library.
class QuietErrors {
public:
    QuietErrors() { SetThreadErrorMode(SEM_FAILCRITICALERRORS | SEM_NOOPENFILEERRORBOX, &mBefore); }
    ~QuietErrors() {
        const DWORD error = GetLastError();
        SetThreadErrorMode(mBefore, nullptr);
        SetLastError(error);
    }
    QuietErrors(const QuietErrors&) = delete;
    QuietErrors& operator=(const QuietErrors&) = delete;

private:
    DWORD mBefore = 0;
};

unsigned int PathOf(HMODULE module, unsigned short* path, unsigned int capacity) {
    return GetModuleFileNameW(module, ToSystem(path), capacity);
}

}  // namespace

const unsigned short* ComponentEnding() {
    static constexpr unsigned short ending[] = {'_', '6', '4', '.', 'd', 'l', 'l', 0};
    return ending;
}

// The system's loader has a code and no words. Not every version has that of a module that is not there for a
// directory.
Module LoadModule(const unsigned short* fileName, std::basic_string<unsigned short>& words) {
    words.clear();
    const QuietErrors quiet;
    const HMODULE module = LoadLibraryW(ToSystem(fileName));
    if (module == nullptr && GetLastError() == ERROR_ACCESS_DENIED) {
        const DWORD kind = GetFileAttributesW(ToSystem(fileName));
        const bool isDirectory = kind != INVALID_FILE_ATTRIBUTES && (kind & FILE_ATTRIBUTE_DIRECTORY) != 0;
        SetLastError(isDirectory ? ERROR_MOD_NOT_FOUND : ERROR_ACCESS_DENIED);
    }
    return module;
}

void FreeModule(Module module) {
    FreeLibrary(static_cast<HMODULE>(module));
}

Module FindLoadedModule(const char* name) {
    HMODULE module = nullptr;
    const std::wstring file = FromUtf8(name) + L".dll";
    return GetModuleHandleExW(GET_MODULE_HANDLE_EX_FLAG_PIN, file.c_str(), &module) != 0 ? module : nullptr;
}

void* FindFunction(Module module, const char* name) {
    SetLastError(ERROR_SUCCESS);
    return reinterpret_cast<void*>(GetProcAddress(static_cast<HMODULE>(module), name));
}

bool FindAllocationBase(const void* address, const void*& base) {
    MEMORY_BASIC_INFORMATION region{};
    if (VirtualQuery(address, &region, sizeof region) == 0) return false;
    base = region.State == MEM_FREE ? nullptr : region.AllocationBase;
    return true;
}

unsigned int GetModulePath(Module module, unsigned short* path, unsigned int capacity) {
    return PathOf(static_cast<HMODULE>(module), path, capacity);
}

// The system takes null for the program.
unsigned int GetModulePathAt(const void* base, unsigned short* path, unsigned int capacity) {
    if (base == nullptr) {
        SetLastError(ERROR_MOD_NOT_FOUND);
        return 0;
    }
    return PathOf(static_cast<HMODULE>(const_cast<void*>(base)), path, capacity);
}

}  // namespace ZBase::os
