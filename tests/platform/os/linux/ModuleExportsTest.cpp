#include <Base/platform/os/linux/modules/ModuleExports.h>

#include <elf.h>
#include <gtest/gtest.h>
#include <link.h>

#include <cstdint>
#include <ostream>
#include <utility>
#include <vector>

namespace {

using Symbol = ElfW(Sym);
using Table = std::vector<std::uint32_t>;

// The hash of a name is 5381 * 33 + its one letter, with its lowest bit set where its chain ends.
constexpr std::uint32_t kHashOfA = 177'670;
constexpr std::uint32_t kHashOfC = 177'672;

/// A module of two symbols, "c" and "a", which are functions that it exports.
struct Module {
    bool Exports(const char* name) {
        entries.push_back({DT_NULL, {0}});
        link_map module{};
        module.l_ld = entries.data();
        module.l_addr = bias;
        const bool isThere = ZBase::os::Exports(module, name);
        entries.pop_back();
        return isThere;
    }

    void Add(std::int64_t tag, const void* table) {
        entries.push_back({tag, {reinterpret_cast<std::uintptr_t>(table) - bias}});
    }

    void AddAllBut(std::int64_t tag) {
        if (tag != DT_SYMTAB) Add(DT_SYMTAB, symbols);
        if (tag != DT_STRTAB) Add(DT_STRTAB, names);
        if (tag != DT_VERSYM) Add(DT_VERSYM, versions);
        if (tag != DT_GNU_HASH) Add(DT_GNU_HASH, byHash);
    }

    static constexpr Symbol Function(std::uint32_t name) {
        Symbol symbol{};
        symbol.st_name = name;
        symbol.st_info = ELF64_ST_INFO(STB_GLOBAL, STT_FUNC);
        symbol.st_shndx = 1;
        symbol.st_value = 16;
        return symbol;
    }

