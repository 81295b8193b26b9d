// A library with an undefined function.

#include <Base/frame/Api.h>

#include "tests/components/ComponentLog.h"

extern "C" {

int NobodyHasThisFunction();

COMPONENT_API int Run() {
    return NobodyHasThisFunction();
}
}
