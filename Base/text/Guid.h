#pragma once

#include <Base/frame/Api.h>
#include <Base/frame/ReturnWString.h>

#include <cstdint>

#if !defined(GUID_DEFINED)  // the mark of Windows' own declaration, which is the same
/// An identifier of 16 bytes. The integers are little-endian in memory.
struct _GUID {
#if defined(_WIN32)
    unsigned long Data1;
#else
    std::uint32_t Data1;
#endif
    std::uint16_t Data2;
    std::uint16_t Data3;
    unsigned char Data4[8];
};
#if defined(_WIN32)
#define GUID_DEFINED
typedef _GUID GUID;
#endif
#endif

static_assert(sizeof(_GUID) == 16);

namespace ZBase {

using ::_GUID;

/// An identifier that can be made, compared and printed.
class ZBASE_API GUID : public _GUID {
public:
    /// A new identifier, not the null one. Throws as `CreateGUID` does.
    GUID();

    GUID(const _GUID& other);

    /// The identifier of a text: the form in braces if it begins with "{", otherwise one that `String2Guid`
    /// reads. `text` must not be null. Throws a `Message` with id -1 for any other text.
    GUID(const unsigned short* text);

    GUID(const GUID&) = default;
    GUID& operator=(const GUID&) = default;
    GUID& operator=(GUID&&) = default;

    bool operator==(const _GUID& other) const;
    bool operator!=(const _GUID& other) const;

    /// The order of `CompareGUID`.
    bool operator<(const _GUID& other) const;

    /// `Guid2String` and `Guid2MSString` of this.
    ReturnWString ToWString() const;
    ReturnWString ToMicrosoftWString() const;
};

static_assert(sizeof(GUID) == sizeof(_GUID));

// With these the record may be on either side, and no overload is ambiguous.
inline bool operator==(const _GUID& left, const GUID& right) {
    return right.operator==(left);
}
inline bool operator!=(const _GUID& left, const GUID& right) {
    return right.operator!=(left);
}
inline bool operator==(const GUID& left, const GUID& right) {
    return left.operator==(right);
}
inline bool operator!=(const GUID& left, const GUID& right) {
    return left.operator!=(right);
}

/// Makes a new random identifier. Throws a `Message` with the system code as id when the system can't make
/// one that is unique everywhere: 1824 if it has no random numbers.
ZBASE_API void CreateGUID(_GUID& guid);

/// Negative, 0 or positive: the order of `Data1`, `Data2` and `Data3` as numbers, then of the bytes of
/// `Data4`. It is the order of neither text form.
ZBASE_API int CompareGUID(const _GUID& left, const _GUID& right);

// Text forms of {00112233-4455-6677-8899-AABBCCDDEEFF}, which is the Microsoft form. Without its braces it is
// the form of RFC 4122. The library's own form is "0011223366774455BBAA9988FFEEDDCC": the 16 bytes as four
// little-endian numbers, so only the first eight digits agree. Digits are written in upper case and read in
// either. A parser returns false for any other text and for null, and sets `guid` to zero then; it never
// throws. The others throw `std::bad_alloc`.

/// Reads the library form, or the Microsoft form without braces, told apart by the length.
ZBASE_API bool String2Guid(_GUID& guid, const unsigned short* text);

/// The library form.
ZBASE_API ReturnWString Guid2String(const _GUID& guid);

/// Reads the Microsoft form with braces.
ZBASE_API bool MSString2Guid(_GUID& guid, const unsigned short* text);

/// The Microsoft form with braces, and without.
ZBASE_API ReturnWString Guid2MSString(const _GUID& guid);
ZBASE_API ReturnWString Guid2MSUniString(const _GUID& guid);

}  // namespace ZBase