    std::uintptr_t bias = 0;
    const char names[5] = {0, 'c', 0, 'a', 0};
    // Buckets, the first symbol, words of the filter, its shift; the filter's one word; the bucket; the
    // chain.
    const std::uint32_t byHash[9] = {1, 1, 1, 0, 0, 0, 1, kHashOfC, kHashOfA | 1};
    // Buckets, symbols; the bucket; the chain, which ends with 0.
    const std::uint32_t byOlderHash[6] = {1, 3, 1, 0, 2, 0};
    Symbol symbols[3] = {{}, Function(1), Function(3)};
    std::uint16_t versions[3] = {0, 2, 2};
    std::vector<ElfW(Dyn)> entries;
};

TEST(ModuleExports, AreFoundByEitherHash) {
    for (const std::int64_t tag : std::vector<std::int64_t>{DT_GNU_HASH, DT_HASH}) {
        Module module;
        module.AddAllBut(DT_GNU_HASH);
        module.Add(tag, tag == DT_HASH ? module.byOlderHash : module.byHash);
        EXPECT_TRUE(module.Exports("a")) << tag;
        EXPECT_TRUE(module.Exports("c")) << tag;
        EXPECT_FALSE(module.Exports("d")) << tag;  // whose hash is that of "c" but for the lowest bit
        EXPECT_FALSE(module.Exports("aa")) << tag;
        EXPECT_FALSE(module.Exports("")) << tag;
    }
}

TEST(ModuleExports, NamesHaveTheirHashes) {
    constexpr struct {
        const char* name;
        std::uint32_t hash, older;
    } kRows[] = {{"\0exit", 0x7C967E3F, 0x0006CF04},
                 {"\0printf", 0x156B2BB8, 0x077905A6},
                 {"\0syscall", 0xBAC212A0, 0x0B09985C}};
    constexpr std::uint32_t kBuckets = 61;
    for (const auto& row : kRows) {
        Table older(2 + kBuckets + 3);
        older[0] = kBuckets;
        older[2 + row.older % kBuckets] = 1;
        const Table byHash = {1, 1, 1, 0, 0, 0, 1, row.hash | 1};
        for (const auto& [tag, table] :
             {std::pair<std::int64_t, const Table*>(DT_HASH, &older), {DT_GNU_HASH, &byHash}}) {
            Module module;
            module.Add(DT_SYMTAB, module.symbols);
            module.Add(DT_STRTAB, row.name);
            module.Add(tag, table->data());
            EXPECT_TRUE(module.Exports(row.name + 1)) << row.name + 1;
        }
    }
}

TEST(ModuleExports, AreNoneWithoutTheirTables) {
    for (const std::int64_t tag : std::vector<std::int64_t>{DT_SYMTAB, DT_STRTAB, DT_GNU_HASH}) {
        Module module;
        module.AddAllBut(tag);
        EXPECT_FALSE(module.Exports("a")) << tag;
    }
    Module module;
    module.AddAllBut(DT_VERSYM);
    EXPECT_TRUE(module.Exports("a"));
}

TEST(ModuleExports, AreNoneInEmptyTables) {
    const struct {
        const char* what;
        std::int64_t tag;
        Table table;
    } rows[] = {
        {"no bucket", DT_GNU_HASH, {0, 1, 1, 0, 0, 0}},
        {"a bucket without symbols", DT_GNU_HASH, {1, 1, 1, 0, 0, 0, 0, kHashOfC, kHashOfA | 1}},
        {"no older bucket", DT_HASH, {0, 0}},
        {"an older bucket without symbols", DT_HASH, {1, 3, 0, 0, 2, 0}},
    };
    for (const auto& row : rows) {
        Module module;
        module.AddAllBut(DT_GNU_HASH);
        module.Add(row.tag, row.table.data());
        EXPECT_FALSE(module.Exports("a")) << row.what;
    }
}

// The loader adds the place of the module to some of the addresses only.
TEST(ModuleExports, AreFoundByAddressesRelativeToTheModule) {
    Module module;
    module.bias = reinterpret_cast<std::uintptr_t>(&module);
    module.AddAllBut(0);
    EXPECT_TRUE(module.Exports("a"));
}

struct Row {
    const char* what;
    bool isExported;
    unsigned char binding = STB_GLOBAL;
    unsigned char type = STT_FUNC;
    unsigned char visibility = STV_DEFAULT;
    std::uint16_t section = 1;
    std::uint64_t value = 16;
    std::uint16_t version = 2;
};

std::ostream& operator<<(std::ostream& stream, const Row& row) {
    return stream << row.what;
}

class ModuleExportsOfAKind : public testing::TestWithParam<Row> {};

TEST_P(ModuleExportsOfAKind, AreThoseThatOtherModulesMayUse) {
    const Row& row = GetParam();
    Module module;
    module.AddAllBut(0);
    Symbol& symbol = module.symbols[2];
    symbol.st_info = static_cast<unsigned char>(ELF64_ST_INFO(row.binding, row.type));
    symbol.st_other = row.visibility;
    symbol.st_shndx = row.section;
    symbol.st_value = row.value;
    module.versions[2] = row.version;
    EXPECT_EQ(module.Exports("a"), row.isExported);
}

INSTANTIATE_TEST_SUITE_P(Rows, ModuleExportsOfAKind,
                         testing::ValuesIn(std::vector<Row>{
                             {.what = "a function", .isExported = true},
                             {.what = "weak", .isExported = true, .binding = STB_WEAK},
                             {.what = "unique", .isExported = true, .binding = STB_GNU_UNIQUE},
                             {.what = "local", .isExported = false, .binding = STB_LOCAL},
                             {.what = "of no type", .isExported = true, .type = STT_NOTYPE},
                             {.what = "data", .isExported = true, .type = STT_OBJECT},
                             {.what = "common data", .isExported = true, .type = STT_COMMON},
                             {.what = "chosen by a function", .isExported = true, .type = STT_GNU_IFUNC},
                             {.what = "a section", .isExported = false, .type = STT_SECTION},
                             {.what = "a file", .isExported = false, .type = STT_FILE},
                             {.what = "protected", .isExported = true, .visibility = STV_PROTECTED},
                             {.what = "hidden", .isExported = false, .visibility = STV_HIDDEN},
                             {.what = "internal", .isExported = false, .visibility = STV_INTERNAL},
                             {.what = "of another module", .isExported = false, .section = SHN_UNDEF},
                             {.what = "without a value", .isExported = false, .value = 0},
                             {.what = "a value of 0", .isExported = true, .section = SHN_ABS, .value = 0},
                             {.what = "each thread's first", .isExported = true, .type = STT_TLS, .value = 0},
                             {.what = "local by its version", .isExported = true, .version = 0x8001},
                             {.what = "of an older version", .isExported = false, .version = 0x8002},
                         }));

}  // namespace
