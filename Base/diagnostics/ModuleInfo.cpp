#include <Base/diagnostics/ModuleInfo.h>
#include <Base/diagnostics/detail/ForkedLocks.h>
#include <Base/diagnostics/detail/LineText.h>
#include <Base/platform/os/modules/ModuleList.h>

#include <algorithm>
#include <iterator>

namespace ZBase {

namespace {

constexpr std::size_t kMostModules = 256;
constexpr std::uint32_t kNameCapacity = 1024;

}  // namespace

ModuleInfo::ModuleInfo() = default;
ModuleInfo::~ModuleInfo() = default;

void ModuleInfo::Initialize() {
    if (mIsInitialized) return;
    // The first of them is released in a forked child, so the second is free there.
    const std::scoped_lock enumeration(detail::ModuleEnumeration());
    const std::scoped_lock lock(mLock);
    if (mIsInitialized) return;
    std::uint64_t modules[kMostModules];
    std::uint32_t needed = 0;
    if (os::EnumerateModules(modules, sizeof modules, needed)) {
        const std::size_t count = std::min<std::size_t>(needed / sizeof *modules, kMostModules);
        for (std::size_t i = 0; i != count; ++i) {
            char name[kNameCapacity] = {};
            os::ModuleInformation information{};
            os::GetModuleBaseName(modules[i], name, kNameCapacity);
            if (os::GetModuleInformation(modules[i], information)) mNames[information.base] = name;
        }
    }
    mIsInitialized = true;
}

bool ModuleInfo::FprintfModuleInfo(std::FILE* file) {
    if (!mIsInitialized) Initialize();
    for (const auto& [base, name] : mNames) {
        // An unknown end becomes 0 and stays so, and look-ups then find nothing; kept as `FprintfModuleInfo`
        // documents it.
        const auto size = static_cast<std::int32_t>(static_cast<std::uint32_t>(mEnds[base] - base));
        if (file != nullptr)
            std::fprintf(file, "%s %s %ld\n", name.c_str(), detail::PointerText(base).c_str(), long{size});
    }
    return true;
}

void ModuleInfo::FetchModuleNameAndBaseAddress(const std::uint64_t& address, std::string& name,
                                               std::uint64_t& base) {
    if (!mIsInitialized || mNames.empty()) return;
    // The address of a base selects the module below it; kept as the header documents it.
    const auto next = mNames.lower_bound(address);
    if (next == mNames.begin()) return;
    const auto found = std::prev(next);
    if (address < found->first) return;
    const auto end = mEnds.find(found->first);
    if (end != mEnds.end() && address > end->second) return;
    name = found->second;
    base = found->first;
}

}  // namespace ZBase
