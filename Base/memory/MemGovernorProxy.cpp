#include <Base/memory/MemGovernorProxy.h>

#include <Base/frame/Exceptions.h>
#include <Base/frame/detail/LibraryState.h>
#include <Base/memory/detail/budgets/MemGovernors.h>
#include <Base/text/UnicodeConversions.h>

namespace ZBase {

namespace {

constexpr int kRefusalId = static_cast<int>(0x8000FE24);

}  // namespace

void RegisterMemGovernor(MemGovernorProxy* proxy) {
    if (proxy != nullptr) gMemGovernors.insert(proxy);
}

void UnregisterMemGovernor(MemGovernorProxy* proxy) {
    gMemGovernors.erase(proxy);
}

void AskMemGovernors(std::size_t size) {
    for (MemGovernorProxy* proxy : gMemGovernors) {
        if (proxy->mRequest(size)) continue;
        const ReturnString text = WideCharToUTF8(proxy->mRefusalText(size).c_str(), false);
        throw MemGoverningException(MESSAGE_DOMAIN_SERVER, kRefusalId, text.c_str());
    }
}

void CreditMemGovernors(std::size_t total) {
    for (MemGovernorProxy* proxy : gMemGovernors) proxy->mRelease(total);
}

}  // namespace ZBase
