// LinkedProbe: linked with the library, which is thus loaded before main and unloaded at exit.

#include <Base/ZBase.h>

#include "tests/children/InterposedCalls.h"

int main() {
    probe::Log("main", "");
    ZBase::SetContainerPath(probe::kPath);
    return std::strcmp(ZBase::GetProcessLocale(), probe::kLocaleName) == 0 ? 0 : 1;
}
