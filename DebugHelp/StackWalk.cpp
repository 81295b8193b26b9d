// The walk of a stack from a register state, by the library's own unwinder: no heap, and no lock of a library
// that a forked child could find locked for ever. Memory is read through the system, a page at a time: the
// stack of a running thread may be unmapped at any moment, and a damaged one leads anywhere. A walk keeps its
// state between the calls; the frame record has its number, and if its state was overwritten the walk
// restarts from the registers, which are updated at each step. Recorded frames of a thread are returned
// unchanged.

#include <pthread.h>
#include <sys/mman.h>
#include <atomic>
#include <new>
#include <optional>

#include <Base/diagnostics/DebugHelpTypes.h>
#include <Base/platform/os/linux/modules/ModulePlace.h>
#include <Base/platform/os/linux/stacks/unwind/RegisteredCode.h>
#include <Base/platform/os/stacks/ThreadContext.h>
#include <DebugHelp/Export.h>

namespace {

using ZBase::os::FrameWalker;
using ZBase::os::RecordedFrame;
using ZBase::os::ThreadContext;

// `Reserved` of a frame record: the state of its walk, and the number of the walk or of the frame.
enum WalkState : std::uint64_t { Fresh, Going, Ended };

/// One walk from its first frame on.
struct Road {
    Road(const ThreadContext& context, ZBase::os::ForeignMemory& memory, bool& isAsking)
        : registry(isAsking),
          walker(context, ZBase::os::WordReader{ZBase::os::ForeignMemory::Load, &memory}, &registry) {}

    ZBase::os::AskingRegistry registry;
    FrameWalker walker;
};

// As the record of that name starts.
struct RuntimeFunction {
    std::uint32_t begin;  // all relative to the start of the module
    std::uint32_t end;
    std::uint32_t unwindInfo;
};

/// What a thread's calls leave for the next.
struct Walk {
    std::uint64_t number = 0;  // of the walk; 0 for none
    ZBase::os::ForeignMemory memory;
    bool isAsking = false;
    std::optional<Road> road;
    RuntimeFunction function{};

    /// That of the calling thread; null without memory. It lies in pages of its own that a key leads to: for
    /// storage of the thread the loader ends the process if it has no memory.
    static Walk* OfThread() {
        struct Key {
            Key() { isThere = pthread_key_create(&key, End) == 0; }
            pthread_key_t key{};
            bool isThere;
        };
        static const Key sKey;
        if (!sKey.isThere) return nullptr;
        if (void* const mine = pthread_getspecific(sKey.key)) return static_cast<Walk*>(mine);
        void* const pages =
            mmap(nullptr, sizeof(Walk), PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
        if (pages == MAP_FAILED) return nullptr;
        auto* const walk = new (pages) Walk;
        if (pthread_setspecific(sKey.key, walk) == 0) return walk;
        End(walk);
        return nullptr;
    }

private:
    static void End(void* walk) {
        static_cast<Walk*>(walk)->~Walk();
        munmap(walk, sizeof(Walk));
    }
};

std::atomic<std::uint64_t> sWalks{0};

// Begins a walk where the frame does not belong to the one of this thread.
Road& RoadOf(Walk& walk, ZBase::STACKFRAME64& frame, const ThreadContext& context) {
    if (walk.road && frame.Reserved[0] != Fresh && frame.Reserved[1] == walk.number) return *walk.road;
    walk.number = ++sWalks;
    frame.Reserved[1] = walk.number;
    walk.memory.Forget();
    return walk.road.emplace(context, walk.memory, walk.isAsking);
}

bool StepRecorded(ZBase::STACKFRAME64& frame, ThreadContext& context) {
    const auto* const frames = reinterpret_cast<const RecordedFrame*>(context.parameterHome[1]);
    const std::uint64_t index = frame.Reserved[0] == Fresh ? 0 : frame.Reserved[1];
    frame.Reserved[1] = index + 1;
    if (index + 1 >= context.parameterHome[2]) return false;
    ZBase::os::SetPlace(context, frames[index + 1].address, frames[index + 1].stackPointer);
    return true;
}

bool Step(ZBase::STACKFRAME64& frame, ThreadContext& context) {
    if (context.parameterHome[0] == ZBase::os::kRecordedFrames) return StepRecorded(frame, context);
    Walk* const walk = Walk::OfThread();
    if (walk == nullptr) return false;
    Road& road = RoadOf(*walk, frame, context);
    if (!road.walker.Step()) return false;
    road.registry.Passed(road.walker);
    road.walker.MoveContext(context);
    return true;
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
    if (frame->Reserved[0] == Ended) return 0;
    const ZBase::os::WalkStart callee = StartOfWalk(context);
    frame->AddrPC = {callee.instruction, 0, ZBase::AddrModeFlat};
    frame->AddrStack = {callee.stack, 0, ZBase::AddrModeFlat};
    if (Step(*frame, context)) {
        const ZBase::os::WalkStart caller = StartOfWalk(context);
        frame->AddrReturn = {caller.instruction, 0, ZBase::AddrModeFlat};
        // The address where the function has, or would have, stored its caller's frame pointer.
        frame->AddrFrame = {caller.stack - 16, 0, ZBase::AddrModeFlat};
        frame->Reserved[0] = Going;
    } else {
        frame->AddrReturn = {0, 0, ZBase::AddrModeFlat};
        frame->AddrFrame = frame->AddrStack;
        frame->Reserved[0] = Ended;
    }
    return 1;
}

ZBASE_DEBUGHELP_ENTRY std::uint64_t SymGetModuleBase64(void*, std::uint64_t address) {
    ZBase::os::ModulePlace module{};
    return ZBase::os::ModulePlace::Find(address, module) ? module.start : 0;
}

ZBASE_DEBUGHELP_ENTRY void* SymFunctionTableAccess64(void*, std::uint64_t address) {
    ZBase::os::UnwindModule module;
    ZBase::os::FrameRules rules;
    Walk* const walk = Walk::OfThread();
    if (walk == nullptr || !FindUnwindModule(address, module) || !FindFrameRules(module, address, rules))
        return nullptr;
    const std::uint64_t base = SymGetModuleBase64(nullptr, address);
    const auto tables = reinterpret_cast<std::uint64_t>(module.searchTable);
    walk->function = {static_cast<std::uint32_t>(rules.functionStart - base),
                      static_cast<std::uint32_t>(rules.functionEnd - base),
                      static_cast<std::uint32_t>(tables - base)};
    return &walk->function;
}
