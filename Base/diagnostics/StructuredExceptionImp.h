#pragma once

#include <Base/diagnostics/StructuredException.h>
#include <Base/frame/WideString.h>

#include <vector>

namespace ZBase {

/// The exception that the translator throws.
class ZBASE_API StructuredExceptionImp : public StructuredException {
public:
    /// `code` is the Win32 exception code, `pointers` are not used.
    StructuredExceptionImp(unsigned int code, void* pointers);
    StructuredExceptionImp(const StructuredExceptionImp&) = default;
    virtual ~StructuredExceptionImp() = default;
    StructuredExceptionImp& operator=(const StructuredExceptionImp&) = delete;

    unsigned int GetCode() const { return mCode; }

    /// "Structured exception thrown (0xc0000005). Stack: " and the addresses.
    const WideString& GetText() const { return mText; }

private:
    void FillOutStackAddresses();

    std::vector<unsigned int> mStackAddresses;  // always empty on this processor
    unsigned int mCode;
    WideString mText;
};

}  // namespace ZBase
