#include "DumpedModules.h"
#include "tools/zbase/terminal/Console.h"

#include <cstring>
#include <vector>

namespace {

// Minidumps, as far as modules need them.
constexpr std::uint32_t kMagic = 0x504D444D;
constexpr std::size_t kPlaceOfCount = 8;
constexpr std::size_t kPlaceOfDirectory = 12;
constexpr std::size_t kEntrySize = 12;
constexpr std::uint32_t kModuleStream = 4;
constexpr std::uint32_t kSystemStream = 7;
constexpr std::size_t kPlaceOfSystem = 20;  // in its stream
constexpr std::uint32_t kWindows = 2;
constexpr std::size_t kModuleSize = 108;
constexpr std::size_t kPlaceOfSize = 8;  // these in a module
constexpr std::size_t kPlaceOfStamp = 16;
constexpr std::size_t kPlaceOfName = 20;
constexpr std::size_t kPlaceOfIdentifier = 76;
constexpr char kIdentifierMagic[] = "RSDS";
constexpr std::size_t kLongestName = 0x10000;

std::uint32_t NumberAt(const std::string& dump, std::size_t at) {
    std::uint32_t number = 0;
    if (at <= dump.size() && dump.size() - at >= sizeof number)
        std::memcpy(&number, dump.data() + at, sizeof number);
    return number;
}

// The place of a stream; 0 if there is none.
std::size_t StreamOf(const std::string& dump, std::uint32_t type, std::size_t& size) {
    constexpr std::uint32_t most = 256;
    if (NumberAt(dump, 0) != kMagic) return 0;
    const std::size_t directory = NumberAt(dump, kPlaceOfDirectory);
    for (std::uint32_t i = 0; i < NumberAt(dump, kPlaceOfCount) && i != most; ++i) {
        const std::size_t entry = directory + i * kEntrySize;
        if (NumberAt(dump, entry) != type) continue;
        size = NumberAt(dump, entry + 4);
        const std::size_t place = NumberAt(dump, entry + 8);
        return place <= dump.size() && dump.size() - place >= size ? place : 0;
    }
    return 0;
}

// Where the modules stand; none if it is another system's dump.
std::vector<std::size_t> ModulesIn(const std::string& dump) {
    std::vector<std::size_t> modules;
    std::size_t size = 0;
    const std::size_t system = StreamOf(dump, kSystemStream, size);
    if (system == 0 || NumberAt(dump, system + kPlaceOfSystem) != kWindows) return modules;
    const std::size_t stream = StreamOf(dump, kModuleStream, size);
    const std::size_t count = stream == 0 ? 0 : NumberAt(dump, stream);
    for (std::size_t i = 0; i != count && size >= 4 + (i + 1) * kModuleSize; ++i)
        modules.push_back(stream + 4 + i * kModuleSize);
    return modules;
}

std::string NameOf(const std::string& dump, std::size_t module) {
    const std::size_t at = NumberAt(dump, module + kPlaceOfName);
    const std::size_t octets = NumberAt(dump, at);
    if (octets > kLongestName || dump.size() < octets || dump.size() - octets < at + 4) return "";
    ZBase::WideString text(octets / 2, 0);
    std::memcpy(text.data(), &dump[at + 4], octets / 2 * 2);
    return Narrow(text.c_str());
}

void PutNumber(std::string& text, std::uint32_t number) {
    text.append(reinterpret_cast<const char*>(&number), sizeof number);
}

}  // namespace

std::map<std::string, ImageIdentity> ImagesInDump(const std::string& dump) {
    std::map<std::string, ImageIdentity> images;
    for (const std::size_t module : ModulesIn(dump))
        images[NameOf(dump, module)] = {NumberAt(dump, module + kPlaceOfStamp),
                                        NumberAt(dump, module + kPlaceOfSize)};
    return images;
}

// An identifier is a magic, a GUID, an age and the name of a file.
std::string WithModuleIdentifiers(std::string dump) {
    for (const std::size_t module : ModulesIn(dump)) {
        if (NumberAt(dump, module + kPlaceOfIdentifier) != 0) continue;
        const std::string path = NameOf(dump, module);
        std::string record = kIdentifierMagic;
        PutNumber(record, NumberAt(dump, module + kPlaceOfStamp));
        record.append(12, '\0');
        PutNumber(record, NumberAt(dump, module + kPlaceOfSize));
        record.append(path, path.find_last_of("\\/") + 1).push_back('\0');
        std::string place;
        PutNumber(place, static_cast<std::uint32_t>(record.size()));
        PutNumber(place, static_cast<std::uint32_t>(dump.size()));
        dump.replace(module + kPlaceOfIdentifier, place.size(), place);
        dump += record;
    }
    return dump;
}
