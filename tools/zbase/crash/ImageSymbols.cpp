#include "ImageSymbols.h"
#include "ImageUnwinding.h"
#include "Octets.h"
#include "PdbSymbols.h"

#include <cxxabi.h>
#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <map>
#include <memory>
#include <set>
#include <string_view>
#include <vector>

// An image, "Portable Executable": a header, sections, a table of the functions with their unwind codes, a
// table of exports, and the symbols that GNU's linker leaves. Every place in it is checked, as any file may
// stand where a dump says that its module was.

namespace {

constexpr std::size_t kPlaceOfHeader = 0x3C;
constexpr std::uint32_t kHeaderMagic = 0x4550;  // "PE"
constexpr std::size_t kFileHeaderSize = 24;     // with its magic
constexpr std::uint16_t kWideImage = 0x20B;
constexpr std::size_t kSectionSize = 40;
constexpr std::uint16_t kMostSections = 96;  // that Windows loads
constexpr std::size_t kSymbolSize = 18;
constexpr std::uint16_t kFunctionType = 0x20;
constexpr std::size_t kExports = 0;  // places in the table of tables
constexpr std::size_t kExceptions = 3;
constexpr std::size_t kDebug = 6;

/// Names by their addresses in the image. All together have a bound, as in a damaged image many records may
/// share a long one.
class Names {
public:
    explicit Names(std::size_t mostOctets) : mLeft(mostOctets) {}

    void Set(std::uint32_t address, std::string_view name) {
        if (name.size() > mLeft) return;
        mLeft -= name.size();
        mNames[address] = name;
    }

    const std::string* FindOrNull(std::uint32_t address) const {
        const auto found = mNames.find(address);
        return found == mNames.end() ? nullptr : &found->second;
    }

private:
    std::size_t mLeft;
    std::map<std::uint32_t, std::string> mNames;
};

/// The parts of an image.
class Image {
public:
    explicit Image(const std::string& content) : mContent(content) {
        if (!content.starts_with("MZ")) return;
        const std::size_t header = Number<std::uint32_t>(kPlaceOfHeader);
        if (Number<std::uint32_t>(header) != kHeaderMagic) return;
        mOptional = header + kFileHeaderSize;
        mIsImage = Number<std::uint16_t>(mOptional) == kWideImage;
        mSections = mOptional + Number<std::uint16_t>(header + 20);
        mSectionCount = std::min(Number<std::uint16_t>(header + 6), kMostSections);
        mIdentity = {Number<std::uint32_t>(header + 8), Number<std::uint32_t>(mOptional + 56)};
        mSymbols = Number<std::uint32_t>(header + 12);
        mSymbolCount = Number<std::uint32_t>(header + 16);
    }

    bool IsImage() const { return mIsImage; }
    ImageIdentity Identity() const { return mIsImage ? mIdentity : ImageIdentity{}; }

    template <class T>
    T Number(std::size_t at) const {
        return mContent.Number<T>(at);
    }

    /// Where an address in the image stands in its file; the end if it does not.
    std::size_t PlaceOf(std::uint32_t address) const {
        for (std::size_t i = 0; i != mSectionCount; ++i) {
            const std::size_t section = mSections + i * kSectionSize;
            const auto start = Number<std::uint32_t>(section + 12);
            if (address < start || address - start >= Number<std::uint32_t>(section + 16)) continue;
            return std::size_t{Number<std::uint32_t>(section + 20)} + (address - start);
        }
        return mContent.Size();
    }

    /// Where a section, counted from 1, begins in memory; 0 if there is none.
    std::uint32_t SectionStart(std::uint16_t section) const {
        if (section == 0 || section > mSectionCount) return 0;
        return Number<std::uint32_t>(mSections + (section - std::size_t{1}) * kSectionSize + 12);
    }

    /// Where it tells of its PDB file: a mark, what identifies that, and its name; the end if it does not.
    std::size_t PlaceOfPdb() const {
        constexpr std::size_t kEntry = 28;
        constexpr std::uint32_t kSymbols = 2, kMark = 0x53445352;  // "RSDS"
        const std::size_t table = PlaceOf(TableAddress(kDebug));
        for (std::size_t at = table; at - table < TableSize(kDebug) && at < mContent.Size(); at += kEntry) {
            const std::size_t place = Number<std::uint32_t>(at + 24);
            if (Number<std::uint32_t>(at + 12) == kSymbols && Number<std::uint32_t>(place) == kMark)
                return place;
        }
        return mContent.Size();
    }

