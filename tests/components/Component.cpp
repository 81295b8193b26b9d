// A component like the server's: with an initialiser whose object logs its life.

#include <Base/ZBase.h>

#include "tests/components/ComponentLog.h"

namespace {

component::Log gLog = nullptr;
bool gGivesNull = false;
bool gGivesAnother = false;

void Tell(const char* what) {
    if (gLog != nullptr) gLog(what);
}

class Initialiser : public ZSynch::ReferenceCountedImpl<unsigned int> {
public:
    Initialiser() { Tell("made"); }
    ~Initialiser() override { Tell("destroyed"); }
    void OnFinalRelease() override { Tell("released"); }
};

Initialiser* gpInitialiser = nullptr;  // held by the caller that requested it

[[gnu::destructor]] void Unload() {
    Tell("unloaded");
}

}  // namespace

extern "C" {

COMPONENT_API void SetLog(component::Log log) {
    gLog = log;
}

COMPONENT_API void GiveNull() {
    gGivesNull = true;
}

COMPONENT_API void GiveAnother() {
    gGivesAnother = true;
}

COMPONENT_API ZBase::ReferenceCounted* GetZENTDLLInitializer() {
    Tell("asked");
    if (gGivesNull) return nullptr;
    if (gpInitialiser == nullptr || gGivesAnother) gpInitialiser = new Initialiser;
    gGivesAnother = false;
    return gpInitialiser;
}

COMPONENT_API int AddOne(int number) {
    return number + 1;
}
}
