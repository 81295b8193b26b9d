// LoadOrderProbe: linked with the library's objects, whose constructors and destructors it intercepts: the
// linker (--wrap) resolves each `name` to `__wrap_name` here, and `__real_name` to the library's own.

#include <Base/diagnostics/DbgHelpBuilder.h>
#include <Base/diagnostics/detail/CallStackImp.h>
#include <Base/frame/detail/LibraryState.h>
#include <Base/switches/FeatureFlagMgr.h>

#include "tests/children/InterposedCalls.h"

namespace {

const char* NameOf(const void* object) {
    if (object == &ZBase::FeatureFlagMgr::mFeatureFlagMgrInst) return "feature flags";
    if (object == &ZBase::gCallStackLock) return "call stack lock";
    if (object == &ZBase::gTracerLock) return "tracer lock";
    if (object >= &ZBase::gDbgHelpBuilder && object < &ZBase::gDbgHelpBuilder + 1) return "debug help";
    return "something else";
}

}  // namespace

#define STAND_IN_FRONT_OF(name, what)             \
    extern "C" void __real_##name(void* object);  \
    extern "C" void __wrap_##name(void* object) { \
        probe::Log(what, NameOf(object));         \
        __real_##name(object);                    \
    }

STAND_IN_FRONT_OF(_ZN5ZBase14FeatureFlagMgrC1Ev, "construct")
STAND_IN_FRONT_OF(_ZN5ZBase14FeatureFlagMgrD1Ev, "release")
STAND_IN_FRONT_OF(_ZN5ZBase12CallStackImp24CallStackCriticalSectionC1Ev, "construct")
STAND_IN_FRONT_OF(_ZN5ZBase12CallStackImp24CallStackCriticalSectionD1Ev, "release")
STAND_IN_FRONT_OF(_ZN5ZBase14DbgHelpBuilderC1Ev, "construct")
STAND_IN_FRONT_OF(_ZN5ZBase16DbgHelpFunctionsD1Ev, "release")

int main() {
    probe::Log("main", "");
    ZBase::gContainerPath = probe::kPath;
}
