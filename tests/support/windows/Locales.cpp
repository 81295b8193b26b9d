#include "tests/support/Locales.h"

#include <algorithm>
#include <clocale>
#include <iterator>
#include <stdexcept>

namespace test {

namespace {

struct Encoding {
    const char* name;
    const char* locale;  // as the C library here names its code page
};

constexpr Encoding kEncodings[] = {
    {"ISO-8859-1", ".28591"}, {"ISO-8859-2", ".28592"}, {"ISO-8859-5", ".28595"}, {"ISO-8859-15", ".28605"},
    {"CP1252", ".1252"},      {"CP932", ".932"},        {"SHIFT_JIS", ".932"},    {"GBK", ".936"},
    {"GB2312", ".936"},       {"EUC-KR", ".949"},       {"BIG5", ".950"},         {"KOI8-R", ".20866"},
};

const char* LocaleOf(const std::string& encoding) {
    const auto* const found = std::find_if(std::begin(kEncodings), std::end(kEncodings),
                                           [&](const Encoding& each) { return encoding == each.name; });
    return found == std::end(kEncodings) ? nullptr : found->locale;
}

}  // namespace

ScopedLocale::ScopedLocale(const std::string& name) : mPrevious(std::setlocale(LC_ALL, nullptr)) {
    Set(name.substr(name.find('.') + 1));
}

ScopedLocale::ScopedLocale(const std::string& encoding, int) : mPrevious(std::setlocale(LC_ALL, nullptr)) {
    Set(encoding);
}

void ScopedLocale::Set(const std::string& name) {
    const char* const locale = LocaleOf(name);
    if (locale == nullptr || std::setlocale(LC_ALL, locale) == nullptr)
        throw std::runtime_error("the C library has no locale of " + name);
}

ScopedLocale::~ScopedLocale() {
    std::setlocale(LC_ALL, mPrevious.c_str());
}

}  // namespace test
