#include <Base/frame/ReturnWString.h>
#include <Base/frame/detail/TextBlock.h>

namespace ZBase {

ReturnWString::ReturnWString(const unsigned short* text) : mpText(detail::CopyText(text)) {}

ReturnWString::ReturnWString(std::size_t length, const unsigned short* text)
    : mpText(detail::MakeText(length, text)) {}

ReturnWString::ReturnWString(const ReturnWString& other) : mpText(other.mpText) {
    other.mpText = nullptr;
}

ReturnWString::~ReturnWString() {
    detail::FreeText(mpText);
}

std::size_t ReturnWString::GetLength() const {
    return mpText == nullptr ? 0 : detail::TextLength(mpText);
}

void ReturnWString::Swap(unsigned short*& other) {
    unsigned short* held = mpText;
    mpText = other;
    other = held;
}

}  // namespace ZBase
