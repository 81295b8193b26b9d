#include <Base/frame/WideLiteral.h>
#include <Base/frame/detail/TextBlock.h>
#include <Base/messages/detail/SystemFailure.h>
#include <Base/platform/os/host/Identifiers.h>
#include <Base/text/Guid.h>
#include <Base/text/detail/Digits.h>
#include <Base/text/detail/HexFields.h>

#include <algorithm>
#include <cstddef>
#include <cstring>

namespace ZBase {

namespace {

constexpr std::size_t kLibraryLength = 32;
constexpr std::size_t kPlainLength = 36;
constexpr std::size_t kBracesLength = 38;

/// Writes upper-case digits one after the other.
class FormWriter {
public:
    void Digits(std::uint32_t value, int count) {
        while (count-- != 0) Put(detail::kUpperDigits[value >> 4 * count & 0xF]);
    }
    void Octets(const unsigned char* octets, int count) {
        for (; count != 0; --count) Digits(*octets++, 2);
    }
    void Put(char character) { mText[mLength++] = static_cast<unsigned char>(character); }

    ReturnWString Text() const { return ReturnWString(mText); }

private:
    unsigned short mText[kBracesLength + 1]{};
    std::size_t mLength = 0;
};

void WritePlain(FormWriter& out, const _GUID& guid) {
    out.Digits(guid.Data1, 8);
    out.Put('-');
    out.Digits(guid.Data2, 4);
    out.Put('-');
    out.Digits(guid.Data3, 4);
    out.Put('-');
    out.Octets(guid.Data4, 2);
    out.Put('-');
    out.Octets(guid.Data4 + 2, 6);
}

void ReadPlain(detail::HexFields& fields, _GUID& guid) {
    guid.Data1 = fields.Take(8);
    fields.Expect('-');
    guid.Data2 = static_cast<std::uint16_t>(fields.Take(4));
    fields.Expect('-');
    guid.Data3 = static_cast<std::uint16_t>(fields.Take(4));
    fields.Expect('-');
    fields.TakeOctets(guid.Data4, 2);
    fields.Expect('-');
    fields.TakeOctets(guid.Data4 + 2, 6);
}

// The library form: the record as four little-endian words. The first is `Data1`, the second `Data3` above
// `Data2`, and the other two are `Data4` in reverse.
void ReadLibraryForm(detail::HexFields& fields, _GUID& guid) {
    guid.Data1 = fields.Take(8);
    guid.Data3 = static_cast<std::uint16_t>(fields.Take(4));
    guid.Data2 = static_cast<std::uint16_t>(fields.Take(4));
    for (const int last : {3, 7}) {
        for (int i = last; i != last - 4; --i) fields.TakeOctets(guid.Data4 + i, 1);
    }
}

bool Accept(const detail::HexFields& fields, const _GUID& read, _GUID& guid) {
    if (fields.IsGood()) guid = read;
    return fields.IsGood();
}

}  // namespace

GUID::GUID() {
    CreateGUID(*this);
}

GUID::GUID(const _GUID& other) : _GUID(other) {}

GUID::GUID(const unsigned short* text) {
    const bool read = *text == '{' ? MSString2Guid(*this, text) : String2Guid(*this, text);
    if (!read) detail::ThrowFailure("ZBase::GUID: cannot parse string."_w);
}

bool GUID::operator==(const _GUID& other) const {
    return std::memcmp(static_cast<const _GUID*>(this), &other, sizeof other) == 0;
}

bool GUID::operator!=(const _GUID& other) const {
    return !(*this == other);
}

bool GUID::operator<(const _GUID& other) const {
    return CompareGUID(*this, other) < 0;
}

ReturnWString GUID::ToWString() const {
    return Guid2String(*this);
}

ReturnWString GUID::ToMicrosoftWString() const {
    return Guid2MSString(*this);
}

void CreateGUID(_GUID& guid) {
    unsigned char octets[16];
    const unsigned int status = os::CreateIdentifier(octets);
    if (status != 0) detail::ThrowSystemFailure("ZBase::CreateGUID: ::UuidCreate failed."_w, status);
    const auto number = [&octets](int first, int count) {
        std::uint32_t value = 0;
        for (int i = first; i != first + count; ++i) value = value << 8 | octets[i];
        return value;
    };
    guid.Data1 = number(0, 4);
    guid.Data2 = static_cast<std::uint16_t>(number(4, 2));
    guid.Data3 = static_cast<std::uint16_t>(number(6, 2));
    std::copy_n(octets + 8, 8, guid.Data4);
}

int CompareGUID(const _GUID& left, const _GUID& right) {
    if (left.Data1 != right.Data1) return left.Data1 < right.Data1 ? -1 : 1;
    if (left.Data2 != right.Data2) return left.Data2 < right.Data2 ? -1 : 1;
    if (left.Data3 != right.Data3) return left.Data3 < right.Data3 ? -1 : 1;
    return std::memcmp(left.Data4, right.Data4, sizeof left.Data4);
}

bool String2Guid(_GUID& guid, const unsigned short* text) {
    guid = {};
    if (text == nullptr) return false;
    detail::HexFields fields(text);
    _GUID read{};
    switch (detail::TextLength(text)) {
        case kLibraryLength:
            ReadLibraryForm(fields, read);
            break;
        case kPlainLength:
            ReadPlain(fields, read);
            break;
        default:
            return false;
    }
    return Accept(fields, read, guid);
}

ReturnWString Guid2String(const _GUID& guid) {
    FormWriter out;
    out.Digits(guid.Data1, 8);
    out.Digits(guid.Data3, 4);
    out.Digits(guid.Data2, 4);
    for (const int last : {3, 7}) {
        for (int i = last; i != last - 4; --i) out.Octets(guid.Data4 + i, 1);
    }
    return out.Text();
}

bool MSString2Guid(_GUID& guid, const unsigned short* text) {
    guid = {};
    if (text == nullptr || detail::TextLength(text) != kBracesLength) return false;
    detail::HexFields fields(text);
    _GUID read{};
    fields.Expect('{');
    ReadPlain(fields, read);
    fields.Expect('}');
    return Accept(fields, read, guid);
}

ReturnWString Guid2MSString(const _GUID& guid) {
    FormWriter out;
    out.Put('{');
    WritePlain(out, guid);
    out.Put('}');
    return out.Text();
}

ReturnWString Guid2MSUniString(const _GUID& guid) {
    FormWriter out;
    WritePlain(out, guid);
    return out.Text();
}

}  // namespace ZBase
