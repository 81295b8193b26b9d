// The walk of a stack on libunwind, from a register state. Memory is read through the system, a page at a
// time: the stack of a running thread may be gone the next moment, and a damaged one leads anywhere. A walk
// keeps its cursor between the calls; the frame record names it, and where it is no longer that of the walk
// it is begun anew from the registers, which move along.

#include <dlfcn.h>
#include <link.h>
#include <sys/uio.h>
#include <unistd.h>
#include <algorithm>
#include <atomic>
#include <cstring>

#include <libunwind.h>

#include <Base/diagnostics/DebugHelpTypes.h>
#include <Base/platform/os/ThreadContext.h>
#include <DebugHelp/Export.h>

namespace {

using ZBase::os::ThreadContext;

constexpr std::uint64_t kPage = 4096;
constexpr std::uint64_t kNoPage = 1;  // where no page begins
constexpr std::size_t kPages = 4;

// What `Reserved` of a frame record holds: how far its walk is, and which cursor is its own.
enum WalkState : std::uint64_t { Fresh, Going, Ended };

struct Page {
    std::uint64_t address;
    unsigned char octets[kPage];
};

struct Walk {
    std::uint64_t number;  // of the walk; 0 for none
    ThreadContext start;   // its general registers alone
    unw_cursor_t cursor;
    Page pages[kPages];
};

thread_local Walk tWalk;
std::atomic<std::uint64_t> sWalks{0};

// The page that holds an address; null if it can't be read.
const Page* PageAt(Walk& walk, std::uint64_t address) {
    Page& page = walk.pages[address / kPage % kPages];
    const std::uint64_t start = address & ~(kPage - 1);
    if (page.address == start) return &page;
    const iovec to{page.octets, kPage};
    const iovec from{reinterpret_cast<void*>(start), kPage};
    page.address = kNoPage;
    if (process_vm_readv(getpid(), &to, 1, &from, 1, 0) != static_cast<ssize_t>(kPage)) return nullptr;
    page.address = start;
    return &page;
}

int AccessMemory(unw_addr_space_t, unw_word_t address, unw_word_t* value, int write, void* argument) {
    auto& walk = *static_cast<Walk*>(argument);
    if (write != 0) return -UNW_EINVAL;
    auto* to = reinterpret_cast<unsigned char*>(value);
    for (std::size_t left = sizeof *value; left != 0;) {  // a word may lie on two pages
        const Page* const page = PageAt(walk, address);
        if (page == nullptr) return -UNW_EINVAL;
        const std::size_t count = std::min<std::size_t>(left, kPage - address % kPage);
        std::memcpy(to, page->octets + address % kPage, count);
        to += count;
        address += count;
        left -= count;
    }
    return 0;
}

std::uint64_t* RegisterPlace(ThreadContext& context, unw_regnum_t number) {
    switch (number) {
        case UNW_X86_64_RAX:
            return &context.rax;
        case UNW_X86_64_RDX:
            return &context.rdx;
        case UNW_X86_64_RCX:
            return &context.rcx;
        case UNW_X86_64_RBX:
            return &context.rbx;
        case UNW_X86_64_RSI:
            return &context.rsi;
        case UNW_X86_64_RDI:
            return &context.rdi;
        case UNW_X86_64_RBP:
            return &context.rbp;
        case UNW_X86_64_RSP:
            return &context.rsp;
        case UNW_X86_64_R8:
            return &context.r8;
        case UNW_X86_64_R9:
            return &context.r9;
        case UNW_X86_64_R10:
            return &context.r10;
        case UNW_X86_64_R11:
            return &context.r11;
        case UNW_X86_64_R12:
            return &context.r12;
        case UNW_X86_64_R13:
            return &context.r13;
        case UNW_X86_64_R14:
            return &context.r14;
        case UNW_X86_64_R15:
            return &context.r15;
        case UNW_X86_64_RIP:
            return &context.rip;
        default:
            return nullptr;
    }
}

int AccessRegister(unw_addr_space_t, unw_regnum_t number, unw_word_t* value, int write, void* argument) {
    std::uint64_t* const place = RegisterPlace(static_cast<Walk*>(argument)->start, number);
    if (place == nullptr || write != 0) return -UNW_EBADREG;
    *value = *place;
    return 0;
}

int AccessFloatingPoint(unw_addr_space_t, unw_regnum_t, unw_fpreg_t*, int, void*) {
    return -UNW_EBADREG;
}

unw_addr_space_t MakeAddressSpace() {
    unw_accessors_t accessors = *unw_get_accessors(unw_local_addr_space);
    accessors.access_mem = AccessMemory;
    accessors.access_reg = AccessRegister;
    accessors.access_fpreg = AccessFloatingPoint;
    unw_addr_space_t space = unw_create_addr_space(&accessors, 0);
    if (space != nullptr) unw_set_caching_policy(space, UNW_CACHE_GLOBAL);
    return space;
}

const unw_addr_space_t sSpace = MakeAddressSpace();

// How often modules were unloaded, after which what is remembered of their code is void.
int CountUnloads(dl_phdr_info* information, std::size_t, void* argument) {
    *static_cast<unsigned long long*>(argument) = information->dlpi_subs;
    return 1;
}

void ForgetUnloadedModules() {
    static std::atomic<unsigned long long> seen{0};
    unsigned long long unloads = 0;
    dl_iterate_phdr(CountUnloads, &unloads);
    if (seen.exchange(unloads) != unloads) unw_flush_cache(sSpace, 0, 0);
}

bool Begin(Walk& walk, const ThreadContext& context) {
    walk.number = ++sWalks;
    std::memcpy(&walk.start, &context, offsetof(ThreadContext, floatingPoint));
    for (Page& page : walk.pages) page.address = kNoPage;
    return sSpace != nullptr && unw_init_remote(&walk.cursor, sSpace, &walk) == 0;
}

std::uint64_t Value(Walk& walk, unw_regnum_t number) {
    unw_word_t value = 0;
    return unw_get_reg(&walk.cursor, number, &value) == 0 ? value : 0;
}

// The state is moved to the caller's; registers that a call does not keep are left as they were.
void MoveContext(Walk& walk, ThreadContext& context) {
    for (const unw_regnum_t number : {UNW_X86_64_RBX, UNW_X86_64_RBP, UNW_X86_64_RSP, UNW_X86_64_R12,
                                      UNW_X86_64_R13, UNW_X86_64_R14, UNW_X86_64_R15, UNW_X86_64_RIP})
        *RegisterPlace(context, number) = Value(walk, number);
}

// Whether the code at an address returns from a signal: movq $SYS_rt_sigreturn, %rax; syscall.
bool ReturnsFromSignal(Walk& walk, std::uint64_t address) {
    constexpr unsigned char kCode[] = {0x48, 0xC7, 0xC0, 0x0F, 0x00, 0x00, 0x00, 0x0F, 0x05};
    unw_word_t words[2];
    for (unsigned int i = 0; i != 2; ++i) {
        if (AccessMemory(nullptr, address + 8 * i, &words[i], 0, &walk) != 0) return false;
    }
    return std::memcmp(words, kCode, sizeof kCode) == 0;
}

// A caller's frame lies further up, or else the stack is damaged and might be walked for ever. Only from a
// signal the way may lead down, to another stack.
bool StepUp(Walk& walk, const ThreadContext& context) {
    return unw_step(&walk.cursor) > 0 && Value(walk, UNW_X86_64_RIP) != 0 &&
           (Value(walk, UNW_X86_64_RSP) > context.rsp || ReturnsFromSignal(walk, context.rip));
}

}  // namespace

