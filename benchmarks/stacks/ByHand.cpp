// The code that a program would have itself: libunwind's steps, and elfutils' look-ups of each frame,
// demangled.

#define UNW_LOCAL_ONLY
#include <cxxabi.h>
#include <elfutils/libdwfl.h>
#include <libunwind.h>
#include <unistd.h>

#include <cstdint>
#include <cstdlib>

namespace {

Dwfl* gDwfl = nullptr;
char* gPath = nullptr;
const Dwfl_Callbacks kCallbacks = {dwfl_linux_proc_find_elf, dwfl_standard_find_debuginfo, nullptr, &gPath};

void LookUp(std::uint64_t address) {
    Dwfl_Module* module = dwfl_addrmodule(gDwfl, address);
    if (module == nullptr) return;
    GElf_Off offset = 0;
    GElf_Sym symbol;
    const char* name = dwfl_module_addrinfo(module, address, &offset, &symbol, nullptr, nullptr, nullptr);
    if (name == nullptr) return;
    int status = 0;
    std::free(abi::__cxa_demangle(name, nullptr, nullptr, &status));
    Dwfl_Line* line = dwfl_module_getsrc(module, address - offset);
    if (line != nullptr) dwfl_lineinfo(line, nullptr, nullptr, nullptr, nullptr, nullptr);
}

}  // namespace

extern "C" [[gnu::visibility("default")]] int StepsByHand(std::uint64_t* addresses, int count) {
    unw_context_t context;
    unw_cursor_t cursor;
    unw_getcontext(&context);
    unw_init_local(&cursor, &context);
    int found = 0;
    while (found != count && unw_step(&cursor) > 0) {
        unw_word_t address = 0;
        unw_get_reg(&cursor, UNW_REG_IP, &address);
        addresses[found++] = address;
    }
    return found;
}

extern "C" [[gnu::visibility("default")]] int StackByHand(int count) {
    if (gDwfl == nullptr) {
        gDwfl = dwfl_begin(&kCallbacks);
        dwfl_report_begin(gDwfl);
        dwfl_linux_proc_report(gDwfl, getpid());
        dwfl_report_end(gDwfl, nullptr, nullptr);
    }
    std::uint64_t addresses[256];
    const int found = StepsByHand(addresses, count);
    for (int i = 0; i != found; ++i) LookUp(addresses[i]);
    return found;
}
