#include <Base/text/GovernedConversions.h>

#include <Base/memory/detail/budgets/ContractCharge.h>
#include <Base/text/detail/ResultText.h>
#include <Base/text/detail/Utf8Encoder.h>

#include <cstddef>

namespace ZBase {

namespace {

// Small conversions are common and should not pay for a budget.
constexpr std::size_t kSmallestRequest = 0x10000;

}  // namespace

ReturnString WideCharToUTF8Governed(const unsigned short* source, bool replace,
                                    SmartPtrI<MemoryContract>& contract) {
    return WideCharToUTF8UsingLengthGoverned(source, 0, contract, replace);
}

ReturnString WideCharToUTF8UsingLengthGoverned(const unsigned short* source, unsigned int length,
                                               SmartPtrI<MemoryContract>& contract, bool replace) {
    if (source == nullptr) return nullptr;
    const std::size_t units = detail::CountUnits(source, length);
    const std::size_t capacity = detail::Utf8Capacity(units);
    const std::size_t request = 2 * (capacity + 1);  // two bytes a unit; kept for contracts set by it
    const bool governed = !contract.IsNull() && request >= kSmallestRequest;
    if (governed) RequestFromContract(*contract, request);
    detail::Unfinished<ReturnString> result(capacity);
    if (governed) SettleWithContract(*contract, request);
    return result.Finish(detail::EncodeUtf8(source, units, replace, result.Get()));
}

}  // namespace ZBase
