#include <Base/diagnostics/StructuredExceptionImp.h>
#include <Base/frame/WideLiteral.h>
#include <Base/platform/os/faults/Faults.h>
#include <Base/text/NumberText.h>

#include <cstdio>

namespace ZBase {

namespace {

WideString HexText(unsigned int value) {
    return ToHexLowerWString(static_cast<int>(value)).c_str();
}

[[noreturn]] void ThrowStructuredException(unsigned int code, void* pointers) {
    const StructuredExceptionImp exception(code, pointers);
    throw StructuredExceptionImp(exception);
}

}  // namespace

StructuredExceptionImp::StructuredExceptionImp(unsigned int code, void*) : mCode(code) {
    FillOutStackAddresses();
    mText.append("Structured exception thrown (0x"_w).append(HexText(mCode)).append("). Stack: "_w);
    for (const unsigned int address : mStackAddresses)
        mText.append("0x"_w).append(HexText(address)).append(","_w);
}

void StructuredExceptionImp::FillOutStackAddresses() {
    std::printf("Error in StructuredExceptionImp::FillOutStackAddresses, CPU type unsupportted!\n");
}

void SetExceptionTranslator() {
    os::SetFaultTranslator(ThrowStructuredException);
}

}  // namespace ZBase
