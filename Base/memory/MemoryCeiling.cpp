#include <Base/memory/MemoryCeiling.h>

#include <Base/memory/detail/budgets/BookedBytes.h>
#include <Base/text/UnicodeConversions.h>

#include <string>

namespace ZBase {

MemoryCeiling::MemoryCeiling(std::size_t bytes) : mCeiling(bytes) {
    // Booked at the grant: a governor is not called when the chunk was acquired.
    mProxy.mRequest = [this](std::size_t asked) { return Ask(asked); };
    mProxy.mRelease = [this](std::size_t given) { GiveBack(mHeld, given); };
    mProxy.mRefusalText = [this](std::size_t asked) { return TellRefusal(asked); };
    RegisterMemGovernor(&mProxy);
}

MemoryCeiling::~MemoryCeiling() {
    UnregisterMemGovernor(&mProxy);
}

bool MemoryCeiling::Ask(std::size_t bytes) {
    const bool granted = Book(mHeld, bytes, mCeiling);
    if (!granted) mRefusals.fetch_add(1, std::memory_order_relaxed);
    return granted;
}

WideString MemoryCeiling::TellRefusal(std::size_t bytes) const {
    const std::string text = "The buffers of the process may hold " + std::to_string(mCeiling) +
                             " bytes and hold " + std::to_string(mHeld) + "; " + std::to_string(bytes) +
                             " more are refused.";
    return WideString(UTF8ToWideChar(text.c_str(), true).c_str());
}

}  // namespace ZBase
