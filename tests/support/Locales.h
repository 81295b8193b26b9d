#pragma once

#include <string>

namespace test {

/// Moves the process to a locale such as "de_DE.ISO-8859-1" while it lives. The locale is compiled from the
/// system's sources for this process alone, so that it need not be installed.
class ScopedLocale {
public:
    explicit ScopedLocale(const std::string& name);

    /// Only the encoding, with characters of up to `longest` octets according to the locale. It is compiled
    /// from a character map of ASCII only, which is fast: the C library converts by the name.
    ScopedLocale(const std::string& encoding, int longest);

    ~ScopedLocale();
    ScopedLocale(const ScopedLocale&) = delete;
    ScopedLocale& operator=(const ScopedLocale&) = delete;

private:
    void Set(const std::string& name);

    std::string mPrevious;
};

}  // namespace test
