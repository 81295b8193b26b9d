#pragma once

namespace ZBase::detail {

/// RFC 3986, unreserved characters, in every locale.
constexpr bool IsUnreserved(unsigned char octet) {
    return (octet >= '0' && octet <= '9') || (octet >= 'A' && octet <= 'Z') ||
           (octet >= 'a' && octet <= 'z') || octet == '~' || octet == '-' || octet == '_' || octet == '.';
}

/// What stands for each octet in a URL, and how long that is.
struct UrlEscapes {
    char texts[256][4];
    unsigned char sizes[256];
};

extern const UrlEscapes kUrlEscapes;

}  // namespace ZBase::detail
