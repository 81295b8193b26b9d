#include <Base/frame/detail/TextBlock.h>
#include <Base/text/BinaryText.h>
#include <Base/text/Udid.h>
#include <Base/text/detail/HexFields.h>

namespace ZBase {

const _UDID UDID_NULL{};

bool String2Udid(_UDID& udid, const unsigned short* text) {
    udid = UDID_NULL;
    if (text == nullptr || detail::TextLength(text) != 2 * sizeof udid.octets) return false;
    detail::HexFields fields(text);
    _UDID read{};
    fields.TakeOctets(read.octets, sizeof read.octets);
    if (fields.IsGood()) udid = read;
    return fields.IsGood();
}

ReturnWString Udid2String(const _UDID& udid) {
    return Binary2String(udid.octets, sizeof udid.octets);
}

}  // namespace ZBase
