#pragma once

#include <algorithm>
#include <cstddef>
#include <cstring>
#include <string_view>

/// Octets of a file that anybody may have made: what would stand beyond their end is 0, or empty.
class Octets {
public:
    Octets() = default;
    explicit Octets(std::string_view content) : mContent(content) {}

    std::size_t Size() const { return mContent.size(); }

    template <class T>
    T Number(std::size_t at) const {
        T number = 0;
        if (at <= Size() && Size() - at >= sizeof number)
            std::memcpy(&number, mContent.data() + at, sizeof number);
        return number;
    }

    /// Up to a zero.
    std::string_view Text(std::size_t at, std::size_t most) const {
        const std::string_view text = Part(at, most).mContent;
        return text.substr(0, text.find('\0'));
    }

    Octets Part(std::size_t at, std::size_t size) const {
        return Octets(mContent.substr(std::min(at, Size()), size));
    }

    std::string_view Content() const { return mContent; }

private:
    std::string_view mContent;
};
