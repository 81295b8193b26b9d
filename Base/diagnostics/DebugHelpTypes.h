#pragma once

#include <Base/frame/Standard.h>

#include <cstddef>
#include <cstdint>

namespace ZBase {

// The records and entry points of the debug help library, with the layout and the names that its system
// publishes. The process and the thread are handles.

enum AddressMode : std::uint32_t { AddrMode1616, AddrMode1632, AddrModeReal, AddrModeFlat };

struct ADDRESS64 {
    std::uint64_t Offset;
    std::uint16_t Segment;
    AddressMode Mode;
};

struct KDHELP64 {
    std::uint64_t Thread;
    std::uint32_t ThCallbackStack;
    std::uint32_t ThCallbackBStore;
    std::uint32_t NextCallback;
    std::uint32_t FramePointer;
    std::uint64_t KiCallUserMode;
    std::uint64_t KeUserCallbackDispatcher;
    std::uint64_t SystemRangeStart;
    std::uint64_t KiUserExceptionDispatcher;
    std::uint64_t StackBase;
    std::uint64_t StackLimit;
    std::uint32_t BuildVersion;
    std::uint32_t RetpolineStubFunctionTableSize;
    std::uint64_t RetpolineStubFunctionTable;
    std::uint32_t RetpolineStubOffset;
    std::uint32_t RetpolineStubSize;
    std::uint64_t Reserved0[2];
};

/// A frame of a walk. The caller seeds the three addresses of the first and leaves the rest zero.
struct STACKFRAME64 {
    ADDRESS64 AddrPC;
    ADDRESS64 AddrReturn;
    ADDRESS64 AddrFrame;
    ADDRESS64 AddrStack;
    ADDRESS64 AddrBStore;
    void* FuncTableEntry;
    std::uint64_t Params[4];
    std::int32_t Far;
    std::int32_t Virtual;
    std::uint64_t Reserved[3];
    KDHELP64 KdHelp;
};
static_assert(sizeof(ADDRESS64) == 16 && sizeof(KDHELP64) == 112 && sizeof(STACKFRAME64) == 264);

/// A symbol. The caller sets `SizeOfStruct` and `MaxNameLength`, and leaves space for a name of that many
/// characters after the record; the returned name is cut to it, terminator included.
struct IMAGEHLP_SYMBOL64 {
    std::uint32_t SizeOfStruct;
    std::uint64_t Address;
    std::uint32_t Size;
    std::uint32_t Flags;
    std::uint32_t MaxNameLength;
    char Name[1];
};

inline constexpr std::uint32_t kMaxSymbolName = 1024;

/// Input in `Flags` of a symbol's record and `Key` of a line's: the address is a return address. Our own
/// debug help then names the calling function, also if the call never returns and another function begins
/// after it; others ignore it.
inline constexpr std::uint32_t kIsReturnAddress = 0x5A425241;

/// A symbol with space for its name.
struct SymbolRecord {
    IMAGEHLP_SYMBOL64 symbol;
    char room[kMaxSymbolName];
};
static_assert(sizeof(IMAGEHLP_SYMBOL64) == 32 && sizeof(SymbolRecord) == 1056);

/// A source line. The library owns `FileName`.
struct IMAGEHLP_LINE64 {
    std::uint32_t SizeOfStruct;
    void* Key;
    std::uint32_t LineNumber;
    char* FileName;
    std::uint64_t Address;
};
static_assert(sizeof(IMAGEHLP_LINE64) == 40);

struct IMAGEHLP_MODULE64 {
    std::uint32_t SizeOfStruct;
    std::uint64_t BaseOfImage;
    std::uint32_t ImageSize;
    std::uint32_t TimeDateStamp;
    std::uint32_t CheckSum;
    std::uint32_t NumSyms;
    std::uint32_t SymType;
    char ModuleName[32];
    char ImageName[256];
    char LoadedImageName[256];
    char LoadedPdbName[256];
    std::uint32_t CVSig;
    char CVData[780];
    std::uint32_t PdbSig;
    unsigned char PdbSig70[16];
    std::uint32_t PdbAge;
    std::int32_t PdbUnmatched;
    std::int32_t DbgUnmatched;
    std::int32_t LineNumbers;
    std::int32_t GlobalSymbols;
    std::int32_t TypeInfo;
    std::int32_t SourceIndexed;
    std::int32_t Publics;
    std::uint32_t MachineType;
    std::uint32_t Reserved;
};
static_assert(sizeof(IMAGEHLP_MODULE64) == 1680);
static_assert(offsetof(IMAGEHLP_MODULE64, ImageName) == 68 && offsetof(IMAGEHLP_MODULE64, CVData) == 840);

inline constexpr std::uint32_t kMachineX64 = 0x8664;

using ReadProcessMemoryFunction = std::int32_t (*)(void* process, std::uint64_t address, void* buffer,
                                                   std::uint32_t size, std::uint32_t* read);
using TranslateAddressFunction = std::uint64_t (*)(void* process, void* thread, ADDRESS64* address);

using SymFunctionTableAccess64Function = void* (*)(void* process, std::uint64_t address);
using SymGetModuleBase64Function = std::uint64_t (*)(void* process, std::uint64_t address);
using SymGetSymFromAddr64Function = std::int32_t (*)(void* process, std::uint64_t address,
                                                     std::uint64_t* displacement, IMAGEHLP_SYMBOL64* symbol);
using StackWalk64Function = std::int32_t (*)(std::uint32_t machine, void* process, void* thread,
                                             STACKFRAME64* frame, void* context,
                                             ReadProcessMemoryFunction readMemory,
                                             SymFunctionTableAccess64Function functionTable,
                                             SymGetModuleBase64Function moduleBase,
                                             TranslateAddressFunction translateAddress);
using SymGetLineFromAddr64Function = std::int32_t (*)(void* process, std::uint64_t address,
                                                      std::uint32_t* displacement, IMAGEHLP_LINE64* line);
using SymCleanupFunction = std::int32_t (*)(void* process);
using SymSetOptionsFunction = std::uint32_t (*)(std::uint32_t options);
using SymInitializeFunction = std::int32_t (*)(void* process, const char* searchPath,
                                               std::int32_t invadeProcess);
using SymGetOptionsFunction = std::uint32_t (*)();
using SymGetSearchPathFunction = std::int32_t (*)(void* process, char* path, std::uint32_t length);
using SymSetSearchPathFunction = std::int32_t (*)(void* process, const char* path);
using EnumerateModules64Callback = std::int32_t (*)(const char* name, std::uint64_t base, void* argument);
using SymEnumerateModules64Function = std::int32_t (*)(void* process, EnumerateModules64Callback callback,
                                                       void* argument);
using SymLoadModule64Function = std::uint64_t (*)(void* process, void* file, const char* imageName,
                                                  const char* moduleName, std::uint64_t base,
                                                  std::uint32_t size);
/// The same entry with a narrower result, as the accessor declares it; kept for its callers.
using SymLoadModule64NarrowFunction = int (*)(void* process, void* file, const char* imageName,
                                              const char* moduleName, std::uint64_t base, std::uint32_t size);
using SymGetModuleInfo64Function = std::int32_t (*)(void* process, std::uint64_t address,
                                                    IMAGEHLP_MODULE64* module);

}  // namespace ZBase
