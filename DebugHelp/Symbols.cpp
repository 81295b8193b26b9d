// The symbol entry points. Any thread may call them; one runs at a time.

#include <pthread.h>
#include <algorithm>
#include <atomic>
#include <cstring>
#include <memory>
#include <mutex>
#include <new>
#include <string_view>
#include <utility>

#include <Base/diagnostics/DebugHelpTypes.h>
#include <DebugHelp/EngineStack.h>
#include <DebugHelp/Export.h>
#include <DebugHelp/SymbolEngine.h>

namespace {

using DebugHelp::Module;
using DebugHelp::SymbolEngine;

constinit std::recursive_mutex sLock;
std::atomic<std::uint32_t> sOptions{0};

SymbolEngine* spEngine = nullptr;  // owned; made by the first call, since a constructor at load can't fail
bool sMustBegin = false;           // in a child, if the engine it inherited was started
bool sIsUnloaded = false;
std::atomic<bool> sIsBusy{false};

// A forked child may have inherited a lock of a thread that does not exist, and an engine in the middle of an
// operation, which is leaked.
void RenewInChild() {
    ::new (static_cast<void*>(&sLock)) std::recursive_mutex;
    if (!sIsBusy.exchange(false) || spEngine == nullptr) return;
    sMustBegin = spEngine->IsBegun();
    spEngine = nullptr;
}

[[maybe_unused]] const bool sIsWatching = pthread_atfork(nullptr, nullptr, RenewInChild) == 0;

/// Destroys the engine when the module is unloaded, unless a thread is inside.
struct EngineEnd {
    ~EngineEnd() {
        sIsUnloaded = true;
        if (!sIsBusy) delete std::exchange(spEngine, nullptr);
    }
} const sEngineEnd;

SymbolEngine& Engine() {
    if (spEngine == nullptr) {
        auto engine = std::make_unique<SymbolEngine>();
        if (sMustBegin) engine->Begin();
        spEngine = engine.release();
    }
    return *spEngine;
}

/// Calls `operation` with the engine, under the lock; 0 if that fails or memory runs out. A nested call on
/// the same thread, as from a heap hook that captures its callers, returns 0.
template <class Operation>
std::int32_t WithEngine(Operation operation) noexcept {
    try {
        const std::scoped_lock lock(sLock);
        if (sIsUnloaded || sIsBusy.exchange(true)) return 0;
        struct End {
            ~End() { sIsBusy = false; }
        } const end;
        struct Call {
            Operation* operation;
            bool succeeded;
        } call{&operation, false};
        const auto run = [](void* argument) {
            auto* const own = static_cast<Call*>(argument);
            try {
                own->succeeded = (*own->operation)(Engine());
            } catch (...) {  // counts as not found; no exception crosses stacks
            }
        };
        return DebugHelp::CallOnRoomyStack(run, &call) && call.succeeded ? 1 : 0;
    } catch (...) {
        return 0;
    }
}

void Copy(char* destination, std::size_t capacity, std::string_view text) {
    if (capacity == 0) return;
    const std::size_t length = std::min(text.size(), capacity - 1);
    std::memcpy(destination, text.data(), length);
    destination[length] = 0;
}

std::string_view FileName(std::string_view path) {
    return path.substr(path.rfind('/') + 1);
}

}  // namespace

ZBASE_DEBUGHELP_ENTRY std::int32_t SymInitialize(void*, const char* searchPath, std::int32_t) {
    return WithEngine([&](SymbolEngine& engine) {
        if (!engine.IsBegun() && searchPath != nullptr) engine.searchPath = searchPath;
        engine.Begin();
        return true;
    });
}

ZBASE_DEBUGHELP_ENTRY std::int32_t SymCleanup(void*) {
    return WithEngine([](SymbolEngine& engine) {
        engine.End();
        return true;
    });
}

ZBASE_DEBUGHELP_ENTRY std::uint32_t SymSetOptions(std::uint32_t options) {
    sOptions = options;
    return options;
}

ZBASE_DEBUGHELP_ENTRY std::uint32_t SymGetOptions() {
    return sOptions;
}

ZBASE_DEBUGHELP_ENTRY std::int32_t SymGetSearchPath(void*, char* path, std::uint32_t length) {
    if (path == nullptr || length == 0) return 0;
    return WithEngine([&](SymbolEngine& engine) {
        Copy(path, length, engine.searchPath);
        return engine.IsBegun();
    });
}

