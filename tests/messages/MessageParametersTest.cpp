#include "tests/support/Allocations.h"

#include <Base/messages/MessageParameters.h>

#include <gtest/gtest.h>

#include <algorithm>
#include <iterator>
#include <ranges>
#include <string>
#include <type_traits>
#include <vector>

using ZBase::Message;
using ZBase::MessageParameters;

namespace {

static_assert(std::forward_iterator<MessageParameters::Iterator>);
static_assert(std::ranges::forward_range<MessageParameters>);
static_assert(!std::is_constructible_v<MessageParameters, Message>);
static_assert(!std::is_constructible_v<MessageParameters, const Message>);

std::vector<std::string> All(const Message& message) {
    std::vector<std::string> all;
    for (const char* parameter : MessageParameters(message)) all.emplace_back(parameter);
    return all;
}

}  // namespace

TEST(MessageParameters, OfAMessageWithoutAnyIsEmpty) {
    const Message message(300, 42, "none");
    EXPECT_EQ(All(message), std::vector<std::string>());
    EXPECT_EQ(message.GetParameterCount(), 0u);
    const Message empty;
    EXPECT_TRUE(MessageParameters(empty).begin() == std::default_sentinel);
}

TEST(MessageParameters, GivesAllInTheirOrderAcrossBlocksAndRecordsOfOtherKinds) {
    Message message;
    std::vector<std::string> expected;
    for (int i = 0; i != 50; ++i) {
        expected.push_back(std::string(static_cast<std::size_t>(i * 7 % 150), 'p') + std::to_string(i));
        message << expected.back();
        if (i % 10 == 5) message.SetTemplate(std::string(static_cast<std::size_t>(i) * 3, 't').c_str());
        if (i == 20) message.SetDomainAndID(300, 1);
    }
    EXPECT_EQ(All(message), expected);
    EXPECT_EQ(message.GetParameterCount(), 50u);
}

TEST(MessageParameters, DoesNotGiveThoseOfNestedMessages) {
    Message message(300, 42, "inner %1");
    message << "inner";
    message.WrapBy(300, 43, "outer %1") << "outer";
    EXPECT_EQ(All(message), std::vector<std::string>{"outer"});
    EXPECT_EQ(message.GetParameterCount(), 1u);
}

TEST(MessageParameters, AllocatesNothingAndCanBeReadTwice) {
    Message message;
    for (int i = 0; i != 100; ++i) message << i;
    const MessageParameters parameters(message);
    const std::size_t before = test::AllocationCount();
    EXPECT_EQ(std::ranges::distance(parameters), 100);
    EXPECT_EQ(std::ranges::distance(parameters), 100);
    EXPECT_EQ(test::AllocationCount(), before);
    EXPECT_STREQ(*std::ranges::find_if(parameters, [](const char* text) { return text[0] == '7'; }), "7");
}

TEST(MessageParameters, IteratorThatIsSteppedInPassingStillGivesWhereItWas) {
    Message message;
    message << "first"
            << "second";
    MessageParameters::Iterator at = MessageParameters(message).begin();
    const MessageParameters::Iterator first = at++;
    EXPECT_STREQ(*first, "first");
    EXPECT_STREQ(*at, "second");
    EXPECT_FALSE(first == at);
    EXPECT_STREQ(*at++, "second");
    EXPECT_TRUE(at == std::default_sentinel);
}
