#pragma once

#include <algorithm>
#include <cstddef>
#include <string>
#include <vector>

namespace test {

/// A slow merge of parameters into a template, which is consumed from the front, piece by piece.
inline std::string SlowlyMerged(std::string text, const std::vector<std::string>& parameters) {
    const std::size_t addressable = std::min<std::size_t>(parameters.size(), 9);
    std::vector<bool> used(parameters.size(), false);
    std::string result;
    while (!text.empty()) {
        const std::string pair = text.substr(0, 2);
        std::string replacement = pair;
        if (pair[0] != '%') {
            replacement = pair.substr(0, 1);
            text.erase(0, 1);
        } else {
            text.erase(0, 2);
            if (pair == "%%") replacement = "%";
            for (std::size_t number = 1; number <= addressable; ++number) {
                if (pair != "%" + std::to_string(number)) continue;
                replacement = parameters[number - 1];
                used[number - 1] = true;
            }
        }
        result += replacement;
    }
    for (std::size_t i = 0; i != parameters.size(); ++i) {
        if (!used[i]) result += "[" + parameters[i] + "]";
    }
    return result;
}

}  // namespace test
