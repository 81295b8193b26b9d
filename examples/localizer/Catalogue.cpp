#include "Catalogue.h"

#include <Base/ZBase.h>

#include <cerrno>
#include <cstring>
#include <fstream>
#include <iterator>
#include <stdexcept>

namespace {

constexpr std::uint32_t kMagic = 0x950412DE;  // in this machine's byte order
constexpr int kNoCatalogue = 301;

// Offsets in the header, and the size of a table entry; in octets.
constexpr std::size_t kRevision = 4;
constexpr std::size_t kCount = 8;
constexpr std::size_t kTexts = 12;
constexpr std::size_t kTranslations = 16;
constexpr std::size_t kEntry = 8;

std::string ReadAll(const std::string& file) {
    std::ifstream stream(file, std::ios::binary);
    std::string content(std::istreambuf_iterator<char>(stream), {});
    if (!stream) throw std::runtime_error("it can't be read");
    return content;
}

}  // namespace

Catalogue::Catalogue(const std::string& file) {
    try {
        mContent = ReadAll(file);
        if (Number(0) != kMagic || Number(kRevision) >> 16 > 1)
            throw std::runtime_error("it is of no format known");
        const std::uint32_t count = Number(kCount);
        for (std::uint32_t i = 0; i != count; ++i) {
            const std::string_view text = Text(Number(kTexts) + i * kEntry);
            mTexts[text] = Text(Number(kTranslations) + i * kEntry).data();
        }
    } catch (const std::exception&) {
        ZBase::Message failure = ZBase::MessageOfCurrentException();
        failure.WrapBy(ZBase::MESSAGE_DOMAIN_SERVER, kNoCatalogue, "The catalogue %1 can't be used.") << file;
        throw failure;
    }
}

const char* Catalogue::Find(std::string_view text) const {
    const auto found = mTexts.find(text);
    return found == mTexts.end() || *found->second == 0 ? nullptr : found->second;
}

std::uint32_t Catalogue::Number(std::size_t offset) const {
    std::uint32_t number;
    if (offset > mContent.size() || mContent.size() - offset < sizeof number)
        throw std::runtime_error("it is cut off");
    std::memcpy(&number, mContent.data() + offset, sizeof number);
    return number;
}

// Each text is followed by a zero that its length does not count.
std::string_view Catalogue::Text(std::size_t entry) const {
    const std::size_t length = Number(entry);
    const std::size_t offset = Number(entry + 4);
    if (offset > mContent.size() || mContent.size() - offset <= length || mContent[offset + length] != 0)
        throw std::runtime_error("a text is cut off");
    return {mContent.data() + offset, length};
}
