#include <Base/frame/ReturnUString.h>
#include <Base/frame/detail/TextBlock.h>

namespace ZBase {

ReturnUString::ReturnUString(const unsigned short* text) : mpText(detail::CopyText(text)) {}

ReturnUString::ReturnUString(std::size_t length, const unsigned short* text)
    : mpText(detail::MakeText(length, text)) {}

ReturnUString::ReturnUString(const ReturnUString& other) : mpText(other.mpText) {
    other.mpText = nullptr;
}

ReturnUString::~ReturnUString() {
    detail::FreeText(mpText);
}

std::size_t ReturnUString::GetLength() const {
    return mpText == nullptr ? 0 : detail::TextLength(mpText);
}

void ReturnUString::Swap(unsigned short*& other) {
    unsigned short* held = mpText;
    mpText = other;
    other = held;
}

}  // namespace ZBase
