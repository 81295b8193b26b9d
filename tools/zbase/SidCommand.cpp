#include "Commands.h"
#include "tools/zbase/terminal/Console.h"

#include <Base/ZBase.h>

#include <cctype>
#include <cstdint>
#include <memory>
#include <vector>

namespace {

using Octets = std::vector<unsigned char>;

// A new identifier like those of computers and domains: a fixed prefix and three random numbers.
std::string NewSid() {
    std::string text = "S-1-5-21";
    for (int i = 0; i != 3; ++i) text += '-' + std::to_string(ZBase::GUID().Data1);
    return text;
}

std::string TextOf(const Octets& sid) {
    return Narrow(ZBase::SidBinaryToWString(sid.data(), sid.size()).c_str());
}

bool IsHexadecimal(const std::string& text) {
    for (const char c : text) {
        if (std::isxdigit(static_cast<unsigned char>(c)) == 0) return false;
    }
    return text.size() % 2 == 0;
}

Octets FromDigits(const std::string& digits) {
    Octets sid;
    for (std::size_t i = 0; i != digits.size(); i += 2) {
        sid.push_back(static_cast<unsigned char>(std::stoul(digits.substr(i, 2), nullptr, 16)));
    }
    if (sid.size() < 8 || sid.size() != 8u + 4u * sid[1]) {
        throw Failure("\"" + digits + "\" is not as long as a record with its count of sub-authorities");
    }
    return sid;
}

// The library reads almost anything; here the text must also read back the same.
Octets FromText(const std::string& text) {
    unsigned char* octets = nullptr;
    std::uint64_t size = 0;
    ZBase::SidWStringToBinary(Wide(text).c_str(), octets, size);
    const std::unique_ptr<unsigned char[]> owner(octets);
    Octets sid(octets, octets + size);
    const std::string back = TextOf(sid);
    if (back != text) {
        throw Failure("\"" + text + "\" is no security identifier; it is read as " +
                      (back.empty() ? "one without sub-authorities" : back.substr(0, 60)));
    }
    return sid;
}

// An empty text means a new identifier.
int ShowSid(const std::string& text) {
    const std::string wanted = text.empty() ? NewSid() : text;
    const Octets sid = IsHexadecimal(wanted) ? FromDigits(wanted) : FromText(wanted);
    PrintRow("text", TextOf(sid));
    PrintRow("bytes", Narrow(ZBase::Binary2String(sid.data(), static_cast<int>(sid.size())).c_str()));
    return 0;
}

}  // namespace

void AddSidCommand(Command& zbase) {
    Command sid = zbase.AddCommand("sid", "Make a new security identifier, or show one in both its forms");
    const auto text = std::make_shared<std::string>();
    sid.AddOption("TEXT", *text, "Its text, or its bytes in hexadecimal");
    sid.Runs([text] { return ShowSid(*text); });
}
