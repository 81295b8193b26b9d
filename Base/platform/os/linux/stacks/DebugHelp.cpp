#include <Base/platform/os/stacks/DebugHelp.h>

#include <dlfcn.h>
#include <sys/resource.h>
#include <string>

#include <Base/platform/os/errors/SystemErrors.h>
#include <Base/platform/os/linux/errors/ErrorCodes.h>
#include <Base/platform/os/linux/modules/ModulePath.h>

namespace ZBase::os {

namespace {

constexpr char kLibrary[] = "libzbase_debughelp.so";

// As many descriptors as this process may have, while it lives. The usual limit is a soft one, which servers
// reach, and debug help that could not be opened once is missing for good.
class AllDescriptors {
public:
    AllDescriptors() {
        if (getrlimit(RLIMIT_NOFILE, &mBefore) != 0) return;
        const rlimit all{mBefore.rlim_max, mBefore.rlim_max};
        mIsRaised = mBefore.rlim_cur != mBefore.rlim_max && setrlimit(RLIMIT_NOFILE, &all) == 0;
    }
    ~AllDescriptors() {
        if (mIsRaised) setrlimit(RLIMIT_NOFILE, &mBefore);
    }
    AllDescriptors(const AllDescriptors&) = delete;
    AllDescriptors& operator=(const AllDescriptors&) = delete;

private:
    rlimit mBefore{};
    bool mIsRaised = false;
};

void* OpenLibrary(const char* path) {
    void* const library = dlopen(path, RTLD_NOW | RTLD_LOCAL);
    if (library != nullptr) return library;
    const AllDescriptors descriptors;
    return dlopen(path, RTLD_NOW | RTLD_LOCAL);
}

}  // namespace

void* OpenDebugHelp() {
    // Only from the directory of this library: no search path is used for code loaded into a server.
    dl_find_object self;
    void* library = nullptr;
    if (_dl_find_object(reinterpret_cast<void*>(&OpenDebugHelp), &self) == 0) {
        std::string path = ModulePath(*self.dlfo_link_map);
        path.erase(path.rfind('/') + 1);
        if (path.starts_with('/')) library = OpenLibrary((path + kLibrary).c_str());
    }
    if (library == nullptr) SetLastCode(kModuleNotFound);
    return library;
}

// It stays loaded: threads may be in it when this library is unloaded, and end later with what they keep for
// it. Were it marked so itself, a loader that runs out of memory would leave it behind, opened by half.
void CloseDebugHelp(void*) {}

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
