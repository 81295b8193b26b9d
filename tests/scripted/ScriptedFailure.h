#pragma once

#include <Base/frame/Exceptions.h>

#include <gtest/gtest.h>

#include <string>

#include "tests/scripted/ScriptedSystemErrors.h"
#include "tests/support/WideText.h"

namespace test {

/// Sets the system's last code to `code`, with `text` as its description.
inline void SetSystemError(unsigned int code, const std::string& text) {
    gSystemErrors = {};
    gSystemErrors.text = ToUnits(text + "\r\n");
    gSystemErrors.result = static_cast<unsigned int>(text.size() + 2);
    gSystemErrors.lastCode = code;
    gSystemErrors.codeAfter = code;
}

/// Expects `operation()` to throw `ExceptionImpl<Message>` of domain 0 with this id and text.
template <class Operation>
void ExpectFailure(Operation operation, int id, const std::u16string& text) {
    try {
        operation();
        ADD_FAILURE() << "nothing was thrown";
    } catch (const ZBase::ExceptionImpl<ZBase::Message>& failure) {
        EXPECT_EQ(failure.GetDomain(), 0);
        EXPECT_EQ(failure.GetID(), id);
        EXPECT_EQ(Wide(failure.GetMessage()), text);
    }
}

}  // namespace test
