// From an address to the rules of its frame. The dynamic linker gives, without a lock, the module of the
// address and the address of its search table (.eh_frame_hdr); the table leads to the description of the
// function (FDE), and that to the shared part (CIE). Both have a small program whose operations advance
// through the function's code and change the rules; it is run up to the address.

#include <dlfcn.h>
#include <link.h>
#include <algorithm>
#include <cstring>

#include <Base/platform/os/linux/stacks/unwind/DwarfReader.h>
#include <Base/platform/os/linux/stacks/unwind/UnwindTables.h>

// In the compiler's run-time library; not every one has it.
extern "C" [[gnu::weak]] const void* _Unwind_Find_FDE(void* address, void* bases);

namespace ZBase::os {

namespace {

namespace cfa = dwarf::cfa;

constexpr unsigned int kRememberedRows = 4;

struct Description {
    std::uint64_t start;
    std::uint64_t size;
    std::uint64_t codeAlignment;
    std::int64_t dataAlignment;
    std::uint64_t returnRegister;
    std::uint8_t encoding;
    bool hasAugmentationSize;
    bool isSignalFrame;
    Expression common;   // the program of the CIE
    Expression program;  // that of the FDE
};

// The search table in the one form that linkers write: the address of .eh_frame, the number of entries, and
// pairs of function start and FDE, sorted, each relative to the table.
constexpr std::uint32_t kTableForm = 1 | (dwarf::pointer::Pcrel | dwarf::pointer::Sdata4) << 8 |
                                     dwarf::pointer::Udata4 << 16 |
                                     (dwarf::pointer::Datarel | dwarf::pointer::Sdata4) << 24;
struct TableHeader {
    std::uint32_t form;
    std::int32_t frames;
    std::uint32_t count;
};
struct TableEntry {
    std::int32_t function;
    std::int32_t description;
};

bool ParseCommon(const std::uint8_t* place, Description& description) {
    DwarfReader header(place, nullptr);
    std::uint64_t length = header.Fixed<std::uint32_t>();
    if (length == dwarf::kLongForm) length = header.Fixed<std::uint64_t>();
    const std::uint8_t* const end = header.Position() + length;
    DwarfReader reader(header.Position(), end);
    if (reader.Fixed<std::uint32_t>() != 0) return false;
    const std::uint8_t version = reader.Fixed<std::uint8_t>();
    if (version != 1 && version != 3) return false;
    const char* augmentation = reinterpret_cast<const char*>(reader.Position());
    reader.Move(static_cast<std::int64_t>(std::strlen(augmentation)) + 1);
    description.codeAlignment = reader.Unsigned();
    description.dataAlignment = reader.Signed();
    description.returnRegister = version == 1 ? reader.Fixed<std::uint8_t>() : reader.Unsigned();
    description.encoding = 0;
    description.isSignalFrame = false;
    description.hasAugmentationSize = *augmentation == 'z';
    if (!description.hasAugmentationSize && *augmentation != 0) return false;
    const std::uint8_t* program = reader.Position();
    if (description.hasAugmentationSize) {
        const Expression data = reader.Block();
        program = data.end;
        DwarfReader values(data.start, data.end);
        for (++augmentation; *augmentation != 0; ++augmentation) {
            std::uint64_t ignored = 0;
            if (*augmentation == 'R')
                description.encoding = values.Fixed<std::uint8_t>();
            else if (*augmentation == 'L')
                values.Move(1);
            else if (*augmentation == 'S')
                description.isSignalFrame = true;
            else if (*augmentation != 'P')
                break;
            else if (!values.Pointer(values.Fixed<std::uint8_t>() & ~dwarf::pointer::Indirect, ignored))
                return false;
        }
    }
    description.common = {program, end};
    return true;
}

bool ParseDescription(const std::uint8_t* place, Description& description) {
    DwarfReader header(place, nullptr);
    std::uint64_t length = header.Fixed<std::uint32_t>();
    if (length == dwarf::kLongForm) length = header.Fixed<std::uint64_t>();
    DwarfReader reader(header.Position(), header.Position() + length);
    const std::uint8_t* const end = header.Position() + length;
    const std::uint8_t* const field = reader.Position();
    const auto back = reader.Fixed<std::uint32_t>();
    if (back == 0 || !ParseCommon(field - back, description)) return false;
    if (!reader.Pointer(description.encoding, description.start)) return false;
    if (!reader.Pointer(description.encoding & dwarf::pointer::kForm, description.size)) return false;
    if (description.hasAugmentationSize) reader.Block();
    description.program = {reader.Position(), end};
    return true;
}

/// The last entry of the table that begins at or below `wanted`; false if none does.
bool FindEntry(const TableHeader& header, const TableEntry* entries, std::int64_t wanted,
               std::uint32_t& low) {
    if (header.count == 0 || wanted < entries[0].function) return false;
    low = 0;
    for (std::uint32_t high = header.count; high - low > 1;) {
        const std::uint32_t middle = low + (high - low) / 2;
        (entries[middle].function <= wanted ? low : high) = middle;
    }
    return true;
}

bool FindDescription(const UnwindModule& module, std::uint64_t address, Description& description) {
    TableHeader header;
    std::memcpy(&header, module.searchTable, sizeof header);
    if (header.form != kTableForm) return false;
    const auto* entries = reinterpret_cast<const TableEntry*>(module.searchTable + sizeof header);
    std::uint32_t low = 0;
    const auto base = reinterpret_cast<std::uint64_t>(module.searchTable);
    if (!FindEntry(header, entries, static_cast<std::int64_t>(address - base), low)) return false;
    return ParseDescription(module.searchTable + entries[low].description, description) &&
           address - description.start < description.size;
}

/// Runs the programs of a description up to an address.
class Interpreter {
public:
    Interpreter(const Description& description, std::uint64_t address, FrameRules& rules)
        : mDescription(description), mAddress(address), mRules(rules), mPlace(description.start) {}

