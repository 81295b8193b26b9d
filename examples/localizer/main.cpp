// One record, read in three languages: the template is the key of a catalogue, and the parameters are merged
// into its translation. A message without a translation stays English.
//
//   localizer DIRECTORY     with de.mo, fr.mo and ja.mo in it

#include <Base/ZBase.h>

#include "Catalogue.h"

#include <cstdio>
#include <map>
#include <string>
#include <utility>

namespace {

// Windows language ids.
constexpr unsigned short kGerman = 0x407;
constexpr unsigned short kFrench = 0x40C;
constexpr unsigned short kJapanese = 0x411;

class CatalogueLocalizer : public virtual ZBase::Message::Localizer {
public:
    explicit CatalogueLocalizer(const std::string& directory) {
        for (const auto& [language, name] : {std::pair{kGerman, "de"}, {kFrench, "fr"}, {kJapanese, "ja"}})
            mCatalogues.emplace(language, directory + "/" + name + ".mo");
    }

    ZBase::ReturnString LocalizeText(unsigned short language, unsigned short domain, int id,
                                     const char* textTemplate, const char* const* parameters) override {
        const auto catalogue = mCatalogues.find(language);
        if (catalogue != mCatalogues.end() && textTemplate != nullptr) {
            if (const char* const translation = catalogue->second.Find(textTemplate))
                return ZBase::MergeParametersIntoTemplate(translation, parameters);
        }
        return mEnglish.LocalizeText(language, domain, id, textTemplate, parameters);
    }

private:
    std::map<unsigned short, Catalogue> mCatalogues;  // only read, so any threads may localize
    ZBase::SimpleMessageLocalizer mEnglish;
};

ZBase::Message Failure() {
    ZBase::Message failure(ZBase::MESSAGE_DOMAIN_ERRNO, 2, nullptr);
    failure.WrapBy(ZBase::MESSAGE_DOMAIN_SERVER, 101, "Cannot open %1.") << "menu.txt";
    failure.WrapBy(ZBase::MESSAGE_DOMAIN_SERVER, 110, "%1 of %2 tables could not be laid in %3.")
        << 3 << 12 << "caf\u00E9";
    return failure;
}

}  // namespace

int main(int argc, char** argv) {
    if (argc != 2) {
        std::fputs("usage: localizer DIRECTORY\n", stderr);
        return 2;
    }
    try {
        CatalogueLocalizer localizer(argv[1]);
        const ZBase::Message failure = Failure();
        for (const unsigned short language :
             {kGerman, kFrench, kJapanese, static_cast<unsigned short>(0x409)}) {
            std::printf("%#x\n%s", language,
                        ZBase::FormatTree(failure, {.language = language, .localizer = &localizer}).c_str());
        }
        return 0;
    } catch (const ZBase::Message& failure) {
        std::fprintf(stderr, "%s", ZBase::FormatTree(failure).c_str());
        return 1;
    }
}
