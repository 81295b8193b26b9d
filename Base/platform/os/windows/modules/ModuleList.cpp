#include <Base/platform/os/modules/ModuleList.h>
#include <Base/platform/os/windows/WideText.h>

#define PSAPI_VERSION 2  // the names that the system's core library has
#include <windows.h>

#include <psapi.h>

#include <algorithm>
#include <climits>
#include <cstring>

// Names of this seam too.
#undef GetModuleBaseName
#undef GetModuleInformation

namespace ZBase::os {

namespace {

HMODULE ToModule(std::uint64_t base) {
    return reinterpret_cast<HMODULE>(base);
}

bool Facts(std::uint64_t base, MODULEINFO& facts) {
    if (base != 0)
        return K32GetModuleInformation(GetCurrentProcess(), ToModule(base), &facts, sizeof facts) != 0;
    SetLastError(ERROR_MOD_NOT_FOUND);
    return false;
}

// The headers of the image, which its first page holds; null if they are none.
const IMAGE_NT_HEADERS64* FindHeaders(std::uint64_t base) {
    const auto* const dos = reinterpret_cast<const IMAGE_DOS_HEADER*>(base);
    constexpr LONG most = 0x1000 - static_cast<LONG>(sizeof(IMAGE_NT_HEADERS64));
    if (dos->e_magic != IMAGE_DOS_SIGNATURE || dos->e_lfanew < 0 || dos->e_lfanew > most) return nullptr;
    const auto* const headers =
        reinterpret_cast<const IMAGE_NT_HEADERS64*>(base + static_cast<std::uint64_t>(dos->e_lfanew));
    return headers->Signature == IMAGE_NT_SIGNATURE ? headers : nullptr;
}

}  // namespace

bool GetModuleSection(std::uint64_t base, unsigned int index, ModuleSection& section) {
    MODULEINFO facts{};
    if (!Facts(base, facts)) return false;
    const IMAGE_NT_HEADERS64* const headers = FindHeaders(base);
    if (headers == nullptr || index >= headers->FileHeader.NumberOfSections) return false;
    const IMAGE_SECTION_HEADER& found = IMAGE_FIRST_SECTION(headers)[index];
    section = {found.VirtualAddress, found.Misc.VirtualSize, found.SizeOfRawData};
    return true;
}

bool EnumerateModules(std::uint64_t* modules, std::uint32_t bytes, std::uint32_t& needed) {
    static_assert(sizeof(HMODULE) == sizeof *modules);
    DWORD all = 0;
    const bool succeeded =
        K32EnumProcessModules(GetCurrentProcess(), reinterpret_cast<HMODULE*>(modules), bytes, &all) != 0;
    needed = all;
    return succeeded;
}

std::uint32_t GetModuleBaseName(std::uint64_t module, char* name, std::uint32_t capacity) {
    wchar_t wide[MAX_PATH + 1];
    if (capacity == 0 || module == 0 ||
        K32GetModuleBaseNameW(GetCurrentProcess(), ToModule(module), wide, MAX_PATH + 1) == 0)
        return 0;
    const std::string text = ToUtf8(wide);
    const std::size_t length = std::min<std::size_t>(text.size(), capacity - 1);
    std::memcpy(name, text.data(), length);
    name[length] = 0;
    return static_cast<std::uint32_t>(length);
}

bool GetModuleInformation(std::uint64_t module, ModuleInformation& information) {
    MODULEINFO facts{};
    if (!Facts(module, facts)) return false;
    information = {reinterpret_cast<std::uint64_t>(facts.lpBaseOfDll), facts.SizeOfImage};
    return true;
}

}  // namespace ZBase::os