ZBASE_DEBUGHELP_ENTRY std::int32_t StackWalk64(std::uint32_t machine, void*, void*,
                                               ZBase::STACKFRAME64* frame, void* contextRecord,
                                               ZBase::ReadProcessMemoryFunction,
                                               ZBase::SymFunctionTableAccess64Function,
                                               ZBase::SymGetModuleBase64Function,
                                               ZBase::TranslateAddressFunction) {
    if (machine != ZBase::kMachineX64 || frame == nullptr || contextRecord == nullptr) return 0;
    auto& context = *static_cast<ThreadContext*>(contextRecord);
    Walk& walk = tWalk;
    if (frame->Reserved[0] == Ended) return 0;
    if (frame->Reserved[0] == Fresh) ForgetUnloadedModules();
    if ((frame->Reserved[0] == Fresh || frame->Reserved[1] != walk.number) && !Begin(walk, context)) return 0;
    frame->Reserved[1] = walk.number;
    frame->AddrPC = {context.rip, 0, ZBase::AddrModeFlat};
    frame->AddrStack = {context.rsp, 0, ZBase::AddrModeFlat};
    if (StepUp(walk, context)) {
        MoveContext(walk, context);
        frame->AddrReturn = {context.rip, 0, ZBase::AddrModeFlat};
        // Where the function keeps, or would keep, its caller's frame pointer.
        frame->AddrFrame = {context.rsp - 16, 0, ZBase::AddrModeFlat};
        frame->Reserved[0] = Going;
    } else {
        frame->AddrReturn = {0, 0, ZBase::AddrModeFlat};
        frame->AddrFrame = frame->AddrStack;
        frame->Reserved[0] = Ended;
    }
    return 1;
}

ZBASE_DEBUGHELP_ENTRY void* SymFunctionTableAccess64(void*, std::uint64_t address) {
    struct RuntimeFunction {
        std::uint32_t begin;  // all from the start of the module
        std::uint32_t end;
        std::uint32_t unwindInfo;
    };
    static thread_local RuntimeFunction tFunction;
    dl_find_object module;
    unw_proc_info_t procedure;
    if (_dl_find_object(reinterpret_cast<void*>(address), &module) != 0) return nullptr;
    if (unw_get_proc_info_by_ip(unw_local_addr_space, address, &procedure, nullptr) != 0) return nullptr;
    const auto base = reinterpret_cast<std::uint64_t>(module.dlfo_map_start);
    tFunction = {static_cast<std::uint32_t>(procedure.start_ip - base),
                 static_cast<std::uint32_t>(procedure.end_ip - base),
                 static_cast<std::uint32_t>(reinterpret_cast<std::uint64_t>(module.dlfo_eh_frame) - base)};
    return &tFunction;
}

ZBASE_DEBUGHELP_ENTRY std::uint64_t SymGetModuleBase64(void*, std::uint64_t address) {
    dl_find_object module;
    if (_dl_find_object(reinterpret_cast<void*>(address), &module) != 0) return 0;
    return reinterpret_cast<std::uint64_t>(module.dlfo_map_start);
}
