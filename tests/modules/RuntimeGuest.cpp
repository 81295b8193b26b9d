// Loaded by a program in another language to use the library: it installs the crash handler, and crashes.

#include <Base/ZBase.h>

namespace {

void* volatile gNull = nullptr;

}  // namespace

extern "C" {

__attribute__((visibility("default"))) int GuestInstall() {
    return ZBase::InstallCrashHandler();
}

__attribute__((visibility("default"), noipa)) void GuestCrash() {
    *static_cast<volatile int*>(gNull) = 1;
    asm volatile("");
}

// By the names that Java looks for, in a class Host.
__attribute__((visibility("default"))) int Java_Host_install(void*, void*) {
    return GuestInstall();
}

__attribute__((visibility("default"))) void Java_Host_crash(void*, void*) {
    GuestCrash();
}
}
