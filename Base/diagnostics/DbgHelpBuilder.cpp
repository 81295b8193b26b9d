#include <Base/diagnostics/DbgHelpBuilder.h>
#include <Base/diagnostics/detail/CallStackImp.h>
#include <Base/diagnostics/detail/CallStackLineImp.h>
#include <Base/platform/os/modules/ModuleList.h>
#include <Base/platform/os/modules/Modules.h>
#include <Base/platform/os/stacks/DebugHelp.h>
#include <Base/platform/os/stacks/ThreadContext.h>

#include <algorithm>
#include <utility>

namespace ZBase {

namespace {

// The entry points: the name, what gives it, and whether that binds the library first. `DbgHelpFunctions` has
// one of each, in this order.
#define ZBASE_DEBUG_HELP_ENTRIES(ENTRY)                               \
    ENTRY(SymFunctionTableAccess64, GetSymFunctionTableAccess, false) \
    ENTRY(SymGetModuleBase64, GetSymGetModuleBase, false)             \
    ENTRY(SymGetSymFromAddr64, GetSymGetSymFromAddr, false)           \
    ENTRY(StackWalk64, GetStackWalk, false)                           \
    ENTRY(SymGetLineFromAddr64, GetSymGetLineFromAddr, false)         \
    ENTRY(SymCleanup, GetSymCleanup, false)                           \
    ENTRY(SymSetOptions, GetSymSetOptions, true)                      \
    ENTRY(SymInitialize, GetSymInitialize, true)                      \
    ENTRY(SymGetOptions, GetSymGetOptions, true)                      \
    ENTRY(SymGetSearchPath, GetSymGetSearchPath, false)               \
    ENTRY(SymSetSearchPath, GetSymSetSearchPath, false)               \
    ENTRY(SymEnumerateModules64, GetSymEnumerateModules, false)       \
    ENTRY(SymLoadModule64, GetSymLoadModule, false)                   \
    ENTRY(SymGetModuleInfo64, GetSymGetModuleInfo64, false)

#define ZBASE_PLACE(NAME, ACCESSOR, BINDS) e##NAME,
enum EEntryPlace : std::uint8_t { ZBASE_DEBUG_HELP_ENTRIES(ZBASE_PLACE) kEntries };
#undef ZBASE_PLACE
static_assert(sizeof(DbgHelpFunctions) == (kEntries + 1) * sizeof(void*));  // and the library's handle

constexpr unsigned long kCapturedFrames = 40;
constexpr unsigned long kTopFrames = 128;
constexpr unsigned int kDroppedFrames = kFramesOfSnapshot + os::kFramesOfOwnContext;
constexpr std::size_t kUsualFrames = 32;
constexpr unsigned int kPathUnits = 260;
static_assert(kDroppedFrames == 5);  // of other threads, too, whose callers count on it

// Deferred loading, lines, nearest symbol, 32-bit modules.
constexpr std::uint32_t kSymbolOptions = 0x2034;

constexpr char kNotAvailable[] = "(NA)";

template <class Function>
bool Resolve(void* library, const char* name, Function& entry) {
    entry = library == nullptr ? nullptr : reinterpret_cast<Function>(os::FindDebugHelpEntry(library, name));
    return entry != nullptr;
}

STACKFRAME64 Seed(const os::ThreadContext& context) {
    const os::WalkStart start = os::StartOfWalk(context);
    STACKFRAME64 frame{};
    frame.AddrPC = {start.instruction, 0, AddrModeFlat};
    frame.AddrStack = {start.stack, 0, AddrModeFlat};
    frame.AddrFrame = {start.frame, 0, AddrModeFlat};
    return frame;
}

CallStackLineImp LoadFailure() {
    constexpr char text[] = "dbghelp.dll load failed";
    return {0, 0, 0, 0, WideString(std::begin(text), std::end(text) - 1), kNotAvailable, 0, kNotAvailable, 0};
}

}  // namespace

/// The modules of a walk. Each is described once, and the descriptions end with the walk: another module may
/// be at that address by the next one.
class DbgHelpBuilder::WalkedModules {
public:
    /// False if the address is in no module or, in its module, in no section.
    bool Resolve(std::uint64_t address, LogicalAddress& logical) {
        const void* start = nullptr;
        if (!os::FindAllocationBase(reinterpret_cast<const void*>(address), start) || start == nullptr)
            return false;
        const Module* const module = Find(start);
        if (module == nullptr) return false;
        const auto relative = static_cast<std::uint32_t>(address - reinterpret_cast<std::uint64_t>(start));
        for (std::uint32_t index = 0; index != module->sections.size(); ++index) {
            const os::ModuleSection& section = module->sections[index];
            const std::uint64_t size = std::max(section.virtualSize, section.sizeOfRawData);
            // The end is inclusive; kept for callers that compare sections of older stacks.
            if (relative < section.virtualAddress || relative > section.virtualAddress + size) continue;
            logical = {index + 1, relative - section.virtualAddress, module->path};
            return true;
        }
        return false;
    }

private:
    struct Module {
        const void* start;
        WideString path;
        std::vector<os::ModuleSection> sections;
    };

