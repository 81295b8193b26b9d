#include <Base/platform/os/windows/crash/DumpFile.h>

#include <windows.h>

#include <dbghelp.h>

namespace ZBase::os {

namespace {

using Write = decltype(&MiniDumpWriteDump);
Write spWrite = nullptr;

template <class Function>
Function Find(HMODULE library, const char* name) {
    return reinterpret_cast<Function>(reinterpret_cast<void*>(GetProcAddress(library, name)));
}

/// How many octets of stacks there is room for.
struct Room {
    DWORD thread;  // whose stack is taken in any case
    std::uint64_t left;
};

BOOL CALLBACK ChooseStacks(void* argument, MINIDUMP_CALLBACK_INPUT* input, MINIDUMP_CALLBACK_OUTPUT* output) {
    if (input->CallbackType == CancelCallback) return FALSE;
    if (input->CallbackType != ThreadCallback && input->CallbackType != ThreadExCallback) return TRUE;
    Room& room = *static_cast<Room*>(argument);
    const std::uint64_t size = input->Thread.StackBase - input->Thread.StackEnd;
    if (input->Thread.ThreadId == room.thread) return TRUE;
    if (size > room.left) {
        output->ThreadWriteFlags &= ~static_cast<ULONG>(ThreadWriteStack);
    } else {
        room.left -= size;
    }
    return TRUE;
}

}  // namespace

bool PrepareDumpFile() {
    if (spWrite != nullptr) return true;
    const HMODULE library = LoadLibraryW(L"dbghelp.dll");
    if (library == nullptr) return false;
    spWrite = Find<Write>(library, "MiniDumpWriteDump");
    // A dump needs no symbols; reading those of all modules takes seconds.
    const auto getOptions = Find<decltype(&SymGetOptions)>(library, "SymGetOptions");
    const auto setOptions = Find<decltype(&SymSetOptions)>(library, "SymSetOptions");
    if (getOptions != nullptr && setOptions != nullptr) setOptions(getOptions() | SYMOPT_DEFERRED_LOADS);
    return spWrite != nullptr;
}

bool WriteDumpFile(HANDLE process, HANDLE file, const DumpRequest& request) {
    if (spWrite == nullptr) return false;
    MINIDUMP_USER_STREAM streams[kDumpMemories]{};
    ULONG count = 0;
    for (std::size_t i = 0; i != kDumpMemories; ++i) {
        if (request.size[i] == 0) continue;
        streams[count++] = {static_cast<ULONG32>(kFirstMemoryStream + i), static_cast<ULONG>(request.size[i]),
                            reinterpret_cast<void*>(request.start[i])};
    }
    constexpr std::uint64_t kHalf = 2;  // of what a dump may take is for stacks; the rest is for all else
    Room room{request.thread, request.mostOctets / kHalf};
    MINIDUMP_EXCEPTION_INFORMATION exception{request.thread,
                                             reinterpret_cast<EXCEPTION_POINTERS*>(request.pointers),
                                             request.process != GetCurrentProcessId()};
    MINIDUMP_USER_STREAM_INFORMATION users{count, streams};
    MINIDUMP_CALLBACK_INFORMATION callback{ChooseStacks, &room};
    return spWrite(process, request.process, file, MiniDumpNormal, &exception, &users, &callback) != 0;
}

}  // namespace ZBase::os
