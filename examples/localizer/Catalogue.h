#pragma once

#include <cstdint>
#include <map>
#include <string>
#include <string_view>

/// The texts of one language from a file made by `msgfmt` (GNU gettext, "The Format of GNU MO Files"): a
/// header, a table of texts and one of their translations, each with length and offset, and the texts. The
/// encoding has to be UTF-8.
class Catalogue {
public:
    /// Throws a `ZBase::Message` when the file can't be read or is not of this format.
    explicit Catalogue(const std::string& file);

    /// The translation, or null. Valid as long as the catalogue.
    const char* Find(std::string_view text) const;

private:
    std::uint32_t Number(std::size_t offset) const;
    std::string_view Text(std::size_t entry) const;

    std::string mContent;
    std::map<std::string_view, const char*> mTexts;  // into the content
};
