#pragma once

#include <Base/diagnostics/CallStackLine.h>
#include <Base/frame/WideString.h>

#include <cstdint>
#include <string>
#include <string_view>

namespace ZBase {

/// The position of an address in the image of its module; zeros and an empty path if it is in none.
struct LogicalAddress {
    std::uint32_t section = 0;  // from 1
    std::uint32_t offset = 0;
    WideString module;
};

class CallStackLineImp final : public CallStackLine {
public:
    /// The two narrow texts are widened octet by octet with sign extension: an octet of 0x80 or above becomes
    /// 0xFF80 or above; kept for readers of such lines.
    CallStackLineImp(std::uint32_t section, std::uint32_t offset, std::uint64_t address,
                     std::uint64_t frameAddress, WideString module, std::string_view symbol,
                     std::uint64_t displacement, std::string_view file, std::uint32_t line);

    const unsigned short* GetText() override;

    /// Appends the text of `GetText` to `text`, without keeping it.
    void AppendText(WideString& text) const;

private:
    [[maybe_unused]] std::uint32_t mSection;
    [[maybe_unused]] std::uint32_t mOffset;
    std::uint64_t mAddress;
    std::uint64_t mFrameAddress;
    WideString mModule;
    WideString mSymbol;
    std::uint64_t mDisplacement;
    WideString mFile;
    std::uint32_t mLine;
    WideString mText;  // the last result of `GetText`
};

}  // namespace ZBase