ZBASE_DEBUGHELP_ENTRY std::int32_t SymSetSearchPath(void*, const char* path) {
    return WithEngine([&](SymbolEngine& engine) {
        if (!engine.IsBegun()) return false;
        engine.End();
        engine.searchPath = path == nullptr ? "" : path;
        engine.Begin();
        return true;
    });
}

ZBASE_DEBUGHELP_ENTRY std::int32_t SymGetSymFromAddr64(void*, std::uint64_t address,
                                                       std::uint64_t* displacement,
                                                       ZBase::IMAGEHLP_SYMBOL64* record) {
    if (record == nullptr || record->SizeOfStruct < sizeof *record) return 0;
    return WithEngine([&](SymbolEngine& engine) {
        SymbolEngine::FoundSymbol symbol{};
        const bool isReturn = record->Flags == ZBase::kIsReturnAddress;
        if (!engine.FindSymbol(isReturn ? engine.CallBefore(address) : address, symbol)) return false;
        record->Address = symbol.start;
        record->Size = static_cast<std::uint32_t>(symbol.size);
        record->Flags = 0;
        Copy(record->Name, record->MaxNameLength, *symbol.name);
        if (displacement != nullptr) *displacement = address - symbol.start;
        return true;
    });
}

ZBASE_DEBUGHELP_ENTRY std::int32_t SymGetLineFromAddr64(void*, std::uint64_t address,
                                                        std::uint32_t* displacement,
                                                        ZBase::IMAGEHLP_LINE64* record) {
    if (record == nullptr || record->SizeOfStruct < sizeof *record) return 0;
    return WithEngine([&](SymbolEngine& engine) {
        SymbolEngine::FoundLine line{};
        const bool isReturn = reinterpret_cast<std::uintptr_t>(record->Key) == ZBase::kIsReturnAddress;
        if (!engine.FindLine(isReturn ? engine.CallBefore(address) : address, line)) return false;
        record->Key = nullptr;
        record->LineNumber = line.number;
        record->FileName = const_cast<char*>(line.file->c_str());
        record->Address = line.address;
        if (displacement != nullptr) *displacement = static_cast<std::uint32_t>(address - line.address);
        return true;
    });
}

ZBASE_DEBUGHELP_ENTRY std::int32_t SymEnumerateModules64(void*, ZBase::EnumerateModules64Callback callback,
                                                         void* argument) {
    if (callback == nullptr) return 0;
    return WithEngine([&](SymbolEngine& engine) {
        if (!engine.IsBegun()) return false;
        for (const Module& module : engine.Modules()) {
            if (callback(module.path.c_str(), module.base, argument) == 0) break;
        }
        return true;
    });
}

/// No module is loaded by this: returns the base of the one at `base`, or else of the one whose image or file
/// name is `imageName`; 0 if there is none.
ZBASE_DEBUGHELP_ENTRY std::uint64_t SymLoadModule64(void*, void*, const char* imageName, const char*,
                                                    std::uint64_t base, std::uint32_t) {
    std::uint64_t found = 0;
    WithEngine([&](SymbolEngine& engine) {
        if (!engine.IsBegun()) return false;
        for (const Module& module : engine.Modules()) {
            const std::string_view path = module.path;
            const bool isNamed = imageName != nullptr && (path == imageName || FileName(path) == imageName);
            if (found == 0 && (base != 0 ? module.base == base : isNamed)) found = module.base;
        }
        return true;
    });
    return found;
}

ZBASE_DEBUGHELP_ENTRY std::int32_t SymGetModuleInfo64(void*, std::uint64_t address,
                                                      ZBase::IMAGEHLP_MODULE64* record) {
    if (record == nullptr || record->SizeOfStruct < sizeof *record) return 0;
    return WithEngine([&](SymbolEngine& engine) {
        Module module{};
        if (!engine.FindModule(address, module)) return false;
        const std::uint32_t size = record->SizeOfStruct;
        *record = {};
        record->SizeOfStruct = size;
        record->BaseOfImage = module.base;
        record->ImageSize = static_cast<std::uint32_t>(module.size);
        const std::string_view name = FileName(module.path);
        Copy(record->ModuleName, sizeof record->ModuleName, name.substr(0, name.find('.')));
        Copy(record->ImageName, sizeof record->ImageName, module.path);
        Copy(record->LoadedImageName, sizeof record->LoadedImageName, module.path);
        record->MachineType = ZBase::kMachineX64;
        return true;
    });
}
