#pragma once

#include <Base/frame/Exceptions.h>

#include <cstdio>
#include <cstdlib>
#include <string>

namespace fuzz {

/// Ends the fuzzer, which keeps the input.
inline void Check(bool holds, const char* what) {
    if (holds) return;
    std::fprintf(stderr, "%s\n", what);
    std::abort();
}

/// The text of the `StringConversionException` that `operation()` throws; empty if it throws nothing.
template <class Operation>
std::string Failure(Operation operation) {
    try {
        operation();
    } catch (const ZBase::ExceptionImpl<ZBase::StringConversionException>& failure) {
        Check(failure.GetDomain() == 0 && failure.GetID() == -1, "domain or id of a failure");
        return failure.GetLocalizedText(0);
    }
    return {};
}

}  // namespace fuzz
