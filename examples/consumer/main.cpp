// Throws a failure of the library, wraps it, and prints it where it is caught.

#include <Base/ZBase.h>

#include <cstdio>

namespace {

void Convert(const char* name) {
    try {
        ZBase::UTF8ToWideChar(name, false);
    } catch (ZBase::Message& failure) {
        failure.WrapBy(ZBase::MESSAGE_DOMAIN_SERVER, 7, "The name \"%1\" is not UTF-8.") << "caf\xC3\xA9";
        throw;
    }
}

}  // namespace

int main() {
    try {
        Convert("caf\xE9");
    } catch (const ZBase::Message& failure) {
        std::puts(ZBase::FormatMessage(failure, 0).c_str());
        return failure.GetID() == 7 ? 0 : 1;
    }
    return 1;
}
