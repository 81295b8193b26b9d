#include <Base/messages/Message.h>
#include <Base/messages/detail/Records.h>
#include <Base/text/UnicodeConversions.h>

#include <algorithm>
#include <charconv>
#include <cstdint>
#include <limits>

namespace ZBase {

using namespace detail;

namespace {

/// "0x" and the digits of a number, at least `width` of them.
class HexText {
public:
    HexText(std::uint64_t value, std::size_t width) {
        char* at = mText + sizeof(mText);
        *--at = 0;
        char* const end = at;
        do *--at = "0123456789ABCDEF"[value & 0xF];
        while ((value >>= 4) != 0);
        while (static_cast<std::size_t>(end - at) < width) *--at = '0';
        *--at = 'x';
        *--at = '0';
        mpStart = at;
    }
    const char* Get() const { return mpStart; }

private:
    char mText[2 + std::numeric_limits<unsigned char>::max() + 1];
    const char* mpStart;
};

class DecimalText {
public:
    template <class Number>
    explicit DecimalText(Number value) {
        *std::to_chars(mText, mText + sizeof(mText) - 1, value).ptr = 0;
    }
    const char* Get() const { return mText; }

private:
    char mText[sizeof("-2.2250738585072014e-308")];  // the longest text of a number
};

}  // namespace

Message& Message::operator<<(const char* text) {
    PlaceParameter(BlockOf(*this), text == nullptr ? "" : text);
    return *this;
}

Message& Message::operator<<(const unsigned short* text) {
    return *this << WideCharToUTF8(text, true).c_str();
}

Message& Message::operator<<(std::string_view text) {
    PlaceParameter(BlockOf(*this), text.substr(0, text.find('\0')));
    return *this;
}

Message& Message::operator<<(const ReturnString& text) {
    return *this << text.c_str();
}

Message& Message::operator<<(const ReturnWString& text) {
    return *this << text.c_str();
}

Message& Message::operator<<(const ReturnUString& text) {
    return *this << text.c_str();
}

Message& Message::operator<<(bool value) {
    return *this << (value ? "true" : "false");
}

Message& Message::operator<<(void (*manipulator)(Message&)) {
    manipulator(*this);
    return *this;
}

Message& Message::operator<<(int value) {
    unsigned char radix;
    unsigned char width;
    GetNumberFormatW(radix, width);
    if (radix == 16) return *this << HexText(static_cast<std::uint32_t>(value), width).Get();
    return *this << DecimalText(value).Get();
}

Message& Message::operator<<(unsigned int value) {
    unsigned char radix;
    unsigned char width;
    GetNumberFormatW(radix, width);
    if (radix == 16) return *this << HexText(value, width).Get();
    return *this << DecimalText(value).Get();
}

Message& Message::operator<<(long long value) {
    unsigned char radix;
    unsigned char width;
    GetNumberFormatW(radix, width);
    if (radix == 16) return *this << HexText(static_cast<std::uint64_t>(value), width).Get();
    return *this << DecimalText(value).Get();
}

Message& Message::operator<<(unsigned long long value) {
    unsigned char radix;
    unsigned char width;
    GetNumberFormatW(radix, width);
    if (radix == 16) return *this << HexText(value, width).Get();
    return *this << DecimalText(value).Get();
}

Message& Message::operator<<(double value) {
    return *this << DecimalText(value).Get();
}

// A long has 32 bits in a message on every platform; the upper ones are dropped.

Message& Message::operator<<(long value) {
    return *this << static_cast<int>(value);
}

Message& Message::operator<<(unsigned long value) {
    return *this << static_cast<unsigned int>(value);
}

void Message::Dec(Message& message) {
    message.SetNumberFormat(10, 0);
}

void Message::Hex(Message& message) {
    message.SetNumberFormat(16, 0);
}

void Message::WideHex(Message& message) {
    message.SetNumberFormat(16, 8);
}

void Message::WideWideHex(Message& message) {
    message.SetNumberFormat(16, 16);
}

void Message::SetNumberFormat(unsigned char radix, unsigned char width) {
    Record* record = FindRecord(BlockOf(*this), TAG_HEADER);
    if (record == nullptr) return;
    record->As<Header>().radix = radix;
    record->As<Header>().width = width;
}

void Message::GetNumberFormatW(unsigned char& radix, unsigned char& width) const {
    const Record* record = FindRecord(BlockOf(*this), TAG_HEADER);
    radix = record == nullptr ? kDefaultRadix : record->As<Header>().radix;
    width = record == nullptr ? kDefaultWidth : record->As<Header>().width;
}

}  // namespace ZBase
