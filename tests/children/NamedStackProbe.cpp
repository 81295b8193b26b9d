// NamedStackProbe [deleted|replaced]: prints its own stack, and the results of `Fetch` for it, optionally
// after its file was deleted or replaced.

#include <Base/ZBase.h>

#include <cstdio>
#include <cstring>
#include <filesystem>
#include <string>

[[gnu::noinline]] void Inner() {
    ZBase::CallStack* const stack = ZBase::CreateCallStack(nullptr);
    for (const unsigned short* text = stack->ToString(); *text != 0; ++text) std::putchar(*text);
    stack->Delete();
    std::uint64_t found[2] = {};
    ZBase::gDbgHelpBuilder.DoStackWalk(found, 1, 1);
    std::string module, symbol, file, line;
    ZBase::AddrToLine().Fetch(found[0], module, symbol, file, line);
    std::printf("\nfetched %s %s\n", symbol.c_str(), module.c_str());
}

int main(int argc, char** argv) {
    if (argc > 1) {
        std::filesystem::remove(argv[0]);
        if (std::strcmp(argv[1], "replaced") == 0) std::filesystem::copy_file("/bin/true", argv[0]);
    }
    Inner();
}
