#include <TestPlaces.h>
#include <elf.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <cstdint>
#include <cstring>
#include <fstream>
#include <iterator>
#include <string>
#include <string_view>
#include <vector>

#include "tests/support/Sanitizers.h"

// What the library runs by itself at load, read off its file. The order of Load.cpp is the whole order only
// if nothing else has a constructor.

namespace {

/// A shared library with its own table of symbols.
class LibraryFile {
public:
    explicit LibraryFile(const char* path) {
        std::ifstream file(path, std::ios::binary);
        mOctets.assign(std::istreambuf_iterator<char>(file), {});
        if (mOctets.size() < sizeof(Elf64_Ehdr) || mOctets.compare(0, SELFMAG, ELFMAG) != 0) return;
        const auto header = At<Elf64_Ehdr>(0);
        for (std::size_t i = 0; i != header.e_shnum; ++i)
            mSections.push_back(At<Elf64_Shdr>(header.e_shoff + i * header.e_shentsize));
        for (const Elf64_Shdr& section : mSections) {
            if (section.sh_type == SHT_RELA) Add(section, mRelocations);
            if (section.sh_type != SHT_SYMTAB) continue;
            Add(section, mSymbols);
            mNames = mSections.at(section.sh_link).sh_offset;
        }
    }

    bool HasSymbols() const { return !mSymbols.empty(); }

    /// The names of the functions in the array of constructors, in the order of their calls.
    std::vector<std::string> Constructors() const {
        std::vector<std::string> names;
        for (const Elf64_Shdr& section : mSections) {
            if (section.sh_type != SHT_INIT_ARRAY && section.sh_type != SHT_PREINIT_ARRAY) continue;
            for (std::uint64_t at = 0; at < section.sh_size; at += sizeof(std::uint64_t))
                names.push_back(FunctionAt(Word(section, at)));
        }
        return names;
    }

    /// The names of all functions that are defined here.
    std::vector<std::string> Functions() const {
        std::vector<std::string> names;
        for (const Elf64_Sym& symbol : mSymbols) {
            if (IsFunction(symbol)) names.push_back(NameOf(symbol));
        }
        return names;
    }

private:
    template <class Record>
    Record At(std::uint64_t offset) const {
        Record record;
        std::memcpy(&record, mOctets.substr(offset, sizeof record).data(), sizeof record);
        return record;
    }

    template <class Record>
    void Add(const Elf64_Shdr& section, std::vector<Record>& records) const {
        for (std::uint64_t at = 0; at != section.sh_size; at += sizeof(Record))
            records.push_back(At<Record>(section.sh_offset + at));
    }

    // As the loader leaves it.
    std::uint64_t Word(const Elf64_Shdr& section, std::uint64_t at) const {
        for (const Elf64_Rela& relocation : mRelocations) {
            if (relocation.r_offset == section.sh_addr + at)
                return static_cast<std::uint64_t>(relocation.r_addend);
        }
        return At<std::uint64_t>(section.sh_offset + at);
    }

    static bool IsFunction(const Elf64_Sym& symbol) {
        return ELF64_ST_TYPE(symbol.st_info) == STT_FUNC && symbol.st_shndx != SHN_UNDEF;
    }

    std::string NameOf(const Elf64_Sym& symbol) const { return mOctets.c_str() + mNames + symbol.st_name; }

    std::string FunctionAt(std::uint64_t address) const {
        for (const Elf64_Sym& symbol : mSymbols) {
            if (IsFunction(symbol) && symbol.st_value == address) return NameOf(symbol);
        }
        return "?";
    }

    std::string mOctets;
    std::vector<Elf64_Shdr> mSections;
    std::vector<Elf64_Rela> mRelocations;
    std::vector<Elf64_Sym> mSymbols;
    std::uint64_t mNames = 0;
};

class LoadConstructors : public testing::Test {
protected:
    void SetUp() override {
        if (test::kIsSanitized) GTEST_SKIP() << "a sanitizer has constructors in each source";
        if (!mLibrary.HasSymbols()) GTEST_SKIP() << "no shared library with symbols";
    }

    const LibraryFile mLibrary{ZBASE_LIBRARY};
};

TEST_F(LoadConstructors, ThereIsOneAndItIsThatOfLoad) {
    std::vector<std::string> names = mLibrary.Constructors();
    for (const char* compilersOwn : {"frame_dummy", "__cpu_indicator_init"}) std::erase(names, compilersOwn);
    EXPECT_EQ(names, std::vector<std::string>{"_GLOBAL__sub_I_Load.cpp"});
}

// They would run at the first use of any variable of their source, on each thread.
TEST_F(LoadConstructors, NoThreadHasAny) {
    for (const std::string& name : mLibrary.Functions())
        EXPECT_FALSE(name == "__tls_init" || name.starts_with("_ZTH")) << name;
}

}  // namespace
