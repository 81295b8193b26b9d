#include "Commands.h"
#include "tools/zbase/terminal/Console.h"

#include <Base/ZBase.h>

#include <strings.h>
#include <cstdint>
#include <memory>
#include <optional>

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
std::optional<unsigned int> ReadNumber(const std::string& text) {
    std::size_t used = 0;
    std::int64_t value = 0;
    try {
        const bool hexadecimal = text.starts_with("0x") || text.starts_with("0X");
        value = std::stoll(text, &used, hexadecimal ? 16 : 10);
    } catch (const std::exception&) {
        return std::nullopt;
    }
    if (used != text.size() || value < INT32_MIN || value > INT64_C(0xFFFFFFFF)) return std::nullopt;
    return static_cast<unsigned int>(value);
}

bool IsSymbol(const char* symbol, const std::string& text) {
    return symbol != nullptr && strcasecmp(symbol, text.c_str()) == 0;
}

// The number of a symbol such as "ENOENT" or "EXCEPTION_ACCESS_VIOLATION", ignoring case.
std::optional<unsigned int> FindSymbol(const std::string& text) {
    constexpr int kMostErrorNumbers = 4096;
    for (int number = 0; number != kMostErrorNumbers; ++number)
        if (IsSymbol(ZBase::GetStandardCLibraryErrorSymbolOrNULL(number).c_str(), text))
            return static_cast<unsigned int>(number);
    // Exceptions of the system are warnings or errors of its own facility.
    constexpr unsigned int kMostCodes = 0x1000;
    for (const unsigned int severity : {0x80000000u, 0xC0000000u})
        for (unsigned int code = severity; code != severity + kMostCodes; ++code)
            if (IsSymbol(ZBase::GetWin32ExceptionSymbolOrNULL(code).c_str(), text)) return code;
    return std::nullopt;
}

unsigned int ParseCode(const std::string& text) {
    std::optional<unsigned int> code = ReadNumber(text);
    if (!code) code = FindSymbol(text);
    if (code) return *code;
    throw Failure("\"" + text +
                  "\" is neither a number of 32 bits, decimal or hexadecimal behind 0x, nor a known symbol");
}

int ShowMeanings(const std::string& codeText) {
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

}  // namespace

void AddErrorCommand(Command& zbase) {
    Command error =
        zbase.AddCommand("error", "Tell what a number or a symbol means in each domain of errors");
    const auto code = std::make_shared<std::string>();
    error.AddOption("CODE", *code, "Decimal, hexadecimal behind 0x, or a symbol such as ENOENT").Required();
    error.Runs([code] { return ShowMeanings(*code); });
}
