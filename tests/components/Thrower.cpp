// A component whose initialiser throws as the program chooses.

#include <Base/ZBase.h>

#include <stdexcept>

#include "tests/components/ComponentLog.h"

static int gKind = 0;

extern "C" {

COMPONENT_API void SetKind(int kind) {
    gKind = kind;
}

COMPONENT_API ZBase::ReferenceCounted* GetZENTDLLInitializer() {
    switch (gKind) {
        case 0:
            throw ZBase::Message(7, 8, "not today");
        case 1:
            throw ZBase::ExceptionImpl<ZBase::BufferException>();
        case 2:
            throw std::runtime_error("not today");
        default:
            throw gKind;
    }
}
}
