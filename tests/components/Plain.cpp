// A library that is no component: it has no initialiser, although the one that it needs has.

#include <Base/frame/Api.h>

#include "tests/components/ComponentLog.h"

static component::Log gLog = nullptr;

[[gnu::destructor]] static void Unload() {
    if (gLog != nullptr) gLog("unloaded");
}

extern "C" {

int AddOne(int number);  // of Component

COMPONENT_API void SetLog(component::Log log) {
    gLog = log;
}

COMPONENT_API int AddTwo(int number) {
    return AddOne(AddOne(number));
}
}
