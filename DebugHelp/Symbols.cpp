// The symbol entry points. They may be called by any thread; one at a time is served.

#include <algorithm>
#include <atomic>
#include <chrono>
#include <cstring>
#include <mutex>
#include <string_view>

#include <Base/diagnostics/DebugHelpTypes.h>
#include <DebugHelp/Export.h>
#include <DebugHelp/SymbolEngine.h>

namespace {

using DebugHelp::Line;
using DebugHelp::Module;
using DebugHelp::Symbol;
using DebugHelp::SymbolEngine;

// A thread that holds the lock may be stopped by one that wants to look at its stack, which then goes
// without.
constexpr std::chrono::seconds kPatience(1);

std::timed_mutex sLock;
std::atomic<std::uint32_t> sOptions{0};

SymbolEngine sEngine;

/// Calls `operation` with the engine, under the lock; 0 if that fails or memory runs out.
template <class Operation>
std::int32_t WithEngine(Operation operation) noexcept {
    try {
        std::unique_lock lock(sLock, std::try_to_lock);
        return (lock.owns_lock() || lock.try_lock_for(kPatience)) && operation(sEngine) ? 1 : 0;
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
        return engine.Begin();
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
        return engine.Begin();
    });
}

ZBASE_DEBUGHELP_ENTRY std::int32_t SymGetSymFromAddr64(void*, std::uint64_t address,
                                                       std::uint64_t* displacement,
                                                       ZBase::IMAGEHLP_SYMBOL64* record) {
    if (record == nullptr || record->SizeOfStruct < sizeof *record) return 0;
    return WithEngine([&](SymbolEngine& engine) {
        const Symbol* const symbol = engine.FindSymbol(address);
        if (symbol == nullptr) return false;
        record->Address = symbol->start;
        record->Size = static_cast<std::uint32_t>(symbol->size);
        record->Flags = 0;
        Copy(record->Name, record->MaxNameLength, symbol->name);
        if (displacement != nullptr) *displacement = address - symbol->start;
        return true;
    });
}

ZBASE_DEBUGHELP_ENTRY std::int32_t SymGetLineFromAddr64(void*, std::uint64_t address,
                                                        std::uint32_t* displacement,
                                                        ZBase::IMAGEHLP_LINE64* record) {
    if (record == nullptr || record->SizeOfStruct < sizeof *record) return 0;
    return WithEngine([&](SymbolEngine& engine) {
        const Line* const line = engine.FindLine(address);
        if (line == nullptr) return false;
        record->Key = nullptr;
        record->LineNumber = line->number;
        record->FileName = const_cast<char*>(line->file->c_str());
        record->Address = line->address;
        if (displacement != nullptr) *displacement = static_cast<std::uint32_t>(address - line->address);
        return true;
    });
}

ZBASE_DEBUGHELP_ENTRY std::int32_t SymEnumerateModules64(void*, ZBase::EnumerateModules64Callback callback,
                                                         void* argument) {
    if (callback == nullptr) return 0;
    return WithEngine([&](SymbolEngine& engine) {
        if (!engine.IsBegun()) return false;
        engine.VisitModules(
            [&](const Module& module) { return callback(module.path, module.base, argument) != 0; });
        return true;
    });
}

/// The modules of the process are known without it: gives the base of the one that is at `base`, or else of
/// the one whose image or file name is `imageName`; 0 if there is none.
ZBASE_DEBUGHELP_ENTRY std::uint64_t SymLoadModule64(void*, void*, const char* imageName, const char*,
                                                    std::uint64_t base, std::uint32_t) {
    std::uint64_t found = 0;
    WithEngine([&](SymbolEngine& engine) {
        engine.VisitModules([&](const Module& module) {
            const std::string_view path = module.path;
            const bool isNamed = imageName != nullptr && (path == imageName || FileName(path) == imageName);
            if (base != 0 ? module.base == base : isNamed) found = module.base;
            return found == 0;
        });
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
