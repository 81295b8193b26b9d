// A component whose initialiser throws what the program tells it to.

#include <Base/ZBase.h>

#include <stdexcept>

static int gKind = 0;

extern "C" {

ZBASE_API void SetKind(int kind) {
    gKind = kind;
}

ZBASE_API ZBase::ReferenceCounted* GetZENTDLLInitializer() {
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