    PdbIdentity IdentityOfPdb() const {
        const std::size_t place = PlaceOfPdb();
        PdbIdentity identity{{}, Number<std::uint32_t>(place + 20)};
        mContent.Part(place + 4, identity.guid.size())
            .Content()
            .copy(identity.guid.data(), identity.guid.size());
        return identity;
    }

    std::string NameOfPdb() const { return std::string(mContent.Text(PlaceOfPdb() + 24, kLongestName)); }

    /// The functions with unwind codes, as the image has them.
    std::vector<ImageFunction> Functions() const {
        std::vector<ImageFunction> functions;
        const std::size_t table = PlaceOf(TableAddress(kExceptions));
        const std::size_t room = mContent.Part(table, mContent.Size()).Size();
        const std::size_t count = std::min<std::size_t>(TableSize(kExceptions), room) / sizeof(ImageFunction);
        for (std::size_t i = 0; i != count; ++i)
            functions.push_back(FunctionAt(table + i * sizeof(ImageFunction)));
        return functions;
    }

    ImageFunction FunctionAt(std::size_t at) const {
        return {Number<std::uint32_t>(at), Number<std::uint32_t>(at + 4), Number<std::uint32_t>(at + 8)};
    }

    /// The last one of an address is the one that stays.
    void AddFunctionNames(Names& names) const {
        AddExports(names);
        const std::size_t texts = mSymbols + std::size_t{mSymbolCount} * kSymbolSize;
        for (std::uint32_t i = 0; mSymbols != 0 && i < mSymbolCount; ++i) {
            const std::size_t at = mSymbols + std::size_t{i} * kSymbolSize;
            if (at > mContent.Size()) break;
            const auto section = Number<std::uint16_t>(at + 12);
            i += Number<std::uint8_t>(at + 17);  // further records of this symbol
            const std::uint32_t start = SectionStart(section);
            if (Number<std::uint16_t>(at + 14) != kFunctionType || start == 0) continue;
            const bool isLong = Number<std::uint32_t>(at) == 0;
            names.Set(start + Number<std::uint32_t>(at + 8),
                      isLong ? mContent.Text(texts + Number<std::uint32_t>(at + 4), kLongestName)
                             : mContent.Text(at, 8));
        }
    }

private:
    static constexpr std::size_t kLongestName = 4096;

    std::uint32_t TableAddress(std::size_t table) const {
        return table < Number<std::uint32_t>(mOptional + 108)
                   ? Number<std::uint32_t>(mOptional + 112 + table * 8)
                   : 0;
    }
    std::uint32_t TableSize(std::size_t table) const {
        return Number<std::uint32_t>(mOptional + 116 + table * 8);
    }

    void AddExports(Names& names) const {
        if (TableAddress(kExports) == 0) return;
        const std::size_t table = PlaceOf(TableAddress(kExports));
        const std::size_t addresses = PlaceOf(Number<std::uint32_t>(table + 28));
        const std::size_t texts = PlaceOf(Number<std::uint32_t>(table + 32));
        const std::size_t ordinals = PlaceOf(Number<std::uint32_t>(table + 36));
        const std::size_t count =
            std::min<std::size_t>(Number<std::uint32_t>(table + 24), mContent.Size() / 4);
        for (std::size_t i = 0; i != count; ++i) {
            const std::size_t ordinal = Number<std::uint16_t>(ordinals + i * 2);
            const auto address = Number<std::uint32_t>(addresses + ordinal * 4);
            names.Set(address, mContent.Text(PlaceOf(Number<std::uint32_t>(texts + i * 4)), kLongestName));
        }
    }

