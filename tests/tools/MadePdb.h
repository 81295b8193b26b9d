#pragma once

#include <cstdint>
#include <cstring>
#include <string>
#include <utility>
#include <vector>

namespace test {

/// Octets that grow by numbers, texts and other octets.
class MadeOctets {
public:
    template <class T>
    MadeOctets& Number(T number) {
        char octets[sizeof number];
        std::memcpy(octets, &number, sizeof number);
        mContent.append(octets, sizeof number);
        return *this;
    }
    MadeOctets& Zeros(std::size_t count) {
        mContent.append(count, '\0');
        return *this;
    }
    /// With a zero behind.
    MadeOctets& Text(const std::string& text) { return Content(text).Zeros(1); }
    MadeOctets& Content(const std::string& octets) {
        mContent += octets;
        return *this;
    }
    MadeOctets& Align() { return Zeros((4 - mContent.size() % 4) % 4); }
    const std::string& operator*() const { return mContent; }

private:
    std::string mContent;
};

/// A PDB file with one module, whose functions and lines are added. Its blocks have 512 octets and stand in
/// the order opposite to that of the streams.
struct MadePdb {
    std::string guid = "0123456789ABCDEF";
    std::uint32_t age = 1;
    std::size_t times = 1;                     // that the module is listed
    std::string files = std::string("\0", 1);  // texts, each with a zero behind
    MadeOctets fileTable;                      // the module's
    MadeOctets symbols;                        // the module's
    MadeOctets lines;                          // of the module, in parts
    MadeOctets publics;

    /// The place of a file in the module's table.
    std::uint32_t File(const std::string& name) {
        const auto place = static_cast<std::uint32_t>((*fileTable).size());
        fileTable.Number(static_cast<std::uint32_t>(files.size())).Zeros(2).Align();
        files += name + '\0';
        return place;
    }

    void Function(std::uint16_t kind, std::uint16_t section, std::uint32_t offset, std::uint32_t size,
                  const std::string& name) {
        MadeOctets record;
        record.Number(kind)
            .Zeros(12)
            .Number(size)
            .Zeros(12)
            .Number(offset)
            .Number(section)
            .Zeros(1)
            .Text(name)
            .Align();
        Record(symbols, *record);
    }

    void Public(std::uint32_t flags, std::uint16_t section, std::uint32_t offset, const std::string& name) {
        MadeOctets record;
        record.Number(std::uint16_t{0x110E}).Number(flags).Number(offset).Number(section).Text(name).Align();
        Record(publics, *record);
    }

    /// Lines of one file, as offsets in the range of code and numbers.
    struct Block {
        std::uint32_t file;
        std::vector<std::pair<std::uint32_t, std::uint32_t>> lines;
    };

    void Lines(std::uint16_t section, std::uint32_t offset, std::uint32_t size,
               const std::vector<Block>& blocks) {
        MadeOctets part;
        part.Number(offset).Number(section).Number(std::uint16_t{0}).Number(size);
        for (const Block& block : blocks) {
            const auto count = static_cast<std::uint32_t>(block.lines.size());
            part.Number(block.file).Number(count).Number(12 + count * 8);
            for (const auto& [place, number] : block.lines) part.Number(place).Number(number | 0x80000000u);
        }
        Part(0xF2, *part);
    }

    /// What follows the module's symbols, of this kind.
    void Part(std::uint32_t kind, const std::string& part) {
        lines.Number(kind).Number(static_cast<std::uint32_t>(part.size())).Content(part).Align();
    }

    std::string Content() const {
        MadeOctets parts = lines;
        parts.Number(0xF4u).Number(static_cast<std::uint32_t>((*fileTable).size())).Content(*fileTable);
        MadeOctets module;
        module.Number(4u).Content(*symbols).Content(*parts);

        MadeOctets information;
        information.Number(20000404u).Number(0u).Number(1u).Content(guid);
        information.Number(13u).Text("other").Text("/names");
        information.Number(2u).Number(8u).Number(1u).Number(3u).Number(1u).Number(0u);
        information.Number(0u).Number(9u).Number(6u).Number(4u);

        MadeOctets modules;
        modules.Number(-1).Number(19990903u).Number(age).Zeros(8).Number(std::uint16_t{5}).Zeros(2);
        MadeOctets entry;
        entry.Zeros(34).Number(std::uint16_t{6});
        entry.Number(static_cast<std::uint32_t>(4 + (*symbols).size())).Number(0u);
        entry.Number(static_cast<std::uint32_t>((*parts).size()))
            .Zeros(16)
            .Text("a.obj")
            .Text("a.lib")
            .Align();
        MadeOctets without;  // a module without a stream
        without.Zeros(34).Number(std::uint16_t{0xFFFF}).Zeros(28).Text("*").Text("").Align();
        modules.Number(static_cast<std::uint32_t>((*without).size() + times * (*entry).size()));
        modules.Zeros(64 - (*modules).size()).Content(*without);
        for (std::size_t i = 0; i != times; ++i) modules.Content(*entry);

        MadeOctets names;
        names.Number(0xEFFEEFFEu).Number(1u).Number(static_cast<std::uint32_t>(files.size())).Content(files);
        return OfStreams({"", *information, "", *modules, *names, *publics, *module});
    }

    static std::string OfStreams(const std::vector<std::string>& streams) {
        constexpr std::size_t kBlock = 512;
        const auto blocks = [](std::size_t size) { return (size + kBlock - 1) / kBlock; };
        std::size_t total = 0;
        for (const std::string& stream : streams) total += blocks(stream.size());
        MadeOctets directory;
        directory.Number(static_cast<std::uint32_t>(streams.size()));
        for (const std::string& stream : streams) directory.Number(static_cast<std::uint32_t>(stream.size()));
        // The header, the list of the directory's blocks, then the blocks from the last to the first.
        std::string content(kBlock * (2 + total), '\0');
        std::size_t next = 1 + total;
        for (const std::string& stream : streams) {
            for (std::size_t at = 0; at < stream.size(); at += kBlock) {
                directory.Number(static_cast<std::uint32_t>(next));
                const std::string part = stream.substr(at, kBlock);
                content.replace(next-- * kBlock, part.size(), part);
            }
        }
        MadeOctets list;
        for (std::size_t i = 0; i != blocks((*directory).size()); ++i)
            list.Number(static_cast<std::uint32_t>(2 + total + i));
        MadeOctets header;
        header.Content(
            std::string("Microsoft C/C++ MSF 7.00\r\n\x1A"
                        "DS\0\0\0",
                        32));
        header.Number(static_cast<std::uint32_t>(kBlock)).Number(1u).Number(0u);
        header.Number(static_cast<std::uint32_t>((*directory).size())).Number(0u).Number(1u);
        content.replace(0, (*header).size(), *header);
        content.replace(kBlock, (*list).size(), *list);
        return content + *directory +
               std::string(blocks((*directory).size()) * kBlock - (*directory).size(), '\0');
    }

private:
    static void Record(MadeOctets& records, const std::string& record) {
        records.Number(static_cast<std::uint16_t>(record.size())).Content(record);
    }
};

}  // namespace test
