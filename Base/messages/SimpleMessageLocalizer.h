#pragma once

#include <Base/frame/Api.h>
#include <Base/messages/Message.h>

namespace ZBase {

/// Makes English text without a catalogue: the system's own description for its domains, otherwise the
/// template with the parameters merged in, followed by the domain's name and the id in brackets.
class ZBASE_API SimpleMessageLocalizer : public virtual Message::Localizer {
public:
    /// Only the descriptions of domain `MESSAGE_DOMAIN_WIN32_API` depend on `language`. Never a null string.
    ReturnString LocalizeText(unsigned short language, unsigned short domain, int id,
                              const char* textTemplate, const char* const* parameters) override;
};

}  // namespace ZBase
