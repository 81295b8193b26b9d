// The input is a text that is encoded for a URL and decoded as a part of one, octets that are printed, and a
// URL whose host is replaced by its address, which a stand-in for the resolver gives.
//
// For: Base/text/BinaryText.cpp

#include <Base/platform/NameResolution.h>
#include <Base/platform/os/host/Network.h>
#include <Base/text/BinaryText.h>

#include <cctype>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <string>
#include <vector>

#include "fuzz/Check.h"
#include "fuzz/Hexadecimal.h"
#include "tests/support/SlowUnicode.h"

namespace {

using test::Units;

// The resolver knows the names of even length; each is 10.0.0.N, where N is the length.
unsigned int Resolve(const char* name, ZBase::os::EAddressFamily,
                     std::vector<ZBase::os::NetworkAddress>& to) {
    const std::size_t length = std::strlen(name);
    if (length % 2 != 0) return 11001;
    to.push_back({{10, 0, 0, static_cast<unsigned char>(length)}, 4, 0});
    return 0;
}

}  // namespace

// In the place of the library's, by the linker.
extern "C" unsigned int
__wrap__ZN5ZBase2os11ResolveNameEPKcNS0_14EAddressFamilyERSt6vectorINS0_14NetworkAddressESaIS5_EE(
    const char* name, ZBase::os::EAddressFamily family, std::vector<ZBase::os::NetworkAddress>& to) {
    return Resolve(name, family, to);
}

namespace {

std::string SlowEncoded(const std::string& text) {
    std::string encoded;
    for (const char character : text) {
        const auto octet = static_cast<unsigned char>(character);
        const bool isSafe =
            octet < 0x80 && (std::isalnum(octet) != 0 || std::strchr("~-_.", octet) != nullptr);
        encoded += isSafe && octet != 0 ? std::string(1, character) : "%" + fuzz::Hexadecimal(octet, 2);
    }
    return encoded;
}

void CheckDecoding(const std::string& text) {
    std::string expected;
    std::string told;
    for (std::size_t i = 0; i != text.size(); ++i) {
        expected += text[i];
        if (text[i] != '%') continue;
        const std::string digits = text.substr(i + 1, 2);
        const bool areTwo = digits.size() == 2 && std::isxdigit(static_cast<unsigned char>(digits[0])) != 0 &&
                            std::isxdigit(static_cast<unsigned char>(digits[1])) != 0;
        if (!areTwo) {
            told = "ZBase::UrlDecode: No two hexadecimal digits behind % at offset 0x" +
                   fuzz::Hexadecimal(i, 1) + ".";
            break;
        }
        expected.back() = static_cast<char>(std::stoi(digits, nullptr, 16));
        i += 2;
    }
    std::string decoded;
    const std::string failure = fuzz::Failure([&] { decoded = ZBase::UrlDecode(text); });
    fuzz::Check(failure == told && (!told.empty() || decoded == expected), "UrlDecode");
}

void CheckBinary(const std::string& octets) {
    Units digits;
    Units readable;
    for (const char character : octets) {
        const auto octet = static_cast<unsigned char>(character);
        const std::string two = fuzz::Hexadecimal(octet, 2);
        char three[8];
        std::snprintf(three, sizeof three, "\\%03o", octet);
        const std::string shown = octet >= 0x20 && octet <= 0x7E ? std::string(1, character) : three;
        digits.append(two.begin(), two.end());
        readable.append(shown.begin(), shown.end());
        fuzz::Check(ZBase::Char2Hex(character) == two, "Char2Hex");
    }
    const int length = static_cast<int>(octets.size());
    fuzz::Check(ZBase::Binary2String(octets.data(), length).c_str() == digits, "Binary2String");
    fuzz::Check(ZBase::Binary2OctString(octets.data(), length).c_str() == readable, "Binary2OctString");
    fuzz::Check(*ZBase::Binary2String(octets.data(), -length).c_str() == 0 &&
                    *ZBase::Binary2OctString(nullptr, length).c_str() == 0,
                "no octets");
    if (length < 2) return;
    const auto unit = static_cast<unsigned short>(static_cast<unsigned char>(octets[0]) << 8 |
                                                  static_cast<unsigned char>(octets[1]));
    const std::string four = fuzz::Hexadecimal(unit, 4);
    fuzz::Check(ZBase::WideChar2String(unit).c_str() == Units(four.begin(), four.end()), "WideChar2String");
}

// Of "scheme://host:port...": only the first two colons and the length of the host matter. A zero, which no
// name has, ends the host that is looked up.
void CheckHost(const std::string& octets) {
    ZBase::WideString url;
    for (const char character : octets) url += static_cast<unsigned char>(character) & 0x7Fu;
    const ZBase::WideString before(3, static_cast<unsigned short>('b'));
    ZBase::WideString result = before;
    const int code = ZBase::ConvertServerNameURL2IpAddrURL(url, result);
    const std::size_t first = url.find(':');
    const std::size_t second = first == ZBase::WideString::npos ? first : url.find(':', first + 1);
    if (second == ZBase::WideString::npos || second - first < 3) {
        fuzz::Check(code == -1 && result == url, "a URL without a host");
        return;
    }
    std::string host;
    for (std::size_t i = first + 3; i != second && url[i] != 0; ++i) host += static_cast<char>(url[i]);
    if (host.size() % 2 != 0) {
        fuzz::Check(code == 11001 && result == url, "a URL of an unknown host");
        return;
    }
    const std::string address = "10.0.0." + std::to_string(host.size() % 256);
    ZBase::WideString expected = before + url.substr(0, first + 3);
    expected.append(address.begin(), address.end());
    expected += url.substr(second);
    expected += static_cast<unsigned short>(0);
    fuzz::Check(code == 0 && result == expected, "a URL with its address");
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const std::string octets(reinterpret_cast<const char*>(data), size);
    const std::string encoded = SlowEncoded(octets);
    fuzz::Check(ZBase::UrlEncode(octets) == encoded, "UrlEncode");
    fuzz::Check(ZBase::UrlDecode(encoded) == octets, "what was encoded");
    CheckDecoding(octets);
    CheckBinary(octets);
    CheckHost(octets);
    return 0;
}
