#include <DebugHelp/ModuleSymbols.h>

#include <cxxabi.h>
#include <unistd.h>
#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <memory>

namespace DebugHelp {

namespace {

constexpr std::size_t kMostRemembered = 1 << 16;

// Each module is alone in its elfutils session, at a fixed address: so its symbols stay valid wherever it is
// loaded next.
constexpr Dwarf_Addr kPlace = Dwarf_Addr{1} << 40;

std::string Demangle(const char* name) {
    int status = 0;
    const std::unique_ptr<char, decltype(&std::free)> text(
        abi::__cxa_demangle(name, nullptr, nullptr, &status), std::free);
    return text == nullptr ? name : text.get();
}

// Where elfutils searches for the debug file that a module names: each place, relative to the module's
// directory.
bool IsDebugFileHere(const std::string& places, const std::string& module, const char* link) {
    const std::string directory = module.substr(0, module.rfind('/') + 1);
    for (std::size_t start = 0; start <= places.size();) {
        const std::size_t end = std::min(places.find(':', start), places.size());
        std::string place = places.substr(start, end - start);
        start = end + 1;
        if (place.starts_with('+') || place.starts_with('-')) place.erase(0, 1);
        const std::string file = place.starts_with('/') ? place + directory : directory + place + "/";
        if (access((file + link).c_str(), R_OK) == 0 || access((place + "/" + link).c_str(), R_OK) == 0)
            return true;
    }
    return false;
}

struct FoundLine {
    const char* file = nullptr;
    int number = 0;
    Dwarf_Addr address = 0;
};

// The index also gives lines for addresses between units.
bool FindIndexed(Dwfl_Module* module, std::uint64_t address, FoundLine& found) {
    Dwfl_Line* const line = dwfl_module_getsrc(module, address);
    Dwarf_Addr bias = 0;
    if (line == nullptr || dwfl_module_getdwarf(module, &bias) == nullptr) return false;
    if (dwarf_haspc(dwfl_linecu(line), address - bias) != 1) return false;
    found.file = dwfl_lineinfo(line, &found.address, &found.number, nullptr, nullptr, nullptr);
    return found.file != nullptr;
}

// Some compilers write no index from addresses to compilation units, so all units are searched.
bool FindInUnits(Dwfl_Module* module, std::uint64_t address, FoundLine& found) {
    Dwarf_Addr bias = 0;
    for (Dwarf_Die* unit = nullptr; (unit = dwfl_module_nextcu(module, unit, &bias)) != nullptr;) {
        if (dwarf_haspc(unit, address - bias) != 1) continue;
        Dwarf_Line* const line = dwarf_getsrc_die(unit, address - bias);
        if (line == nullptr) return false;
        found.file = dwarf_linesrc(line, nullptr, nullptr);
        if (dwarf_lineno(line, &found.number) != 0 || dwarf_lineaddr(line, &found.address) != 0) return false;
        found.address += bias;
        return found.file != nullptr;
    }
    return false;
}

template <class Map>
auto& Room(Map& map) {
    if (map.size() >= kMostRemembered) map.clear();
    return map;
}

}  // namespace

int ModuleSymbols::FindElf(Dwfl_Module*, void** data, const char*, Dwarf_Addr, char** file, Elf** elf) {
    auto& self = *static_cast<ModuleSymbols*>(*data);
    *file = strdup(self.mFile.Path().c_str());
    return self.mFile.Open(elf);
}

// No network: for a missing file elfutils would query the servers in DEBUGINFOD_URLS, possibly for minutes.
int ModuleSymbols::FindDebugInformation(Dwfl_Module* module, void** data, const char* name, Dwarf_Addr base,
                                        const char* file, const char* link, GElf_Word checksum,
                                        char** found) {
    const auto& self = *static_cast<const ModuleSymbols*>(*data);
    const int byBuildId = dwfl_build_id_find_debuginfo(module, data, name, base, file, link, checksum, found);
    const std::string places = self.mPlaces.empty() ? ":.debug:/usr/lib/debug" : self.mPlaces;
    if (byBuildId >= 0 || file == nullptr || link == nullptr || !IsDebugFileHere(places, file, link))
        return byBuildId;
    return dwfl_standard_find_debuginfo(module, data, name, base, file, link, checksum, found);
}

ModuleSymbols::ModuleSymbols(const LoadedModule& module, const std::string& places, FileNames& names)
    : mFile(module), mPlaces(places), mpPlaces(mPlaces.empty() ? nullptr : mPlaces.data()), mNames(names) {
    mCallbacks.find_elf = FindElf;
    mCallbacks.find_debuginfo = FindDebugInformation;
    mCallbacks.debuginfo_path = &mpPlaces;
    mpDwfl = dwfl_begin(&mCallbacks);
    if (mpDwfl == nullptr) return;
    dwfl_report_begin(mpDwfl);
    mpModule = dwfl_report_module(mpDwfl, mFile.Path().c_str(), kPlace, kPlace + (module.end - module.start));
    if (mpModule != nullptr) {
        void** data = nullptr;
        dwfl_module_info(mpModule, &data, nullptr, nullptr, nullptr, nullptr, nullptr, nullptr);
        *data = this;
    }
    dwfl_report_end(mpDwfl, nullptr, nullptr);
    if (mpModule != nullptr && dwfl_module_getelf(mpModule, &mBias) == nullptr) mpModule = nullptr;
}

ModuleSymbols::~ModuleSymbols() {
    if (mpDwfl != nullptr) dwfl_end(mpDwfl);
}

const Symbol* ModuleSymbols::FindSymbol(std::uint64_t address) {
    auto found = mSymbols.find(address);
    if (found == mSymbols.end()) found = Room(mSymbols).emplace(address, LookUpSymbol(address)).first;
    return found->second.isThere ? &found->second : nullptr;
}

const Line* ModuleSymbols::FindLine(std::uint64_t address) {
    auto found = mLines.find(address);
    if (found == mLines.end()) found = Room(mLines).emplace(address, LookUpLine(address)).first;
    return found->second.file == nullptr ? nullptr : &found->second;
}

Symbol ModuleSymbols::LookUpSymbol(std::uint64_t address) const {
    if (mpModule == nullptr) return {};
    GElf_Off offset = 0;
    GElf_Sym symbol{};
    const char* const name =
        dwfl_module_addrinfo(mpModule, address + mBias, &offset, &symbol, nullptr, nullptr, nullptr);
    if (name == nullptr) return {};
    // After an "@" comes the version of the symbol, which is not part of the name.
    const std::string bare(name, std::strcspn(name, "@"));
    return {Demangle(bare.c_str()), address - offset, symbol.st_size, true};
}

Line ModuleSymbols::LookUpLine(std::uint64_t address) {
    FoundLine found;
    if (mpModule == nullptr ||
        !(FindIndexed(mpModule, address + mBias, found) || FindInUnits(mpModule, address + mBias, found)))
        return {};
    return {&*mNames.insert(found.file).first, static_cast<std::uint32_t>(found.number),
            found.address - mBias};
}

}  // namespace DebugHelp
