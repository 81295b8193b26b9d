#pragma once

#include <string>

#include "tests/support/MessageSteps.h"

namespace test {

/// A walk by a cursor, with operations on the messages that it passes, and its model. The first difference,
/// or empty.
std::string ReadWithCursor(Choices& choices, Specimen& specimen, Specimen& other);
std::string WriteWithCursor(Choices& choices, Specimen& specimen, Specimen& other);

}  // namespace test
