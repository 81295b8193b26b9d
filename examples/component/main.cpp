// Loads a component by its bare name, runs its initialiser, uses it and unloads it. The file is
// "Greeter_64.so", on Windows "Greeter_64.dll", beside this program.

#include <Base/ZBase.h>

#include "Greeting.h"

#include <cstdio>

using namespace ZBase::Literals;

int main() {
    try {
        {
            const auto component = ZBase::LoadSharedLibrary("Greeter"_w);
            std::printf("host: loaded %s\n",
                        ZBase::WideCharToUTF8(component->GetFilePath().c_str(), true).c_str());
            component->ZENTInitialize();

            const auto greet = reinterpret_cast<Greet>(component->GetFunctionAddress("Greet"_w));
            char greeting[64];
            greet("server", greeting, sizeof greeting);
            std::printf("host: %s\n", greeting);

            // A missing component gives a message with the reason.
            ZBase::Message failure;
            if (component->GetFunctionAddressOrNULL("Sing"_w, &failure) == nullptr) {
                std::printf("host: %s\n", ZBase::FormatMessage(failure, 0).c_str());
            }
        }  // the component's object is released first, then the component
        std::puts("host: let go");
        return 0;
    } catch (const ZBase::Message& failure) {
        std::fprintf(stderr, "%s\n", ZBase::FormatMessage(failure, 0).c_str());
        return 1;
    }
}