    const Module* Find(const void* start) {
        const auto isThere = [start](const Module& module) { return module.start == start; };
        const auto known = std::find_if(mModules.begin(), mModules.end(), isThere);
        if (known != mModules.end()) return &*known;
        unsigned short path[kPathUnits];
        if (os::GetModulePathAt(start, path, kPathUnits) == 0) return nullptr;
        Module module{start, path, {}};
        os::ModuleSection section{};
        while (os::GetModuleSection(reinterpret_cast<std::uint64_t>(start),
                                    static_cast<unsigned int>(module.sections.size()), section))
            module.sections.push_back(section);
        return &mModules.emplace_back(std::move(module));
    }

    std::vector<Module> mModules;
};

DbgHelpFunctions::~DbgHelpFunctions() {
    if (mpLibrary != nullptr) os::CloseDebugHelp(mpLibrary);
}

DbgHelpBuilder::DbgHelpBuilder()
    : mpProcess(os::CurrentProcess()), mBound(0), mpStackCapture(os::FindStackCapture()) {}

bool DbgHelpBuilder::LoadSymbols() {
    return EnumerateModulesAndLoadSymbols() != 0;
}

bool DbgHelpBuilder::LoadDbgHelpFunctions() {
    DbgHelpFunctions& f = mFunctions;
    // The library of an earlier try is closed after the new one was opened, so that entries handed out stay
    // valid.
    void* const earlier = std::exchange(f.mpLibrary, os::OpenDebugHelp());
    if (earlier != nullptr) os::CloseDebugHelp(earlier);
    bool isWhole = true;
#define ZBASE_RESOLVE(NAME, ACCESSOR, BINDS) isWhole &= Resolve(f.mpLibrary, #NAME, f.mp##NAME);
    ZBASE_DEBUG_HELP_ENTRIES(ZBASE_RESOLVE)
#undef ZBASE_RESOLVE
    // A missing library counts as bound, with all entries null.
    return isWhole || f.mpLibrary == nullptr;
}

/// Binds and starts the symbol engine, once. False if a later call should try again, or if the engine fails.
bool DbgHelpBuilder::Bind() {
    if (!LoadDbgHelpFunctions()) return false;
    mBound = 1;  // before the start, which is tried only once
    return mFunctions.mpSymInitialize != nullptr && mFunctions.mpSymInitialize(mpProcess, nullptr, 1) != 0;
}

int DbgHelpBuilder::EnumerateModulesAndLoadSymbols() {
    if (mBound == 0 && !Bind()) return 0;
    if (mFunctions.mpSymGetOptions == nullptr || mFunctions.mpSymSetOptions == nullptr) return 0;
    mFunctions.mpSymSetOptions(mFunctions.mpSymGetOptions() | kSymbolOptions);
    return 1;
}

bool DbgHelpBuilder::CanWalk() const {
    return mFunctions.mpStackWalk64 != nullptr && mFunctions.mpSymFunctionTableAccess64 != nullptr &&
           mFunctions.mpSymGetModuleBase64 != nullptr;
}

bool DbgHelpBuilder::Step(STACKFRAME64& frame, os::ThreadContext& context) const {
    return mFunctions.mpStackWalk64(kMachineX64, mpProcess, os::CurrentThread(), &frame, &context, nullptr,
                                    mFunctions.mpSymFunctionTableAccess64, mFunctions.mpSymGetModuleBase64,
                                    nullptr) != 0;
}

void DbgHelpBuilder::BuildCallStack(std::vector<CallStackLineImp>& lines, os::ThreadContext& context) {
    if (mBound == 0 && !Bind()) {
        lines.push_back(LoadFailure());
        return;
    }
    std::vector<CallStackLineImp> found;
    if (CanWalk()) {
        STACKFRAME64 frame = Seed(context);
        const auto step = [&] { return Step(frame, context) && frame.AddrFrame.Offset != 0; };
        unsigned int dropped = 0;
        while (dropped != kDroppedFrames && step()) ++dropped;
        if (dropped == kDroppedFrames) {
            found.reserve(kUsualFrames);
            WalkedModules modules;
            while (step()) found.push_back(ResolveFrame(frame, modules));
        }
    }
    lines = std::move(found);
}

CallStackLineImp DbgHelpBuilder::ResolveFrame(const STACKFRAME64& frame, WalkedModules& modules) const {
    LogicalAddress logical;
    SymbolRecord record{};
    record.symbol.SizeOfStruct = sizeof record;
    record.symbol.MaxNameLength = kMaxSymbolName;
    record.symbol.Flags = kIsReturnAddress;
    std::uint64_t displacement = 0;
    const char* symbol = kNotAvailable;
    const char* file = kNotAvailable;
    std::uint32_t lineNumber = 0;
    if (modules.Resolve(frame.AddrPC.Offset, logical) &&
        mFunctions.mpSymGetSymFromAddr64(mpProcess, frame.AddrPC.Offset, &displacement, &record.symbol) !=
            0) {
        symbol = record.symbol.Name;
        IMAGEHLP_LINE64 line{};
        line.SizeOfStruct = sizeof line;
        std::uint32_t lineDisplacement = 0;
        // The line where the function begins, not that of the call; kept for readers that group lines by
        // function.
        if (mFunctions.mpSymGetLineFromAddr64(mpProcess, record.symbol.Address, &lineDisplacement, &line) !=
            0) {
            displacement = lineDisplacement;
            file = line.FileName;
            lineNumber = line.LineNumber;
        }
    } else {
        displacement = 0;
    }
    return {logical.section,
            logical.offset,
            frame.AddrPC.Offset,
            frame.AddrFrame.Offset,
            std::move(logical.module),
            symbol,
            displacement,
            file,
            lineNumber};
}

[[gnu::noinline]] void DbgHelpBuilder::DoStackWalk(std::uint64_t* out, unsigned long count,
                                                   unsigned long skip) {
    if (out == nullptr) return;
    if (mpStackCapture != nullptr) {
        if (skip >= kCapturedFrames) return;
        void* addresses[kCapturedFrames] = {};
        const unsigned long wanted = skip + std::min(count, kCapturedFrames - skip);
        const unsigned long captured =
            mpStackCapture(0, static_cast<std::uint32_t>(wanted), addresses, nullptr);
        for (unsigned long i = skip; i < captured && i < wanted; ++i)
            *out++ = reinterpret_cast<std::uint64_t>(addresses[i]);
        return;
    }
    os::ThreadContext context{};
    os::CaptureContext(&context);
    if (!CanWalk()) return;
    STACKFRAME64 frame = Seed(context);
    for (unsigned long step = 0; step < count && Step(frame, context); ++step) {
        if (step <= skip) continue;
        if (frame.AddrPC.Offset == 0) break;
        *out++ = frame.AddrPC.Offset;
    }
}

[[gnu::noinline]] void DbgHelpBuilder::DoStackWalkTopN(std::uint64_t* out, unsigned long count,
                                                       unsigned long skip) {
    std::uint64_t found[kTopFrames];
    std::size_t size = 0;
    count = std::min(count, kTopFrames);
    os::ThreadContext context{};
    os::CaptureContext(&context);
    if (out == nullptr || !CanWalk()) return;
    STACKFRAME64 frame = Seed(context);
    for (unsigned long step = 0; step < count; ++step) {
        // A stack that ends before the count writes nothing; kept for callers that compare whole tops.
        if (!Step(frame, context)) return;
        if (step <= skip) continue;
        if (frame.AddrPC.Offset == 0) break;
        found[size++] = frame.AddrPC.Offset;
    }
    while (size != 0) *out++ = found[--size];
}

#define ZBASE_GIVE(NAME, ACCESSOR, BINDS)                             \
    decltype(DbgHelpFunctions::mp##NAME) DbgHelpBuilder::ACCESSOR() { \
        if ((BINDS) && mBound == 0) Bind();                           \
        return mFunctions.mp##NAME;                                   \
    }
ZBASE_DEBUG_HELP_ENTRIES(ZBASE_GIVE)
#undef ZBASE_GIVE

void InitializeDBGHelpBuilder() {
    gDbgHelpBuilder.EnumerateModulesAndLoadSymbols();
}

}  // namespace ZBase
