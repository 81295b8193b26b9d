#include <Base/platform/os/shared/SystemMessageTable.h>

#include <algorithm>
#include <iterator>

namespace ZBase::os {

namespace {

struct SystemMessage {
    unsigned int code;
    const char* text;
};

constexpr SystemMessage kMessages[] = {
#include <Base/platform/os/shared/SystemMessages.inc>

#include <Base/platform/os/shared/SecurityAndNetworkMessages.inc>
};

static_assert(std::ranges::adjacent_find(kMessages, std::ranges::greater_equal(), &SystemMessage::code) ==
                  std::end(kMessages),
              "each code stands once, in ascending order");

}  // namespace

const char* FindSystemMessage(unsigned int code) {
    const SystemMessage* row = std::ranges::lower_bound(kMessages, code, {}, &SystemMessage::code);
    return row != std::end(kMessages) && row->code == code ? row->text : nullptr;
}

}  // namespace ZBase::os
