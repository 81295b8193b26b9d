#include <Base/platform/os/stacks/DebugHelp.h>

#include <dlfcn.h>
#include <string>

#include <Base/platform/os/errors/SystemErrors.h>
#include <Base/platform/os/linux/errors/ErrorCodes.h>
#include <Base/platform/os/linux/modules/ModulePath.h>

namespace ZBase::os {

namespace {

constexpr char kLibrary[] = "libzbase_debughelp.so";

}  // namespace

void* OpenDebugHelp() {
    // Only from the directory of this library: no search path is used for code loaded into a server.
    dl_find_object self;
    void* library = nullptr;
    if (_dl_find_object(reinterpret_cast<void*>(&OpenDebugHelp), &self) == 0) {
        std::string path = ModulePath(*self.dlfo_link_map);
        path.erase(path.rfind('/') + 1);
        if (path.starts_with('/')) library = dlopen((path + kLibrary).c_str(), RTLD_NOW | RTLD_LOCAL);
    }
    if (library == nullptr) SetLastCode(kModuleNotFound);
    return library;
}

void CloseDebugHelp(void* library) {
    dlclose(library);
}

EntryPoint FindDebugHelpEntry(void* library, const char* name) {
    void* const entry = dlsym(library, name);
    if (entry == nullptr) SetLastCode(kProcedureNotFound);
    return reinterpret_cast<EntryPoint>(entry);
}

void* CurrentProcess() {
    return reinterpret_cast<void*>(-1);
}

void* CurrentThread() {
    return reinterpret_cast<void*>(-2);
}

}  // namespace ZBase::os
