#include <Base/platform/os/linux/modules/ModuleExports.h>

#include <elf.h>
#include <algorithm>
#include <cstdint>
#include <cstring>
#include <iterator>

namespace ZBase::os {

namespace {

using Symbol = ElfW(Sym);

std::uint32_t GnuHash(const char* name) {
    std::uint32_t hash = 5381;
    for (; *name != 0; ++name) hash = hash * 33 + static_cast<unsigned char>(*name);
    return hash;
}

std::uint32_t OldHash(const char* name) {
    std::uint32_t hash = 0;
    for (; *name != 0; ++name) {
        hash = (hash << 4) + static_cast<unsigned char>(*name);
        hash ^= (hash >> 24) & 0xF0;
        hash &= 0x0FFFFFFF;
    }
    return hash;
}

/// The dynamic tables of a loaded module.
class Tables {
public:
    explicit Tables(const link_map& module) : mModule(module) {}

    bool Has(const char* name) const {
        const auto* const symbols = Find<Symbol>(DT_SYMTAB);
        const auto* const names = Find<char>(DT_STRTAB);
        const auto* const versions = Find<std::uint16_t>(DT_VERSYM);
        if (symbols == nullptr || names == nullptr) return false;
        const auto isIt = [&](std::uint32_t index) {
            const Symbol& symbol = symbols[index];
            return IsExported(symbol, versions == nullptr ? VER_NDX_GLOBAL : versions[index]) &&
                   std::strcmp(names + symbol.st_name, name) == 0;
        };
        if (const auto* const hash = Find<std::uint32_t>(DT_GNU_HASH))
            return HasByGnuHash(hash, GnuHash(name), isIt);
        const auto* const hash = Find<std::uint32_t>(DT_HASH);
        return hash != nullptr && HasByOldHash(hash, OldHash(name), isIt);
    }

private:
    // The loader has relocated some of these addresses, and left others.
    template <class T>
    const T* Find(std::int64_t tag) const {
        for (const ElfW(Dyn)* entry = mModule.l_ld; entry->d_tag != DT_NULL; ++entry) {
            if (entry->d_tag != tag) continue;
            const std::uintptr_t address = entry->d_un.d_ptr;
            return reinterpret_cast<const T*>(address < mModule.l_addr ? address + mModule.l_addr : address);
        }
        return nullptr;
    }

    static bool IsExported(const Symbol& symbol, std::uint16_t version) {
        const unsigned char type = ELF64_ST_TYPE(symbol.st_info);
        const unsigned char binding = ELF64_ST_BIND(symbol.st_info);
        const unsigned char visibility = ELF64_ST_VISIBILITY(symbol.st_other);
        const unsigned char types[] = {STT_NOTYPE, STT_OBJECT, STT_FUNC, STT_COMMON, STT_TLS, STT_GNU_IFUNC};
        const bool hasValue = symbol.st_value != 0 || symbol.st_shndx == SHN_ABS || type == STT_TLS;
        // A hidden version is only for modules that were linked against it.
        constexpr std::uint16_t kOldVersion = 0x8000;
        return symbol.st_shndx != SHN_UNDEF && hasValue &&
               (binding == STB_GLOBAL || binding == STB_WEAK || binding == STB_GNU_UNIQUE) &&
               (visibility == STV_DEFAULT || visibility == STV_PROTECTED) &&
               std::find(std::begin(types), std::end(types), type) != std::end(types) &&
               ((version & kOldVersion) == 0 || (version & ~kOldVersion) <= VER_NDX_GLOBAL);
    }

    // buckets, first symbol, words of the filter, its shift; the filter; the buckets; the chains
    template <class Predicate>
    static bool HasByGnuHash(const std::uint32_t* table, std::uint32_t hash, Predicate isIt) {
        const std::uint32_t bucketCount = table[0];
        const std::uint32_t first = table[1];
        const auto* const filter = reinterpret_cast<const std::uintptr_t*>(table + 4);
        const auto* const buckets = reinterpret_cast<const std::uint32_t*>(filter + table[2]);
        if (bucketCount == 0) return false;
        std::uint32_t index = buckets[hash % bucketCount];
        if (index < first) return false;
        for (const std::uint32_t* chain = buckets + bucketCount - first;; ++index) {
            if ((chain[index] | 1) == (hash | 1) && isIt(index)) return true;
            if ((chain[index] & 1) != 0) return false;  // the end of the chain
        }
    }

    // buckets, symbols; the buckets; the chains
    template <class Predicate>
    static bool HasByOldHash(const std::uint32_t* table, std::uint32_t hash, Predicate isIt) {
        const std::uint32_t bucketCount = table[0];
        if (bucketCount == 0) return false;
        const std::uint32_t* const chain = table + 2 + bucketCount;
        for (std::uint32_t index = table[2 + hash % bucketCount]; index != STN_UNDEF; index = chain[index])
            if (isIt(index)) return true;
        return false;
    }

    const link_map& mModule;
};

}  // namespace

bool Exports(const link_map& module, const char* name) {
    return Tables(module).Has(name);
}

}  // namespace ZBase::os
