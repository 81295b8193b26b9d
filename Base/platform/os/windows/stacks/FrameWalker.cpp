#include <Base/platform/os/windows/stacks/FrameWalker.h>
#include <Base/platform/os/windows/stacks/GuardedCall.h>
#include <Base/platform/os/windows/stacks/x86_64/Registers.h>

#include <psapi.h>
#include <algorithm>

namespace ZBase::os {

namespace {

constexpr unsigned int kMostChained = 32;

/// The head of what tells how a function is unwound.
struct UnwindInfo {
    unsigned char versionAndFlags;
    unsigned char prologue;
    unsigned char codes;
    unsigned char frame;
};
constexpr std::size_t kUnwindCode = 2;  // octets

// A part of a function that was moved away is chained to the part that it belongs to.
std::uint32_t FirstPart(std::uint64_t base, const RUNTIME_FUNCTION* entry) {
    for (unsigned int i = 0; i != kMostChained; ++i) {
        if ((entry->UnwindData & RUNTIME_FUNCTION_INDIRECT) != 0) {
            entry = reinterpret_cast<const RUNTIME_FUNCTION*>(base + entry->UnwindData - 1);
            continue;
        }
        const auto* const info = reinterpret_cast<const UnwindInfo*>(base + entry->UnwindData);
        if ((info->versionAndFlags >> 3 & UNW_FLAG_CHAININFO) == 0) break;
        const std::size_t codes = (info->codes + std::size_t{1}) & ~std::size_t{1};  // an even number of them
        entry = reinterpret_cast<const RUNTIME_FUNCTION*>(reinterpret_cast<const char*>(info + 1) +
                                                          codes * kUnwindCode);
    }
    return entry->BeginAddress;
}

const IMAGE_NT_HEADERS* HeadersAt(const void* base) {
    const auto* const begin = static_cast<const IMAGE_DOS_HEADER*>(base);
    return reinterpret_cast<const IMAGE_NT_HEADERS*>(static_cast<const char*>(base) + begin->e_lfanew);
}

}  // namespace

bool SystemTables::Find(std::uint64_t address, FunctionEntry& function) {
    DWORD64 base = 0;
    function.entry = RtlLookupFunctionEntry(address, &base, nullptr);
    function.base = base;
    if (function.entry != nullptr) return true;
    void* module = nullptr;
    return RtlPcToFileHeader(reinterpret_cast<void*>(address), &module) != nullptr;
}

const KnownTables::Module* KnownTables::FindModule(std::uint64_t address) const {
    const Module* const next =
        std::upper_bound(mModules, mModules + mCount, address,
                         [](std::uint64_t place, const Module& module) { return place < module.start; });
    return next != mModules && address < next[-1].end ? next - 1 : nullptr;
}

KnownTables::Range KnownTables::ModuleOf(std::uint64_t address) const {
    const Module* const module = FindModule(address);
    return module == nullptr ? Range{0, 0} : Range{module->start, module->end};
}

KnownTables::Range KnownTables::ModuleAt(std::size_t index) const {
    return index < mCount ? Range{mModules[index].start, mModules[index].end} : Range{0, 0};
}

bool KnownTables::Find(std::uint64_t address, FunctionEntry& function) {
    function = {};
    if (const Module* const module = FindModule(address)) {
        const std::uint64_t offset = address - module->start;
        RUNTIME_FUNCTION* const above = std::upper_bound(
            module->entries, module->entries + module->count, offset,
            [](std::uint64_t place, const RUNTIME_FUNCTION& entry) { return place < entry.BeginAddress; });
        function.base = module->start;
        if (above != module->entries && offset < above[-1].EndAddress) function.entry = above - 1;
        return true;
    }
    const Place* const end = mPlaces + mKnown + mUnknown;
    const Place* const place = std::find_if<const Place*>(
        mPlaces, end, [&](const Place& known) { return known.address == address; });
    if (place != end) function = place->function;
    if (place == end && mKnown + mUnknown != kPlaces) mPlaces[mKnown + mUnknown++] = {address, {}};
    return function.entry != nullptr;
}

bool KnownTables::Learn() {
    if (mUnknown == 0) return false;
    const std::size_t modules = mCount;
    ReadModules();
    bool isNew = mCount != modules;
    SystemTables system;
    for (; mUnknown != 0; --mUnknown) {
        Place& place = mPlaces[mKnown++];
        system.Find(place.address, place.function);
        isNew |= place.function.entry != nullptr;
    }
    return isNew;
}

void KnownTables::ReadModules() {
    DWORD needed = 0;
    if (!EnumProcessModules(GetCurrentProcess(), mHandles, sizeof mHandles, &needed)) return;
    const std::size_t count = std::min<std::size_t>(needed / sizeof *mHandles, kModules);
    mCount = 0;
    for (std::size_t i = 0; i != count; ++i) {
        // A module may go meanwhile.
        Module& module = mModules[mCount];
        const bool isThere = CallGuarded([&] {
            const IMAGE_OPTIONAL_HEADER& header = HeadersAt(mHandles[i])->OptionalHeader;
            const IMAGE_DATA_DIRECTORY& table = header.DataDirectory[IMAGE_DIRECTORY_ENTRY_EXCEPTION];
            const auto start = reinterpret_cast<std::uint64_t>(mHandles[i]);
            module = {start, start + header.SizeOfImage,
                      reinterpret_cast<RUNTIME_FUNCTION*>(start + table.VirtualAddress),
                      table.VirtualAddress == 0
                          ? 0
                          : static_cast<std::uint32_t>(table.Size / sizeof(RUNTIME_FUNCTION))};
        });
        if (isThere) ++mCount;
    }
    std::sort(mModules, mModules + mCount,
              [](const Module& one, const Module& other) { return one.start < other.start; });
}

std::uint64_t FrameWalker::Address() const {
    return Instruction(mContext);
}

std::uint64_t FrameWalker::StackPointer() const {
    return os::StackPointer(mContext);
}

std::uint64_t FrameWalker::FunctionStart() {
    std::uint64_t start = 0;
    CallGuarded([&] {
        FunctionEntry function;
        if (mTables.Find(Address(), function) && function.entry != nullptr)
            start = function.base + FirstPart(function.base, function.entry);
    });
    return start;
}

PEXCEPTION_ROUTINE FrameWalker::Handler() {
    CONTEXT context = mContext;
    PEXCEPTION_ROUTINE handler = nullptr;
    return Unwind(context, handler) ? handler : nullptr;
}

bool FrameWalker::Step() {
    const std::uint64_t stackPointer = StackPointer();
    PEXCEPTION_ROUTINE handler = nullptr;
    if (!Unwind(mContext, handler)) return false;
    mIsInnermost = false;
    return Address() != 0 && StackPointer() > stackPointer;
}

// Only the innermost function may be one without a frame, or have been called where no code is.
bool FrameWalker::Unwind(CONTEXT& context, PEXCEPTION_ROUTINE& handler) {
    bool isDone = true;
    const bool isRead = CallGuarded([&] {
        FunctionEntry function;
        mTables.Find(Instruction(context), function);
        if (function.entry != nullptr) {
            void* data = nullptr;
            DWORD64 frame = 0;
            handler = RtlVirtualUnwind(UNW_FLAG_EHANDLER, function.base, Instruction(context), function.entry,
                                       &context, &data, &frame, nullptr);
        } else if (mIsInnermost) {
            LeaveLeaf(context);
        } else {
            isDone = false;
        }
    });
    return isRead && isDone;
}

}  // namespace ZBase::os
