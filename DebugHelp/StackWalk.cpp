// The walk of a stack from a register state, by the library's own unwinder: no heap, and no lock of a library
// that a forked child could find locked for ever. Memory is read through the system, a page at a time: the
// stack of a running thread may be unmapped at any moment, and a damaged one leads anywhere. A walk keeps its
// state between the calls; the frame record has its number, and if its state was overwritten the walk
// restarts from the registers, which are updated at each step. Recorded frames of a thread are returned
// unchanged.

#include <atomic>
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

struct Walk {
    std::uint64_t number = 0;  // of the walk; 0 for none
    ZBase::os::ForeignMemory memory;
    bool isAsking = false;
    std::optional<ZBase::os::AskingRegistry> registry;
    std::optional<FrameWalker> walker;
};

thread_local Walk tWalk;
std::atomic<std::uint64_t> sWalks{0};

void Begin(Walk& walk, const ThreadContext& context) {
    walk.number = ++sWalks;
    walk.memory.Forget();
    walk.registry.emplace(walk.isAsking);
    walk.walker.emplace(context, ZBase::os::WordReader{ZBase::os::ForeignMemory::Load, &walk.memory},
                        &*walk.registry);
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
    Walk& walk = tWalk;
    if (frame.Reserved[0] == Fresh || frame.Reserved[1] != walk.number) Begin(walk, context);
    frame.Reserved[1] = walk.number;
    if (!walk.walker->Step()) return false;
    walk.registry->Passed(*walk.walker);
    walk.walker->MoveContext(context);
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
    struct RuntimeFunction {
        std::uint32_t begin;  // all relative to the start of the module
        std::uint32_t end;
        std::uint32_t unwindInfo;
    };
    static thread_local RuntimeFunction tFunction;
    ZBase::os::UnwindModule module;
    ZBase::os::FrameRules rules;
    if (!FindUnwindModule(address, module) || !FindFrameRules(module, address, rules)) return nullptr;
    const std::uint64_t base = SymGetModuleBase64(nullptr, address);
    const auto tables = reinterpret_cast<std::uint64_t>(module.searchTable);
    tFunction = {static_cast<std::uint32_t>(rules.functionStart - base),
                 static_cast<std::uint32_t>(rules.functionEnd - base),
                 static_cast<std::uint32_t>(tables - base)};
    return &tFunction;
}