    Octets mContent;
    bool mIsImage = false;
    ImageIdentity mIdentity;
    std::size_t mOptional = 0;  // the second header
    std::size_t mSections = 0;
    std::size_t mSectionCount = 0;
    std::size_t mSymbols = 0;
    std::uint32_t mSymbolCount = 0;
};

std::string InOneLine(std::string text) {
    for (char& letter : text)
        if (static_cast<unsigned char>(letter) < ' ') letter = '?';
    return text;
}

std::string Demangled(const std::string& name) {
    int status = 0;
    const std::unique_ptr<char, decltype(&std::free)> text(
        abi::__cxa_demangle(name.c_str(), nullptr, nullptr, &status), std::free);
    return InOneLine(text == nullptr ? name : text.get());
}

std::string Hex(std::uint32_t number) {
    char digits[9];
    std::snprintf(digits, sizeof digits, "%x", number);
    return digits;
}

std::string FunctionLine(std::uint32_t start, std::uint32_t size, const std::string& name) {
    return "FUNC " + Hex(start) + " " + Hex(size) + " 0 " + name + "\n";
}

// The unwind codes at an address, those of the function that it continues before its own.
std::vector<UnwindCode> CodesAt(const Image& image, std::uint32_t address, UnwindFrame& frame) {
    constexpr int kMostLinks = 32;
    std::vector<UnwindCode> codes;
    for (int link = 0; link != kMostLinks; ++link) {
        const std::size_t at = image.PlaceOf(address);
        const unsigned int head = image.Number<std::uint8_t>(at);
        const std::size_t count = image.Number<std::uint8_t>(at + 2);
        const unsigned int fixed = image.Number<std::uint8_t>(at + 3);
        if ((fixed & 15) != 0) frame = {static_cast<std::uint8_t>(fixed & 15), (fixed >> 4) * 16};
        std::vector<std::uint16_t> slots;
        for (std::size_t i = 0; i != count; ++i) slots.push_back(image.Number<std::uint16_t>(at + 4 + i * 2));
        std::vector<UnwindCode> own = ReadUnwindCodes(slots);
        if (link != 0)  // all of them have run
            for (UnwindCode& code : own) code.offset = 0;
        codes.insert(codes.begin(), own.begin(), own.end());
        constexpr unsigned int kContinues = 4;
        if ((head >> 3 & kContinues) == 0) break;
        address = image.FunctionAt(at + 4 + (count + 1) / 2 * 4).codes;
    }
    return codes;
}

}  // namespace

ImageIdentity IdentityOfImage(const std::string& image) {
    return Image(image).Identity();
}

std::string PdbOfImage(const std::string& content) {
    const Image image(content);
    const std::string name = image.IsImage() ? image.NameOfPdb() : "";
    return name.substr(name.find_last_of("/\\:") + 1);
}

std::string SymbolsOfImage(const std::string& content, const std::string& pdb, const std::string& name,
                           const std::string& id) {
    const Image image(content);
    if (!image.IsImage()) return "";
    const PdbSymbols known = ReadPdb(pdb, image.IdentityOfPdb());
    std::string symbols = "MODULE windows x86_64 " + id + " " + name + "\n";
    for (std::size_t i = 0; i != known.files.size(); ++i)
        symbols += "FILE " + std::to_string(i) + " " + InOneLine(known.files[i]) + "\n";

    std::set<std::uint32_t> shown;
    for (const PdbFunction& function : known.functions) {
        const std::uint32_t start = image.SectionStart(function.section);
        if (start == 0 || !shown.insert(start + function.offset).second) continue;
        symbols += FunctionLine(start + function.offset, function.size, InOneLine(function.name));
        for (const PdbLine& line : function.lines)
            symbols += Hex(start + line.offset) + " " + Hex(line.size) + " " + std::to_string(line.number) +
                       " " + std::to_string(line.file) + "\n";
    }

    Names names(content.size() + pdb.size());
    for (const PdbName& function : known.names)
        if (const std::uint32_t start = image.SectionStart(function.section); start != 0)
            names.Set(start + function.offset, function.name);
    image.AddFunctionNames(names);
    std::string unwinding;
    for (const ImageFunction& function : image.Functions()) {
        if (function.end <= function.start) continue;
        const std::string* const named = names.FindOrNull(function.start);
        if (named != nullptr && !shown.contains(function.start))
            symbols += FunctionLine(function.start, function.end - function.start, Demangled(*named));
        UnwindFrame frame;
        const std::vector<UnwindCode> codes = CodesAt(image, function.codes, frame);
        unwinding += UnwindRules(function, codes, frame);
    }
    return symbols + unwinding;
}
