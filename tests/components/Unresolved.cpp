// A library that asks for a function that nobody has.

#include <Base/frame/Api.h>

extern "C" {

int NobodyHasThisFunction();

ZBASE_API int Run() {
    return NobodyHasThisFunction();
}
}
