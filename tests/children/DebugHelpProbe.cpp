// DebugHelpProbe WHAT...: uses debug help in the library's directory, which a test has set up. Prints the
// results.

#include <Base/ZBase.h>

#include <dlfcn.h>
#include <sys/resource.h>
#include <unistd.h>
#include <cstdio>
#include <cstring>
namespace {

using ZBase::gDbgHelpBuilder;

void Print(ZBase::CallStack* stack) {
    std::printf("%u lines\n", stack->GetLineCount());
    for (unsigned int i = 0; i != stack->GetLineCount(); ++i)
        std::printf("%s\n", ZBase::WideCharToUTF8(stack->GetLine(i).GetText(), true).c_str());
    stack->Delete();
}

void PrintBound() {
    std::printf(
        "entries %d%d%d%d%d%d%d%d%d%d%d\n", gDbgHelpBuilder.GetSymFunctionTableAccess() != nullptr,
        gDbgHelpBuilder.GetSymGetModuleBase() != nullptr, gDbgHelpBuilder.GetSymGetSymFromAddr() != nullptr,
        gDbgHelpBuilder.GetStackWalk() != nullptr, gDbgHelpBuilder.GetSymGetLineFromAddr() != nullptr,
        gDbgHelpBuilder.GetSymCleanup() != nullptr, gDbgHelpBuilder.GetSymGetSearchPath() != nullptr,
        gDbgHelpBuilder.GetSymSetSearchPath() != nullptr, gDbgHelpBuilder.GetSymEnumerateModules() != nullptr,
        gDbgHelpBuilder.GetSymLoadModule() != nullptr, gDbgHelpBuilder.GetSymGetModuleInfo64() != nullptr);
}

void PrintWalks() {
    std::uint64_t found[128] = {};
    gDbgHelpBuilder.DoStackWalkTopN(found, 5, 1);
    for (int i = 0; found[i] != 0; ++i)
        std::printf("top %d\n", static_cast<int>(static_cast<std::int64_t>(found[i] - found[0])));
    gDbgHelpBuilder.DoStackWalk(found, 3, 0);
    std::printf("walk %d\n", found[0] != 0);
}

}  // namespace

int main(int argc, char** argv) {
    for (int i = 1; i < argc; ++i) {
        const char* what = argv[i];
        if (std::strcmp(what, "chdir") == 0 && chdir(argv[++i]) != 0) return 1;
        if (std::strcmp(what, "limit") == 0) {
            rlimit limit{};
            getrlimit(RLIMIT_NOFILE, &limit);
            std::printf("limit %d\n", static_cast<int>(limit.rlim_cur));
            limit.rlim_cur = 3;  // the standard streams
            setrlimit(RLIMIT_NOFILE, &limit);
        }
        if (std::strcmp(what, "stack") == 0) Print(ZBase::CreateCallStack(nullptr));
        if (std::strcmp(what, "bound") == 0) PrintBound();
        if (std::strcmp(what, "walks") == 0) PrintWalks();
        if (std::strcmp(what, "enumerate") == 0)
            std::printf("enumerate %d\n", gDbgHelpBuilder.EnumerateModulesAndLoadSymbols());
        if (std::strcmp(what, "initialize") == 0) ZBase::InitializeDBGHelpBuilder();
        if (std::strcmp(what, "open") == 0) {
            const bool isOpen = dlopen(argv[++i], RTLD_NOW | RTLD_NOLOAD) != nullptr;
            std::printf("open %d\n", isOpen);
        }
        if (std::strcmp(what, "load") == 0) std::printf("load %d\n", gDbgHelpBuilder.LoadSymbols());
        if (std::strcmp(what, "binding") == 0)
            std::printf("binding %d%d%d\n", gDbgHelpBuilder.GetSymSetOptions() != nullptr,
                        gDbgHelpBuilder.GetSymInitialize() != nullptr,
                        gDbgHelpBuilder.GetSymGetOptions() != nullptr);
        if (std::strcmp(what, "counts") == 0) {
            void* module = dlopen(argv[++i], RTLD_NOW | RTLD_NOLOAD);
            if (module == nullptr) return 1;
            std::printf("starts %d options 0x%x\n",
                        reinterpret_cast<int (*)()>(dlsym(module, "ScriptedStarts"))(),
                        reinterpret_cast<std::uint32_t (*)()>(dlsym(module, "ScriptedOptions"))());
        }
    }
}
