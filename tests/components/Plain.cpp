// A library that is not a component: it has no initialiser, although its dependency has.

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
