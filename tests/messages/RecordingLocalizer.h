#pragma once

#include <Base/messages/Message.h>
#include <Base/messages/MessageFormat.h>

#include <string>
#include <vector>

namespace test {

/// Returns one text for every message and records its arguments.
class RecordingLocalizer : public ZBase::Message::Localizer {
public:
    static constexpr const char* kNull = "(null)";

    struct Call {
        unsigned short language;
        unsigned short domain;
        int id;
        std::string textTemplate;
        std::vector<std::string> parameters;
    };

    explicit RecordingLocalizer(const char* text) : mText(text) {}

    ZBase::ReturnString LocalizeText(unsigned short language, unsigned short domain, int id,
                                     const char* textTemplate, const char* const* parameters) override {
        Call call{language, domain, id, textTemplate == nullptr ? kNull : textTemplate, {}};
        for (; *parameters != nullptr; ++parameters) call.parameters.emplace_back(*parameters);
        calls.push_back(call);
        return ZBase::ReturnString(mText);
    }

    std::vector<Call> calls;

private:
    const char* mText;
};

/// The text of the tree without a catalogue.
inline std::string FormatSimply(const ZBase::Message& message, unsigned short language) {
    return ZBase::FormatMessage(message, language).c_str();
}

}  // namespace test
