#include <Base/frame/ReturnString.h>
#include <Base/frame/detail/TextBlock.h>

namespace ZBase {

ReturnString::ReturnString(const char* text) : mpText(detail::CopyText(text)) {}

ReturnString::ReturnString(std::size_t length, const char* text) : mpText(detail::MakeText(length, text)) {}

ReturnString::ReturnString(const ReturnString& other) : mpText(other.mpText) {
    other.mpText = nullptr;
}

ReturnString::~ReturnString() {
    detail::FreeText(mpText);
}

std::size_t ReturnString::GetLength() const {
    return mpText == nullptr ? 0 : detail::TextLength(mpText);
}

void ReturnString::Swap(char*& other) {
    char* held = mpText;
    mpText = other;
    other = held;
}

}  // namespace ZBase
