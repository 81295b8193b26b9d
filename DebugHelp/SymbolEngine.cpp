#include <DebugHelp/SymbolEngine.h>

#include <link.h>
#include <algorithm>
#include <array>
#include <cstdio>
#include <utility>

namespace DebugHelp {

namespace {

// The number of unloaded modules that are cached.
constexpr std::size_t kMostUnloaded = 16;

int CountUnloads(dl_phdr_info* information, std::size_t, void* argument) {
    *static_cast<unsigned long long*>(argument) = information->dlpi_subs;
    return 1;
}

/// The key of a module; it is in `room` or in the module. Without a build id it changes after each unload,
/// since another module may be at that address then.
std::string_view IdOf(const LoadedModule& module, std::array<char, 64>& room) {
    const std::string_view id = module.BuildId();
    if (!id.empty()) return id;
    unsigned long long unloads = 0;
    if (*module.name != 0) dl_iterate_phdr(CountUnloads, &unloads);
    const int length = std::snprintf(room.data(), room.size(), "%llx#%llu",
                                     static_cast<unsigned long long>(module.start), unloads);
    return {room.data(), static_cast<std::size_t>(length)};
}

/// Whether a call instruction ends at `next`. All forms of a near call end with a different number of octets.
bool IsBehindCall(const unsigned char* next) {
    if (next[-5] == 0xE8) return true;  // rel32
    for (int length = 2; length != 8; ++length) {
        if (next[-length] != 0xFF || (next[1 - length] >> 3 & 7) != 2) continue;  // through ModR/M
        const unsigned int mode = next[1 - length] >> 6;
        const unsigned int base = next[1 - length] & 7;
        int expected = 2;
        if (mode == 1) expected += 1;
        if (mode == 2 || (mode == 0 && base == 5)) expected += 4;
        if (mode != 3 && base == 4) expected += 1;
        if (length == expected) return true;
    }
    return false;
}

int Collect(dl_phdr_info* information, std::size_t, void* argument) {
    for (unsigned int i = 0; i != information->dlpi_phnum; ++i) {
        if (information->dlpi_phdr[i].p_type != PT_LOAD) continue;
        static_cast<std::vector<std::uint64_t>*>(argument)->push_back(information->dlpi_addr +
                                                                      information->dlpi_phdr[i].p_vaddr);
        break;
    }
    return 0;
}

}  // namespace

void SymbolEngine::End() {
    mRecent.clear();
    mModules.clear();
    mpProvisional.reset();
    mIsBegun = false;
}

void SymbolEngine::ForgetUnloaded() {
    const auto isLoaded = [](std::string_view key, const Known& known) {
        std::array<char, 64> room;
        LoadedModule module{};
        if (!LoadedModule::Find(known.start, module) || module.start != known.start) return false;
        const std::string_view id = IdOf(module, room);
        return key.starts_with(id) && key.substr(id.size()).starts_with('\n');
    };
    std::vector<std::pair<std::uint64_t, std::string>> unloaded;
    for (const auto& [key, known] : mModules) {
        if (!isLoaded(key, known)) unloaded.emplace_back(known.use, key);
    }
    if (unloaded.size() <= kMostUnloaded) return;
    std::sort(unloaded.begin(), unloaded.end());
    mRecent.clear();
    for (std::size_t i = 0; i + kMostUnloaded < unloaded.size(); ++i) mModules.erase(unloaded[i].second);
}

ModuleSymbols* SymbolEngine::SymbolsOf(const LoadedModule& module) {
    std::array<char, 64> room;
    const std::string_view id = IdOf(module, room);
    const auto recent = mRecent.find(module.start);
    if (recent != mRecent.end() && recent->second.id == id && recent->second.name == module.name)
        return recent->second.symbols;
    return Read(module, id);
}

ModuleSymbols* SymbolEngine::Read(const LoadedModule& module, std::string_view id) {
    const std::string key = std::string(id) + '\n' + module.Path();
    const auto known = mModules.find(key);
    if (known == mModules.end()) {
        auto symbols = std::make_unique<ModuleSymbols>(module, searchPath, mNames);
        if (symbols->IsProvisional()) {
            mpProvisional = std::move(symbols);
            return mpProvisional.get();
        }
        ForgetUnloaded();
        mModules[key] = {std::move(symbols), 0, 0};
    }
    Known& found = mModules[key];
    found.start = module.start;
    found.use = ++mUses;
    mRecent[module.start] = {std::string(id), module.name, found.symbols.get()};
    return found.symbols.get();
}

bool SymbolEngine::FindSymbol(std::uint64_t address, FoundSymbol& symbol) {
    LoadedModule module{};
    if (!mIsBegun || !LoadedModule::Find(address, module)) return false;
    const Symbol* const found = SymbolsOf(module)->FindSymbol(address - module.bias);
    if (found != nullptr) symbol = {&found->name, found->start + module.bias, found->size};
    return found != nullptr;
}

bool SymbolEngine::FindLine(std::uint64_t address, FoundLine& line) {
    LoadedModule module{};
    if (!mIsBegun || !LoadedModule::Find(address, module)) return false;
    const Line* const found = SymbolsOf(module)->FindLine(address - module.bias);
    if (found != nullptr) line = {found->file, found->number, found->address + module.bias};
    return found != nullptr;
}

bool SymbolEngine::FindModule(std::uint64_t address, Module& module) {
    LoadedModule loaded{};
    if (!mIsBegun || !LoadedModule::Find(address, loaded)) return false;
    module = {loaded.start, loaded.end - loaded.start, loaded.Path()};
    return true;
}

std::vector<Module> SymbolEngine::Modules() const {
    std::vector<std::uint64_t> places;
    dl_iterate_phdr(Collect, &places);
    std::vector<Module> modules;
    for (const std::uint64_t place : places) {
        LoadedModule module{};
        if (LoadedModule::Find(place, module))
            modules.push_back({module.start, module.end - module.start, module.Path()});
    }
    return modules;
}

std::uint64_t SymbolEngine::CallBefore(std::uint64_t address) {
    LoadedModule module{};
    constexpr std::uint64_t kLongestCall = 7;
    if (!mIsBegun || !LoadedModule::Find(address - kLongestCall, module)) return address;
    FoundSymbol behind{};
    if (FindSymbol(address, behind) && address != behind.start && address - behind.start < behind.size)
        return address;
    if (!IsBehindCall(reinterpret_cast<const unsigned char*>(address))) return address;
    FoundSymbol before{};
    return FindSymbol(address - 1, before) && before.start != behind.start ? address - 1 : address;
}

}  // namespace DebugHelp
