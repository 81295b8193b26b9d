#include "ProcessCeiling.h"

#include <string>

ProcessCeiling::ProcessCeiling(std::size_t bytes) : mCeiling(bytes) {
    mProxy.mRequest = [this](std::size_t size) { return Book(size); };
    mProxy.mRelease = [this](std::size_t size) { mHeld -= size; };
    mProxy.mRefusalText = [this](std::size_t size) {
        const std::string text = "The process may hold " + std::to_string(mCeiling) + " bytes and holds " +
                                 std::to_string(mHeld) + "; " + std::to_string(size) + " more are refused.";
        return ZBase::WideString(ZBase::UTF8ToWideChar(text.c_str(), true).c_str());
    };
    ZBase::RegisterMemGovernor(&mProxy);
}

ProcessCeiling::~ProcessCeiling() {
    ZBase::UnregisterMemGovernor(&mProxy);
}

// Books the bytes with the yes, since nobody is told later that the chunk has come.
bool ProcessCeiling::Book(std::size_t bytes) {
    std::size_t held = mHeld;
    do {
        if (held > mCeiling || bytes > mCeiling - held) {
            ++mRefusals;
            return false;
        }
    } while (!mHeld.compare_exchange_weak(held, held + bytes));
    return true;
}
