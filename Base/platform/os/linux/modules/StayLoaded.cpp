#include <Base/platform/os/modules/StayLoaded.h>

#include <dlfcn.h>

namespace ZBase::os {

void StayLoaded() {
    Dl_info library{};
    if (dladdr(reinterpret_cast<const void*>(&StayLoaded), &library) != 0)
        dlopen(library.dli_fname, RTLD_NOW | RTLD_NOLOAD | RTLD_NODELETE);
}

}  // namespace ZBase::os
