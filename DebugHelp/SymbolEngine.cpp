#include <DebugHelp/SymbolEngine.h>

#include <cxxabi.h>
#include <link.h>
#include <sys/auxv.h>
#include <unistd.h>
#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <memory>

#include <Base/platform/os/linux/MappedRegions.h>

namespace DebugHelp {

namespace {

using ZBase::os::MappedRegion;
using ZBase::os::VisitMappedRegions;

constexpr std::size_t kMostRemembered = 1 << 16;

struct LoadCounts {
    unsigned long long loads;
    unsigned long long unloads;
};

int ReadCounts(dl_phdr_info* information, std::size_t, void* argument) {
    *static_cast<LoadCounts*>(argument) = {information->dlpi_adds, information->dlpi_subs};
    return 1;
}

std::string Demangle(const char* name) {
    int status = 0;
    const std::unique_ptr<char, decltype(&std::free)> text(
        abi::__cxa_demangle(name, nullptr, nullptr, &status), std::free);
    return text == nullptr ? name : text.get();
}

// A module is the run of mappings of one file. The kernel's own module is called as elfutils knows it.
bool ReportModules(Dwfl* dwfl) {
    const std::uint64_t kernels = getauxval(AT_SYSINFO_EHDR);
    MappedRegion module{};
    bool isGood = true;
    const auto report = [&] {
        if (!module.path.empty())
            isGood &= dwfl_report_module(dwfl, module.path.c_str(), module.start, module.end) != nullptr;
    };
    VisitMappedRegions([&](const MappedRegion& region) {
        const bool isKernels = kernels != 0 && region.start == kernels;
        if (!isKernels && !region.path.starts_with('/')) return false;
        if (!isKernels && region.path == module.path) {
            module.end = region.end;
            return false;
        }
        report();
        module = region;
        if (isKernels) module.path = "[vdso: " + std::to_string(getpid()) + "]";
        return false;
    });
    report();
    return isGood && !module.path.empty();
}

// Where elfutils looks for the debug file that a module names: for each place, in the module's directory
// below it.
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

std::string sPlaces;

// The network is left alone: of a file that is not here elfutils would ask the servers that the environment
// names, for minutes maybe, and while a thread is stopped.
int FindDebugInformation(Dwfl_Module* module, void** data, const char* name, Dwarf_Addr base,
                         const char* file, const char* link, GElf_Word checksum, char** found) {
    const int byBuildId = dwfl_build_id_find_debuginfo(module, data, name, base, file, link, checksum, found);
    if (byBuildId >= 0 || file == nullptr || link == nullptr || !IsDebugFileHere(sPlaces, file, link))
        return byBuildId;
    return dwfl_standard_find_debuginfo(module, data, name, base, file, link, checksum, found);
}

struct FoundLine {
    const char* file = nullptr;
    int number = 0;
    Dwarf_Addr address = 0;
};

bool FindIndexed(Dwfl_Module* module, std::uint64_t address, FoundLine& found) {
    Dwfl_Line* const line = dwfl_module_getsrc(module, address);
    if (line == nullptr) return false;
    found.file = dwfl_lineinfo(line, &found.address, &found.number, nullptr, nullptr, nullptr);
    return found.file != nullptr;
}

// Some compilers write no index from addresses to compilation units, so each unit is asked.
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

}  // namespace

SymbolEngine::~SymbolEngine() {
    End();
}

bool SymbolEngine::Begin() {
    mIsBegun = mIsBegun || Open();
    return mIsBegun;
}

void SymbolEngine::End() {
    Close();
    mIsBegun = false;
}

bool SymbolEngine::Open() {
    LoadCounts counts{};
    dl_iterate_phdr(ReadCounts, &counts);
    mpSearchPath = searchPath.empty() ? nullptr : searchPath.data();
    sPlaces = searchPath.empty() ? ":.debug:/usr/lib/debug" : searchPath;
    mCallbacks.find_elf = dwfl_linux_proc_find_elf;
    mCallbacks.find_debuginfo = FindDebugInformation;
    mCallbacks.debuginfo_path = &mpSearchPath;
    mpDwfl = dwfl_begin(&mCallbacks);
    if (mpDwfl == nullptr) return false;
    if (!Report()) {
        Close();
        return false;
    }
    mLoads = counts.loads;
    mUnloads = counts.unloads;
    return true;
}

void SymbolEngine::Close() {
    mSymbols.clear();
    mLines.clear();
    if (mpDwfl != nullptr) dwfl_end(mpDwfl);
    mpDwfl = nullptr;
}

bool SymbolEngine::Report() {
    dwfl_report_begin(mpDwfl);
    const bool isReported = ReportModules(mpDwfl);
    return dwfl_report_end(mpDwfl, nullptr, nullptr) == 0 && isReported;
}

// Where a module was unloaded another may lie now, so nothing is kept; one that was only loaded adds. Modules
// that could not be read, for want of a file handle maybe, are read at the next call.
void SymbolEngine::Refresh() {
    if (!mIsBegun) return;
    if (mpDwfl == nullptr) {
        Open();
        return;
    }
    LoadCounts counts{};
    dl_iterate_phdr(ReadCounts, &counts);
    if (counts.unloads != mUnloads || mSymbols.size() + mLines.size() > kMostRemembered) {
        Close();
        Open();
    } else if (counts.loads != mLoads) {
        std::erase_if(mSymbols, [](const auto& entry) { return entry.second.start == 0; });
        std::erase_if(mLines, [](const auto& entry) { return entry.second.file == nullptr; });
        if (Report())
            mLoads = counts.loads;
        else
            Close();
    }
}

const Symbol* SymbolEngine::FindSymbol(std::uint64_t address) {
    Refresh();
    if (mpDwfl == nullptr) return nullptr;
    auto found = mSymbols.find(address);
    if (found == mSymbols.end()) found = mSymbols.emplace(address, LookUpSymbol(address)).first;
    return found->second.start == 0 ? nullptr : &found->second;
}

const Line* SymbolEngine::FindLine(std::uint64_t address) {
    Refresh();
    if (mpDwfl == nullptr) return nullptr;
    auto found = mLines.find(address);
    if (found == mLines.end()) found = mLines.emplace(address, LookUpLine(address)).first;
    return found->second.file == nullptr ? nullptr : &found->second;
}

Symbol SymbolEngine::LookUpSymbol(std::uint64_t address) const {
    Dwfl_Module* const module = ModuleAt(address);
    if (module == nullptr) return {};
    GElf_Off offset = 0;
    GElf_Sym symbol{};
    const char* const name =
        dwfl_module_addrinfo(module, address, &offset, &symbol, nullptr, nullptr, nullptr);
    if (name == nullptr) return {};
    // Behind an "@" stands the version of the symbol, which is no part of the name.
    const std::string bare(name, std::strcspn(name, "@"));
    return {Demangle(bare.c_str()), address - offset, symbol.st_size};
}

Line SymbolEngine::LookUpLine(std::uint64_t address) {
    Dwfl_Module* const module = ModuleAt(address);
    FoundLine found;
    if (module == nullptr || !(FindIndexed(module, address, found) || FindInUnits(module, address, found)))
        return {};
    return {&*mFiles.insert(found.file).first, static_cast<std::uint32_t>(found.number), found.address};
}

Module SymbolEngine::Describe(Dwfl_Module* module) {
    Dwarf_Addr start = 0;
    Dwarf_Addr end = 0;
    const char* file = nullptr;
    const char* const name =
        dwfl_module_info(module, nullptr, &start, &end, nullptr, nullptr, &file, nullptr);
    return {start, end - start, file != nullptr ? file : name};
}

Dwfl_Module* SymbolEngine::ModuleAt(std::uint64_t address) const {
    // An address behind the last module counts as part of it there.
    Dwfl_Module* const module = mpDwfl == nullptr ? nullptr : dwfl_addrmodule(mpDwfl, address);
    if (module == nullptr) return nullptr;
    const Module found = Describe(module);
    return address - found.base < found.size ? module : nullptr;
}

bool SymbolEngine::FindModule(std::uint64_t address, Module& module) {
    Refresh();
    Dwfl_Module* const found = ModuleAt(address);
    if (found != nullptr) module = Describe(found);
    return found != nullptr;
}

}  // namespace DebugHelp
