#define FMT_HEADER_ONLY  // where fmt is installed, its library need not be linked
#include <Base/ZBase.h>

#include <gtest/gtest.h>

using ZBase::Message;

namespace {

[[maybe_unused]] Message Filled() {
    Message message(300, 42, "Cannot open %1");
    message << "x";
    message.WrapBy(300, 43, "outer");
    return message;
}

}  // namespace

#if defined(__cpp_lib_format)
TEST(MessageFormatter, OfTheLanguageFormatsMessagesAndExceptions) {
    EXPECT_EQ(std::format("<{}>", Filled()),
              "<outer (Server message 43)\tCannot open x (Server message 42)>");
    EXPECT_EQ(std::format("{:.5}", ZBase::ExceptionImpl<ZBase::BufferException>(Filled())), "outer");
}
#endif

#if __has_include(<fmt/format.h>)
TEST(MessageFormatter, OfFmtFormatsMessagesAndExceptions) {
    EXPECT_EQ(fmt::format("<{}>", Filled()),
              "<outer (Server message 43)\tCannot open x (Server message 42)>");
    EXPECT_EQ(fmt::format("{:.5}", ZBase::ExceptionImpl<ZBase::BufferException>(Filled())), "outer");
}
#endif
