#include "TextScan.h"
#include "TextStream.h"

#include <Base/ZBase.h>

#include <algorithm>

void TextScan::Take(std::string_view octets, bool isLast) {
    if (IsFlawed()) return;
    mHeld += octets;
    const std::string_view whole =
        std::string_view(mHeld).substr(0, isLast ? mHeld.size() : WholeUtf8(mHeld));
    const ZBase::UTF8Scan scan = ZBase::ScanUTF8(whole);
    Count(whole.substr(0, scan.octets), scan.characters);
    if (!scan.isWhole) {
        try {
            ZBase::ToUTF16(whole.substr(scan.octets), false);
        } catch (const ZBase::StringConversionException& failure) {
            mReason = ZBase::FormatMessage(failure, 0).c_str();
        }
    }
    mHeld.erase(0, whole.size());
}

void TextScan::Count(std::string_view octets, std::size_t characters) {
    mOctets += octets.size();
    mCharacters += characters;
    const std::size_t end = octets.rfind('\n');
    if (end == std::string_view::npos) {
        mColumn += characters;
        return;
    }
    mLine += static_cast<std::size_t>(std::count(octets.begin(), octets.end(), '\n'));
    const std::string_view last = octets.substr(end + 1);
    const auto begins = [](char octet) { return (static_cast<unsigned char>(octet) & 0xC0) != 0x80; };
    mColumn = 1 + static_cast<std::size_t>(std::count_if(last.begin(), last.end(), begins));
}
