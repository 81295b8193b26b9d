#include "tests/support/Allocations.h"
#include "tests/support/MessageBytes.h"

#include <Base/frame/Exceptions.h>

#include <gtest/gtest.h>

#include <exception>

using ZBase::ExceptionImpl;
using ZBase::Message;

namespace {

template <class Exception>
Exception Filled() {
    Exception exception(300, 42, "Cannot open %1");
    exception << "x";
    return exception;
}

template <class Exception>
class MessageException : public testing::Test {};

using Exceptions =
    testing::Types<ZBase::BufferException, ZBase::ContractManagerAllocException, ZBase::MemGoverningException,
                   ZBase::AppGlobalEventReporterException, ZBase::StringConversionException, Message>;
TYPED_TEST_SUITE(MessageException, Exceptions);

template <class Thrown, class Caught>
void ThrowAndCatch() {
    const Thrown thrown = Filled<Thrown>();
    const std::size_t before = test::AllocationCount();
    try {
        throw Thrown(thrown);
    } catch (const Caught& caught) {
        EXPECT_EQ(test::AllocationCount(), before);
        EXPECT_EQ(test::Layout(&caught), "100-44: 13#1 20#2 7#3");
        EXPECT_STREQ(caught.GetParameter(0), "x");
    }
}

}  // namespace

TYPED_TEST(MessageException, AddsNothingToAMessage) {
    EXPECT_EQ(sizeof(TypeParam), sizeof(Message));
    EXPECT_EQ(sizeof(ExceptionImpl<TypeParam>), sizeof(Message));
    EXPECT_FALSE(std::is_polymorphic_v<ExceptionImpl<TypeParam>>);
    EXPECT_FALSE((std::is_base_of_v<std::exception, TypeParam>));
}

TYPED_TEST(MessageException, IsCaughtAsItselfAndAsAMessageWithoutTheHeap) {
    ThrowAndCatch<TypeParam, TypeParam>();
    ThrowAndCatch<TypeParam, Message>();
    ThrowAndCatch<ExceptionImpl<TypeParam>, ExceptionImpl<TypeParam>>();
    ThrowAndCatch<ExceptionImpl<TypeParam>, TypeParam>();
    ThrowAndCatch<ExceptionImpl<TypeParam>, Message>();
}

TYPED_TEST(MessageException, ThrownDirectlyItIsNotAnExceptionImpl) {
    bool caughtAsImpl = false;
    try {
        throw Filled<TypeParam>();
    } catch (const ExceptionImpl<TypeParam>&) {
        caughtAsImpl = true;
    } catch (const Message&) {
    }
    EXPECT_FALSE(caughtAsImpl);
}

TYPED_TEST(MessageException, WithAChainIsThrownAndFreed) {
    const std::size_t live = test::LiveBlocks();
    try {
        ExceptionImpl<TypeParam> exception(300, 42, "text");
        exception << std::string(500, 'x').c_str();
        exception.WrapBy(300, 43, "outer");
        throw exception;
    } catch (Message& caught) {
        EXPECT_EQ(test::FindFlaw(&caught), nullptr);
        EXPECT_EQ(std::string(caught.GetLowerLevelMessageOrNULL()->GetParameter(0)).size(), 500u);
        caught.WrapBy(300, 44, "at the top");
    }
    EXPECT_EQ(test::LiveBlocks(), live);
}
