#include <Base/diagnostics/detail/CallStackLineImp.h>

#include <algorithm>
#include <utility>

namespace ZBase {

namespace {

WideString Widen(std::string_view text) {
    WideString wide(text.size(), 0);
    std::transform(text.begin(), text.end(), wide.begin(),
                   [](char octet) { return static_cast<unsigned short>(static_cast<signed char>(octet)); });
    return wide;
}

void Append(WideString& text, std::string_view plain) {
    for (const char letter : plain) text += static_cast<unsigned short>(letter);
}

void AppendHexadecimal(WideString& text, std::uint64_t value, const char* digits, std::size_t width) {
    char reversed[16];
    std::size_t count = 0;
    for (; value != 0 || count < width; value >>= 4) reversed[count++] = digits[value & 15];
    while (count != 0) text += static_cast<unsigned short>(reversed[--count]);
}

void AppendAddress(WideString& text, std::uint64_t address) {
    Append(text, "0x");
    AppendHexadecimal(text, address, "0123456789ABCDEF", 16);
}

}  // namespace

CallStackLineImp::CallStackLineImp(std::uint32_t section, std::uint32_t offset, std::uint64_t address,
                                   std::uint64_t frameAddress, WideString module, std::string_view symbol,
                                   std::uint64_t displacement, std::string_view file, std::uint32_t line)
    : mSection(section),
      mOffset(offset),
      mAddress(address),
      mFrameAddress(frameAddress),
      mModule(std::move(module)),
      mSymbol(Widen(symbol)),
      mDisplacement(displacement),
      mFile(Widen(file)),
      mLine(line) {}

const unsigned short* CallStackLineImp::GetText() {
    WideString text;
    AppendText(text);
    mText = std::move(text);
    return mText.c_str();
}

void CallStackLineImp::AppendText(WideString& text) const {
    text.reserve(text.size() + mModule.size() + mSymbol.size() + mFile.size() + 200);
    AppendAddress(text, mAddress);
    Append(text, " ");
    AppendAddress(text, mFrameAddress);
    Append(text, " Mod:[");
    text += mModule;
    Append(text, "]\tSym:[");
    text += mSymbol;
    Append(text, "]+0x");
    AppendHexadecimal(text, mDisplacement, "0123456789abcdef", 1);
    Append(text, "\tFile:[");
    text += mFile;
    Append(text, "](");
    // Printed as a signed number; kept for readers that parse it so.
    Append(text, std::to_string(static_cast<std::int32_t>(mLine)));
    Append(text, ")");
}

}  // namespace ZBase
