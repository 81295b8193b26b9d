// The allocator is known by its entry points, which all blocks come through: those of the system's heap, and
// those of the C library, which stands on it.

#include <Base/platform/os/faults/Callers.h>
#include <Base/platform/os/windows/faults/AllocatorCode.h>
#include <Base/platform/os/windows/stacks/ImportJump.h>

#include <algorithm>
#include <iterator>

namespace ZBase::os {

namespace {

constexpr unsigned int kFramesToSearch = 16;
constexpr unsigned int kCallersToSearch = 256;

struct Entry {
    const wchar_t* module;
    const char* function;
};

constexpr Entry kEntries[] = {
    {L"ntdll.dll", "RtlAllocateHeap"}, {L"ntdll.dll", "RtlFreeHeap"}, {L"ntdll.dll", "RtlReAllocateHeap"},
    {L"ntdll.dll", "RtlSizeHeap"},     {L"ntdll.dll", "RtlLockHeap"}, {L"ntdll.dll", "RtlUnlockHeap"},
    {L"ntdll.dll", "RtlValidateHeap"}, {L"ntdll.dll", "RtlWalkHeap"}, {L"ntdll.dll", "RtlCompactHeap"},
    {L"msvcrt.dll", "malloc"},         {L"msvcrt.dll", "free"},       {L"msvcrt.dll", "calloc"},
    {L"msvcrt.dll", "realloc"},        {L"ucrtbase.dll", "malloc"},   {L"ucrtbase.dll", "free"},
    {L"ucrtbase.dll", "calloc"},       {L"ucrtbase.dll", "realloc"},
};

std::uint64_t sEntries[std::size(kEntries)];  // 0 for one that is not there

std::uint64_t FunctionStartAt(std::uint64_t address) {
    SystemTables tables;
    FunctionEntry function;
    if (!tables.Find(address, function) || function.entry == nullptr) return address;
    return function.base + function.entry->BeginAddress;
}

CONTEXT OwnContext() {
    CONTEXT context;
    RtlCaptureContext(&context);
    return context;
}

}  // namespace

void FindAllocatorCode() {
    for (std::size_t i = 0; i != std::size(kEntries); ++i) {
        const HMODULE module = GetModuleHandleW(kEntries[i].module);
        const FARPROC entry = module == nullptr ? nullptr : GetProcAddress(module, kEntries[i].function);
        if (entry != nullptr)
            sEntries[i] = FunctionStartAt(
                reinterpret_cast<std::uint64_t>(BehindImport(reinterpret_cast<const void*>(entry))));
    }
}

bool StandsInAllocator(const CONTEXT& context, unsigned int frames) {
    SystemTables tables;
    FrameWalker walker(context, tables);
    for (unsigned int i = 0; i != frames; ++i) {
        const std::uint64_t function = walker.FunctionStart();
        if (function != 0 &&
            std::find(std::begin(sEntries), std::end(sEntries), function) != std::end(sEntries))
            return true;
        if (!walker.Step()) return false;
    }
    return false;
}

bool MayHoldAllocator() {
    return StandsInAllocator(OwnContext(), kCallersToSearch);
}

bool IsCalledFrom(const void* function) {
    const auto wanted = reinterpret_cast<std::uint64_t>(BehindImport(function));
    SystemTables tables;
    FrameWalker walker(OwnContext(), tables);
    for (unsigned int i = 0; i != kFramesToSearch; ++i) {
        if (walker.FunctionStart() == wanted) return true;
        if (!walker.Step()) return false;
    }
    return false;
}

void PrepareCallers() {
    FindAllocatorCode();
}

}  // namespace ZBase::os
