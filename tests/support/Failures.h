#pragma once

#include <Base/frame/Exceptions.h>

#include <gtest/gtest.h>

#include <string>

namespace test {

/// The text of the `ExceptionImpl<StringConversionException>` that `operation()` throws, which must have
/// domain 0 and id -1; empty if it throws nothing.
template <class Operation>
std::string ConversionFailure(Operation operation) {
    try {
        operation();
    } catch (const ZBase::ExceptionImpl<ZBase::StringConversionException>& failure) {
        EXPECT_EQ(failure.GetDomain(), 0);
        EXPECT_EQ(failure.GetID(), -1);
        const char* text = failure.GetLocalizedText(0);
        return text == nullptr ? "(no text)" : text;
    }
    return {};
}

}  // namespace test
