#include "tests/support/MessageSteps.h"

#include <algorithm>
#include <cstdio>
#include <string>
#include <string_view>
#include <vector>

namespace test {
namespace {

using ZBase::Message;

const char* OrNull(const std::string* text) {
    return text == nullptr ? nullptr : text->c_str();
}

std::u16string Widen(const std::string& text) {
    return std::u16string(text.begin(), text.end());
}

void SetWide(Message& message, const std::u16string& text) {
    const std::vector<unsigned short> units(text.begin(), text.end() + 1);
    message.SetMessage(units.data());
}

// A parameter, by any of the operands that hold text; they all mean the same.
void AddText(Choices& choices, Message& real, const std::string& text, const std::string* textOrNull) {
    const unsigned int operand = textOrNull == nullptr ? 0 : choices.Below(7);
    const std::u16string wide = Widen(text);
    const std::vector<unsigned short> units(wide.begin(), wide.end() + 1);
    switch (operand) {
        case 0:
            real << OrNull(textOrNull);
            break;
        case 1:
            real << std::string_view(text);
            break;
        case 2:
            real << text;
            break;
        case 3:
            real << ZBase::ReturnString(text.c_str());
            break;
        case 4:
            real << ZBase::ReturnWString(units.data());
            break;
        case 5:
            real << ZBase::ReturnUString(units.data());
            break;
        default:
            real << units.data();
            break;
    }
}

}  // namespace

void Edit(Choices& choices, Message& real, ModelMessage& model) {
    const unsigned int operation = choices.Below(11);
    const std::string text = choices.Text();
    const std::string* const textOrNull = choices.Below(4) == 0 ? nullptr : &text;
    const auto language = static_cast<unsigned short>(choices.Below(3));
    switch (operation) {
        case 0: {
            const unsigned short domain = choices.Short();
            const int id = static_cast<int>(choices.Word());
            real.SetDomainAndID(domain, id);
            model.SetDomainAndID(domain, id);
            break;
        }
        case 1:
            real.SetTemplate(OrNull(textOrNull));
            model.SetTemplate(textOrNull);
            break;
        case 2:
            real.SetLocalizedText(language, OrNull(textOrNull));
            model.SetLocalizedText(language, textOrNull);
            break;
        case 3:
            SetWide(real, Widen(text));
            model.SetMessage(Widen(text), text);
            break;
        case 4:
            AddText(choices, real, text, textOrNull);
            model.AddParameter(textOrNull == nullptr ? "" : text);
            break;
        case 5: {
            const bool value = choices.Flag();
            real << value;
            model.AddParameter(value ? "true" : "false");
            break;
        }
        case 6: {
            const std::uint32_t value = choices.Word();
            if (language == 0) {
                choices.Flag() ? real << static_cast<int>(value) : real << static_cast<long>(value);
            } else {
                choices.Flag() ? real << value : real << static_cast<unsigned long>(value);
            }
            model.AddNumber(value, language == 0);
            break;
        }
        case 7: {
            const std::uint64_t value = std::uint64_t{choices.Word()} << 32 | choices.Word();
            if (language == 0) {
                real << static_cast<long long>(value);
            } else {
                real << static_cast<unsigned long long>(value);
            }
            model.AddLongNumber(value, language == 0);
            break;
        }
        case 8: {
            // Exact in the six digits that the C library prints.
            const double value = (static_cast<int>(choices.Below(256)) - 128) / 8.0;
            char digits[32];
            std::snprintf(digits, sizeof digits, "%g", value);
            real << value;
            model.AddParameter(digits);
            break;
        }
        case 9:
            real << Message::Hex << Message::WideHex;
            model.SetNumberFormat(16, 8);
            break;
        default:
            real << (language == 0 ? Message::Dec : Message::WideWideHex);
            model.SetNumberFormat(language == 0 ? 10 : 16, language == 0 ? 0 : 16);
            break;
    }
}

std::size_t TotalCapacity(const ModelMessage& model) {
    std::size_t total = 0;
    for (const ModelBlock& block : model.blocks) total += block.capacity;
    return total;
}

void Rewrite(unsigned int operation, Choices& choices, Message& real, ModelMessage& model, Specimen& other) {
    const std::string text = choices.Text();
    const std::string* const textOrNull = choices.Below(4) == 0 ? nullptr : &text;
    if (TotalCapacity(model) + TotalCapacity(other.model) > 12000) operation = 0;
    switch (operation) {
        case 0:
            real.Clear();
            model.Clear();
            break;
        case 1:
            real = other.Real();
            model.Assign(other.model);
            break;
        case 2:
        case 3:
            real.Swap(other.Real());
            if (&model != &other.model) model.Swap(other.model);
            break;
        case 4:
        case 5:
            real.WrapBy(300, 43, OrNull(textOrNull));
            model.Nest(5, 300, 43, textOrNull);
            break;
        case 6:
        case 7:
            real.PrependBy(10, 2, OrNull(textOrNull));
            model.Nest(4, 10, 2, textOrNull);
            break;
        default: {
            const ModelMessage copy = other.model;
            ModelMessage compact;
            compact.CopyFrom(copy, {0});
            real.PrependBy(other.Real());
            model.Prepend(&model == &other.model ? compact : copy);
            break;
        }
    }
}

}  // namespace test