    bool Run() {
        mpInitial = nullptr;
        if (!Execute(mDescription.common)) return false;
        const FrameRules initial = mRules;
        mpInitial = &initial;
        const bool isUnderstood = Execute(mDescription.program);
        mpInitial = nullptr;
        return isUnderstood;
    }

private:
    bool Execute(const Expression& program) {
        DwarfReader reader(program.start, program.end);
        while (!reader.AtEnd() && mPlace <= mAddress) {
            const std::uint8_t operation = reader.Fixed<std::uint8_t>();
            const std::uint64_t low = operation & cfa::kOperand;
            switch (operation & ~cfa::kOperand) {
                case cfa::AdvanceLoc:
                    Advance(low);
                    break;
                case cfa::Offset:
                    Set(low, RuleKind::Stored, Scaled(reader.Unsigned()));
                    break;
                case cfa::Restore:
                    Restore(low);
                    break;
                default:
                    if (!ExecuteExtended(operation, reader)) return false;
            }
        }
        return true;
    }

    bool ExecuteExtended(std::uint8_t operation, DwarfReader& reader) {
        switch (operation) {
            case cfa::Nop:
                return true;
            case cfa::SetLoc:
                return reader.Pointer(mDescription.encoding, mPlace);
            case cfa::AdvanceLoc1:
                Advance(reader.Fixed<std::uint8_t>());
                return true;
            case cfa::AdvanceLoc2:
                Advance(reader.Fixed<std::uint16_t>());
                return true;
            case cfa::AdvanceLoc4:
                Advance(reader.Fixed<std::uint32_t>());
                return true;
            case cfa::RestoreExtended:
                Restore(reader.Unsigned());
                return true;
            case cfa::Undefined:
                Set(reader.Unsigned(), RuleKind::Undefined, 0);
                return true;
            case cfa::SameValue:
                Set(reader.Unsigned(), RuleKind::Same, 0);
                return true;
            case cfa::RememberState:
                return Remember();
            case cfa::RestoreState:
                return RestoreRow();
            case cfa::GnuArgsSize:
                reader.Unsigned();
                return true;
            case cfa::DefCfa:
            case cfa::DefCfaSf:
            case cfa::DefCfaRegister:
            case cfa::DefCfaOffset:
            case cfa::DefCfaOffsetSf:
            case cfa::DefCfaExpression:
                DefineCfa(operation, reader);
                return true;
            default:
                return SetRegister(operation, reader);
        }
    }

    bool SetRegister(std::uint8_t operation, DwarfReader& reader) {
        const std::uint64_t number = reader.Unsigned();
        switch (operation) {
            case cfa::OffsetExtended:
                Set(number, RuleKind::Stored, Scaled(reader.Unsigned()));
                return true;
            case cfa::OffsetExtendedSf:
                Set(number, RuleKind::Stored, reader.Signed() * mDescription.dataAlignment);
                return true;
            case cfa::GnuNegativeOffsetExtended:
                Set(number, RuleKind::Stored, -Scaled(reader.Unsigned()));
                return true;
            case cfa::ValOffset:
                Set(number, RuleKind::Offset, Scaled(reader.Unsigned()));
                return true;
            case cfa::ValOffsetSf:
                Set(number, RuleKind::Offset, reader.Signed() * mDescription.dataAlignment);
                return true;
            case cfa::Register:
                Set(number, RuleKind::Register, static_cast<std::int64_t>(reader.Unsigned()));
                return true;
            case cfa::Expression:
                Set(number, RuleKind::StoredAt, Place(reader));
                return true;
            case cfa::ValExpression:
                Set(number, RuleKind::Computed, Place(reader));
                return true;
            default:
                return false;
        }
    }

