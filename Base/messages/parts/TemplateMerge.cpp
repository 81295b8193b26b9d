#include <Base/messages/MessageFormat.h>
#include <Base/messages/detail/MessageLine.h>
#include <Base/text/detail/ResultText.h>

#include <cstddef>
#include <cstring>
#include <limits>
#include <new>
#include <string>

namespace ZBase {

// One function produces the text twice: first into a sink that only counts, then into a block of exactly that
// size, so there is one allocation and the two can't differ.

namespace {

constexpr std::size_t kAddressable = 9;  // "%1" to "%9"

class Measure {
public:
    void Append(const char*, std::size_t length) {
        if (length > std::numeric_limits<std::size_t>::max() - mTotal) throw std::bad_array_new_length();
        mTotal += length;
    }
    std::size_t Total() const { return mTotal; }

private:
    std::size_t mTotal = 0;
};

class Writer {
public:
    explicit Writer(char* destination) : mpEnd(destination) {}
    void Append(const char* text, std::size_t length) {
        std::memcpy(mpEnd, text, length);
        mpEnd += length;
    }

private:
    char* mpEnd;
};

class Appender {
public:
    explicit Appender(std::string& text) : mText(text) {}
    void Append(const char* text, std::size_t length) { mText.append(text, length); }

private:
    std::string& mText;
};

struct Parameters {
    explicit Parameters(const char* const all[]) {
        if (all == nullptr) return;
        for (; count != kAddressable && all[count] != nullptr; ++count) {
            text[count] = all[count];
            length[count] = std::strlen(all[count]);
        }
        if (count == kAddressable) further = all + kAddressable;
    }

    const char* text[kAddressable];
    std::size_t length[kAddressable];
    std::size_t count = 0;
    const char* const* further =
        nullptr;  // from the tenth on, ended by a null pointer; null if fewer than nine
};

template <class Sink>
void AppendInBrackets(const char* text, std::size_t length, Sink& sink) {
    sink.Append("[", 1);
    sink.Append(text, length);
    sink.Append("]", 1);
}

template <class Sink>
void Merge(const char* text, const Parameters& parameters, Sink& sink) {
    bool used[kAddressable] = {};
    const char* percent = std::strchr(text, '%');
    for (; percent != nullptr && percent[1] != 0; percent = std::strchr(text, '%')) {
        sink.Append(text, static_cast<std::size_t>(percent - text));
        const auto index = static_cast<std::size_t>(static_cast<unsigned char>(percent[1])) - '1';
        if (index < parameters.count) {
            sink.Append(parameters.text[index], parameters.length[index]);
            used[index] = true;
        } else {
            sink.Append(percent, percent[1] == '%' ? 1 : 2);
        }
        text = percent + 2;
    }
    sink.Append(text, std::strlen(text));

    for (std::size_t i = 0; i != parameters.count; ++i) {
        if (!used[i]) AppendInBrackets(parameters.text[i], parameters.length[i], sink);
    }
    if (parameters.further == nullptr) return;
    for (const char* const* next = parameters.further; *next != nullptr; ++next) {
        AppendInBrackets(*next, std::strlen(*next), sink);
    }
}

}  // namespace

void detail::AppendMerged(std::string& text, const char* textTemplate, const char* const parameters[]) {
    Appender appender(text);
    Merge(textTemplate == nullptr ? "" : textTemplate, Parameters(parameters), appender);
}

ReturnString MergeParametersIntoTemplate(const char* textTemplate, const char* const parameters[]) {
    if (textTemplate == nullptr) textTemplate = "";
    const Parameters collected(parameters);
    Measure measure;
    Merge(textTemplate, collected, measure);
    detail::Unfinished<ReturnString> result(measure.Total());
    Writer writer(result.Get());
    Merge(textTemplate, collected, writer);
    return result.Finish(result.Get() + measure.Total());
}

}  // namespace ZBase
