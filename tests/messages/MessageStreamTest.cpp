#define FMT_HEADER_ONLY  // where fmt is installed, its library need not be linked
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

#if defined(__cpp_lib_format)
TEST(MessageFormatter, OfTheLanguageFormatsMessagesAndExceptions) {
    EXPECT_EQ(std::format("<{}>", Filled()), std::string("<") + kText + ">");
    EXPECT_EQ(std::format("{:.5}", ZBase::ExceptionImpl<ZBase::BufferException>(Filled())), "outer");
}
#endif

#if __has_include(<fmt/format.h>)
TEST(MessageFormatter, OfFmtFormatsMessagesAndExceptions) {
    EXPECT_EQ(fmt::format("<{}>", Filled()), std::string("<") + kText + ">");
    EXPECT_EQ(fmt::format("{:.5}", ZBase::ExceptionImpl<ZBase::BufferException>(Filled())), "outer");
}
#endif
