#pragma once

#include <Base/frame/WideString.h>

#include <cstddef>
#include <memory>
#include <random>
#include <string>
#include <string_view>
#include <utility>

#include "tests/growth/Row.h"

namespace test {

using Units = std::basic_string<unsigned short>;

/// Random numbers that are the same each time.
inline std::mt19937 Numbers(std::size_t seed) {
    return std::mt19937(static_cast<std::mt19937::result_type>(seed));
}

/// A text as often as it fits into a length, at least once.
inline std::string Repeated(std::string_view text, std::size_t length) {
    std::string all;
    all.reserve(length + text.size());
    do all += text;
    while (all.size() + text.size() <= length);
    return all;
}

inline Units ToUnits(std::string_view text) {
    Units units;
    for (const char c : text) units += static_cast<unsigned char>(c);
    return units;
}

/// The same as the library's own string.
inline ZBase::WideString ToWide(std::string_view text) {
    const Units units = ToUnits(text);
    return ZBase::WideString(units.c_str(), units.size());
}

/// A text with a number at its end, as names are.
inline std::string Numbered(std::string_view text, std::size_t number) {
    return std::string(text) + std::to_string(number);
}

/// A job over an input that lives as long as the job.
template <class Input, class Run>
Job Over(Input input, Run run) {
    return [held = std::make_shared<Input>(std::move(input)), run = std::move(run)] { run(*held); };
}

/// Calls, and takes a refusal for a result.
template <class Call>
void Try(Call call) {
    try {
        call();
    } catch (const std::exception&) {
    } catch (...) {
    }
}

}  // namespace test
