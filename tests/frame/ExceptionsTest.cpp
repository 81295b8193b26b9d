#include <Base/ZBase.h>

#include <gtest/gtest.h>

#include <exception>
#include <string>
#include <type_traits>

namespace {

using namespace ZBase::Literals;
using ZBase::ExceptionImpl;
using ZBase::Message;

template <class Thrown>
Thrown Filled() {
    Thrown failure;
    failure.SetDomainAndID(0, -1);
    failure.SetMessage("Attempted to allocate on a locked buffer."_w);
    return failure;
}

// Which of the handlers, tried in this order, catches a `Thrown`.
template <class Thrown, class First, class Second>
std::string CaughtAs() {
    try {
        throw Filled<Thrown>();
    } catch (const First&) {
        return "first";
    } catch (const Second&) {
        return "second";
    } catch (...) {
        return "neither";
    }
}

template <class Marker>
class ExceptionsOfAMarkerClass : public testing::Test {};

using Markers =
    testing::Types<ZBase::BufferException, ZBase::ContractManagerAllocException, ZBase::MemGoverningException,
                   ZBase::AppGlobalEventReporterException, ZBase::StringConversionException>;
TYPED_TEST_SUITE(ExceptionsOfAMarkerClass, Markers);

TYPED_TEST(ExceptionsOfAMarkerClass, AddsNothingToAMessage) {
    EXPECT_EQ(sizeof(TypeParam), sizeof(Message));
    EXPECT_EQ(sizeof(ExceptionImpl<TypeParam>), sizeof(Message));
    EXPECT_FALSE(std::is_polymorphic_v<ExceptionImpl<TypeParam>>);
    EXPECT_FALSE((std::is_base_of_v<std::exception, TypeParam>));
}

TYPED_TEST(ExceptionsOfAMarkerClass, WrappedIsCaughtByEachOfItsThreeTypes) {
    EXPECT_EQ((CaughtAs<ExceptionImpl<TypeParam>, ExceptionImpl<TypeParam>, Message>()), "first");
    EXPECT_EQ((CaughtAs<ExceptionImpl<TypeParam>, TypeParam, Message>()), "first");
    EXPECT_EQ((CaughtAs<ExceptionImpl<TypeParam>, std::exception, Message>()), "second");
}

TYPED_TEST(ExceptionsOfAMarkerClass, PlainIsNotCaughtAsWrapped) {
    EXPECT_EQ((CaughtAs<TypeParam, ExceptionImpl<TypeParam>, Message>()), "second");
    EXPECT_EQ((CaughtAs<TypeParam, TypeParam, Message>()), "first");
}

TYPED_TEST(ExceptionsOfAMarkerClass, CarriesItsContentThroughTheThrow) {
    try {
        throw Filled<ExceptionImpl<TypeParam>>();
    } catch (const Message& failure) {
        EXPECT_EQ(failure.GetDomain(), 0);
        EXPECT_EQ(failure.GetID(), -1);
        EXPECT_STREQ(failure.GetLocalizedText(0), "Attempted to allocate on a locked buffer.");
    }
}

TYPED_TEST(ExceptionsOfAMarkerClass, TakesDomainIdAndTemplate) {
    const TypeParam failure(300, -2147418588, "%1 refused");
    EXPECT_EQ(failure.GetDomain(), 300);
    EXPECT_EQ(failure.GetErrorCode(), 0x8000FE24u);
    EXPECT_STREQ(failure.GetTemplate(), "%1 refused");
}

TEST(ExceptionsOfMarkerClasses, AreToldApart) {
    EXPECT_EQ((CaughtAs<ExceptionImpl<ZBase::BufferException>, ZBase::ContractManagerAllocException,
                        ZBase::MemGoverningException>()),
              "neither");
}

TEST(ExceptionsImpl, OfAPlainMessageIsCaughtAsMessage) {
    EXPECT_EQ((CaughtAs<ExceptionImpl<Message>, ZBase::BufferException, Message>()), "second");
}

}  // namespace
