#pragma once

#include <string>

namespace test {

/// Moves the process to a locale such as "de_DE.ISO-8859-1" while it lives. The locale is compiled from the
/// system's sources for this process alone, so that it need not be installed.
class ScopedLocale {
public:
    explicit ScopedLocale(const std::string& name);
    ~ScopedLocale();
    ScopedLocale(const ScopedLocale&) = delete;
    ScopedLocale& operator=(const ScopedLocale&) = delete;

private:
    std::string mPrevious;
};

}  // namespace test
