// A library that asks for a function that nobody has.

#include <Base/frame/Api.h>

#include "tests/components/ComponentLog.h"

extern "C" {

int NobodyHasThisFunction();

COMPONENT_API int Run() {
    return NobodyHasThisFunction();
}
}
