#include "Commands.h"
#include "Console.h"

#include <cstdint>

namespace {

struct Meaning {
    unsigned short domain;
    std::string symbol;
    std::string description;
};

std::string TextOrDash(const char* text) {
    return text == nullptr ? "-" : text;
}

std::string WithoutLineEnd(std::string text) {
    while (!text.empty() && (text.back() == '\n' || text.back() == '\r')) text.pop_back();
    return text;
}

std::string DescriptionOrDash(const ZBase::ReturnWString& text) {
    return text.c_str() == nullptr ? "-" : WithoutLineEnd(Narrow(text.c_str()));
}

// The whole of `text` as a number of 32 bits, signed or unsigned, decimal or hexadecimal behind "0x".
unsigned int ParseCode(const std::string& text) {
    std::size_t used = 0;
    std::int64_t value = 0;
    try {
        const bool hexadecimal = text.starts_with("0x") || text.starts_with("0X");
        value = std::stoll(text, &used, hexadecimal ? 16 : 10);
    } catch (const std::exception&) {
        used = 0;
    }
    if (used == 0 || used != text.size() || value < INT32_MIN || value > INT64_C(0xFFFFFFFF)) {
        throw Failure("\"" + text + "\" is not a number of 32 bits, decimal or hexadecimal behind 0x");
    }
    return static_cast<unsigned int>(value);
}

}  // namespace

int RunError(const std::string& codeText) {
    const unsigned int code = ParseCode(codeText);
    const int number = static_cast<int>(code);
    const Meaning meanings[] = {
        {ZBase::MESSAGE_DOMAIN_ERRNO, TextOrDash(ZBase::GetStandardCLibraryErrorSymbolOrNULL(number).c_str()),
         DescriptionOrDash(ZBase::GetStandardCLibraryErrorDescriptionOrNULL(number))},
        {ZBase::MESSAGE_DOMAIN_WIN32_API, "-",
         DescriptionOrDash(ZBase::GetWin32APIErrorDescriptionOrNULL(code, 0))},
        {ZBase::MESSAGE_DOMAIN_WIN32_EXCEPTION,
         TextOrDash(ZBase::GetWin32ExceptionSymbolOrNULL(code).c_str()), "-"},
    };

    Print(Styled(std::to_string(number) + "  0x" + Hex(code, 8), "1") + "\n");
    bool known = false;
    for (const Meaning& meaning : meanings) {
        std::string domain = ZBase::ToString(meaning.domain);
        domain.resize(28, ' ');
        std::string symbol = meaning.symbol;
        symbol.resize(std::max<std::size_t>(symbol.size(), 16), ' ');
        Print("  " + std::to_string(meaning.domain) + (meaning.domain < 100 ? "   " : "  ") + domain +
              symbol + " " + meaning.description + "\n");
        known = known || meaning.symbol != "-" || meaning.description != "-";
    }
    return known ? 0 : 1;
}