    void DefineCfa(std::uint8_t operation, DwarfReader& reader) {
        mRules.cfaIsExpression = operation == cfa::DefCfaExpression;
        if (operation == cfa::DefCfaExpression) mRules.cfaOffset = Place(reader);
        if (operation == cfa::DefCfa || operation == cfa::DefCfaSf || operation == cfa::DefCfaRegister)
            mRules.cfaRegister = reader.Unsigned();
        if (operation == cfa::DefCfa || operation == cfa::DefCfaOffset)
            mRules.cfaOffset = static_cast<std::int64_t>(reader.Unsigned());
        if (operation == cfa::DefCfaSf || operation == cfa::DefCfaOffsetSf)
            mRules.cfaOffset = reader.Signed() * mDescription.dataAlignment;
    }

    void Advance(std::uint64_t count) { mPlace += count * mDescription.codeAlignment; }

    std::int64_t Scaled(std::uint64_t offset) const {
        return static_cast<std::int64_t>(offset) * mDescription.dataAlignment;
    }

    // Rules of other registers, such as vector registers, are not needed.
    void Set(std::uint64_t number, RuleKind kind, std::int64_t value) {
        if (number >= kRegisters) return;
        mRules.kinds[number] = kind;
        mRules.values[number] = value;
    }

    void Restore(std::uint64_t number) {
        if (number >= kRegisters) return;
        Set(number, mpInitial == nullptr ? RuleKind::Same : mpInitial->kinds[number],
            mpInitial == nullptr ? 0 : mpInitial->values[number]);
    }

    /// The address of the expression at the reader, which is moved past it.
    static std::int64_t Place(DwarfReader& reader) {
        const auto place = reinterpret_cast<std::int64_t>(reader.Position());
        reader.Block();
        return place;
    }

    bool Remember() {
        if (mRemembered == kRememberedRows) return false;
        mRows[mRemembered++] = mRules;
        return true;
    }

    bool RestoreRow() {
        if (mRemembered == 0) return false;
        mRules = mRows[--mRemembered];
        return true;
    }

