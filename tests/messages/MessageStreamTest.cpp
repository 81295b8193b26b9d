#include <Base/ZBase.h>

#include <gtest/gtest.h>

#include <iomanip>
#include <sstream>
#include <string>

using ZBase::Message;

namespace {

Message Filled() {
    Message message(300, 42, "Cannot open %1");
    message << "x";
    message.WrapBy(300, 43, "outer");
    return message;
}

constexpr const char* kText = "outer (Server message 43)\tCannot open x (Server message 42)";

}  // namespace

TEST(MessageStream, WritesTheWholeTree) {
    std::ostringstream stream;
    stream << Filled() << '!';
    EXPECT_EQ(stream.str(), std::string(kText) + "!");
}

TEST(MessageStream, ObeysWhatTheStreamWasToldOfTexts) {
    std::ostringstream stream;
    stream << std::left << std::setw(40) << std::setfill('.') << Message();
    EXPECT_EQ(stream.str(), "Unknown error. (Unknown message 0)......");
}

TEST(MessageStream, WritesExceptionsToo) {
    std::ostringstream stream;
    stream << ZBase::ExceptionImpl<ZBase::BufferException>(Filled());
    EXPECT_EQ(stream.str(), kText);
}