    const Description& mDescription;
    const std::uint64_t mAddress;
    FrameRules& mRules;
    std::uint64_t mPlace;
    const FrameRules* mpInitial = nullptr;
    FrameRules mRows[kRememberedRows];
    unsigned int mRemembered = 0;
};

std::uint64_t Mix(std::uint64_t hash, std::uint64_t value) {
    hash = (hash ^ value) * 0x9E3779B97F4A7C15;
    return hash ^ (hash >> 32);
}

/// A hash of the build id in a note segment, starting with `seed`; 0 if there is none.
std::uint64_t HashBuildId(const std::uint8_t* note, const std::uint8_t* end, std::uint64_t alignment,
                          std::uint64_t seed) {
    const auto aligned = [alignment](std::uint64_t size) {
        return (size + alignment - 1) & ~(alignment - 1);
    };
    ElfW(Nhdr) header;
    while (static_cast<std::uint64_t>(end - note) > sizeof header) {
        std::memcpy(&header, note, sizeof header);
        const std::uint64_t idAt = aligned(sizeof header + header.n_namesz);
        const std::uint64_t size = idAt + aligned(header.n_descsz);
        if (size > static_cast<std::uint64_t>(end - note)) break;
        if (header.n_type == NT_GNU_BUILD_ID && header.n_namesz == 4 &&
            std::memcmp(note + sizeof header, "GNU", 4) == 0) {
            for (std::uint64_t done = 0; done < header.n_descsz; done += sizeof(std::uint64_t)) {
                std::uint64_t piece = 0;
                std::memcpy(&piece, note + idAt + done, std::min(header.n_descsz - done, sizeof piece));
                seed = Mix(seed, piece);
            }
            return seed;
        }
        note += size;
    }
    return 0;
}

// After an unload another module may be mapped at the same address, even one whose tables look the same from
// outside. Their build ids differ. The program itself is never unloaded, so it needs none.
std::uint64_t Identity(const dl_find_object& object) {
    const auto* const start = static_cast<const std::uint8_t*>(object.dlfo_map_start);
    const std::uint64_t place = Mix(reinterpret_cast<std::uint64_t>(start), 1);
    if (*object.dlfo_link_map->l_name == 0) return place;
    ElfW(Ehdr) header;
    std::memcpy(&header, start, sizeof header);
    if (std::memcmp(header.e_ident, ELFMAG, SELFMAG) != 0) return 0;
    const auto* const segments = reinterpret_cast<const ElfW(Phdr)*>(start + header.e_phoff);
    for (unsigned int i = 0; i != header.e_phnum; ++i) {
        const ElfW(Phdr)& segment = segments[i];
        if (segment.p_type != PT_NOTE) continue;
        const auto* const notes =
            reinterpret_cast<const std::uint8_t*>(object.dlfo_link_map->l_addr + segment.p_vaddr);
        const std::uint64_t identity =
            HashBuildId(notes, notes + segment.p_memsz, segment.p_align == 8 ? 8 : 4, place);
        if (identity != 0) return identity;
    }
    return 0;
}

/// A hash of everything that determines a function's rules: its FDE and CIE; never 0.
std::uint64_t HashDescription(const std::uint8_t* place) {
    std::uint64_t hash = reinterpret_cast<std::uint64_t>(place);
    const std::uint8_t* parts[2] = {place, nullptr};
    for (const std::uint8_t*& part : parts) {
        std::uint32_t words[2];  // the length, and the distance to the CIE
        std::memcpy(words, part, sizeof words);
        if (words[0] == dwarf::kLongForm || words[0] < 4) return 0;
        const std::uint8_t* const end = part + 4 + words[0];
        for (const std::uint8_t* next = part; next < end;) {
            std::uint64_t piece = 0;
            const auto left = static_cast<std::size_t>(end - next);
            if (left >= sizeof piece)
                std::memcpy(&piece, next, sizeof piece);
            else
                std::memcpy(&piece, next, left >= 4 ? 4 : left);
            hash = Mix(hash, piece);
            next += left >= sizeof piece ? sizeof piece : left >= 4 ? 4 : left;
        }
        if (&part == &parts[0]) parts[1] = place + 4 - words[1];
    }
    return hash == 0 ? 1 : hash;
}

bool RulesAt(const Description& description, std::uint64_t address, FrameRules& rules) {
    if (description.returnRegister != kReturnAddress) return false;
    rules = {};
    rules.isSignalFrame = description.isSignalFrame;
    rules.functionStart = description.start;
    rules.functionEnd = description.start + description.size;
    return Interpreter(description, address, rules).Run();
}

}  // namespace

bool FindUnwindModule(std::uint64_t address, UnwindModule& module) {
    dl_find_object object;
    if (_dl_find_object(reinterpret_cast<void*>(address), &object) != 0 || object.dlfo_eh_frame == nullptr)
        return false;
    module = {reinterpret_cast<std::uint64_t>(object.dlfo_map_start),
              reinterpret_cast<std::uint64_t>(object.dlfo_map_end),
              static_cast<const std::uint8_t*>(object.dlfo_eh_frame), Identity(object)};
    return true;
}

bool FindFrameRules(const UnwindModule& module, std::uint64_t address, FrameRules& rules) {
    Description description;
    return FindDescription(module, address, description) && RulesAt(description, address, rules);
}

bool FindRegisteredRules(std::uint64_t address, FrameRules& rules) {
    if (_Unwind_Find_FDE == nullptr) return false;
    void* bases[3] = {};
    const void* const found = _Unwind_Find_FDE(reinterpret_cast<void*>(address), bases);
    Description description;
    return found != nullptr && ParseDescription(static_cast<const std::uint8_t*>(found), description) &&
           address - description.start < description.size && RulesAt(description, address, rules);
}

bool IsInRegistry(const UnwindModule& module) {
    const auto registry = reinterpret_cast<std::uint64_t>(_Unwind_Find_FDE);
    return registry - module.start < module.end - module.start;
}

std::uint64_t FindDescriptionHash(const UnwindModule& module, std::uint64_t address, std::uint32_t& index) {
    TableHeader header;
    std::memcpy(&header, module.searchTable, sizeof header);
    if (header.form != kTableForm) return 0;
    const auto* const entries = reinterpret_cast<const TableEntry*>(module.searchTable + sizeof header);
    const auto wanted =
        static_cast<std::int64_t>(address - reinterpret_cast<std::uint64_t>(module.searchTable));
    if (index == kNoIndex && !FindEntry(header, entries, wanted, index)) return 0;
    if (index >= header.count || entries[index].function > wanted) return 0;
    if (index + 1 != header.count && entries[index + 1].function <= wanted) return 0;
    return HashDescription(module.searchTable + entries[index].description);
}

}  // namespace ZBase::os
