#include <Base/frame/Exceptions.h>
#include <Base/frame/WideLiteral.h>
#include <Base/platform/NameResolution.h>

#include <gtest/gtest.h>

#include <clocale>
#include <string>

#include "tests/scripted/ScriptedNetwork.h"
#include "tests/support/WideText.h"

namespace {

using namespace ZBase::Literals;
using test::gNetwork;
using test::Wide;
using ZBase::WideString;

constexpr ZBase::os::NetworkAddress kAddress{{10, 0, 0, 1}, 4, 0};

std::u16string Units(const WideString& text) {
    return std::u16string(text.begin(), text.end());
}

class NameResolutionOverScript : public testing::Test {
protected:
    NameResolutionOverScript() {
        gNetwork = {};
        gNetwork.any = {kAddress, kAddress, kAddress};
        gNetwork.ipv4 = gNetwork.any;
        std::setlocale(LC_CTYPE, "C.UTF-8");
    }
};

TEST_F(NameResolutionOverScript, AddressAsksForANameAndNameForANumber) {
    gNetwork.texts = {"name", "1.2.3.4"};
    EXPECT_EQ(Wide(ZBase::IPAddress2MachineName("10.0.0.1"_w).c_str()), u"name");
    EXPECT_FALSE(gNetwork.askedForNumber);
    EXPECT_EQ(gNetwork.askedName, "10.0.0.1");
    EXPECT_EQ(Wide(ZBase::MachineName2IPAddress("box"_w).c_str()), u"1.2.3.4");
    EXPECT_TRUE(gNetwork.askedForNumber);
    EXPECT_EQ(gNetwork.textCapacity, 1025u);
}

TEST_F(NameResolutionOverScript, FirstAddressWithATextCounts) {
    gNetwork.texts = {nullptr, "", "third"};
    EXPECT_EQ(Wide(ZBase::IPAddress2MachineName("x"_w).c_str()), u"third");
    gNetwork.described = 0;
    gNetwork.texts = {nullptr, "second", "third"};
    WideString out;
    EXPECT_EQ(ZBase::MachineName2IPv4Address("x"_w, out), 0);
    EXPECT_EQ(Units(out), u"second");
}

TEST_F(NameResolutionOverScript, InputComesBackWhenNoAddressHasAText) {
    gNetwork.texts = {nullptr, "", nullptr, nullptr, nullptr, "", "", "", ""};
    EXPECT_EQ(Wide(ZBase::IPAddress2MachineName("10.0.0.1"_w).c_str()), u"10.0.0.1");
    EXPECT_EQ(Wide(ZBase::MachineName2IPAddress("box"_w).c_str()), u"box");
    WideString out("before"_w);
    EXPECT_EQ(ZBase::MachineName2IPv4Address("box"_w, out), 0);  // 0 does not prove an address
    EXPECT_EQ(Units(out), u"box");
}

TEST_F(NameResolutionOverScript, InputComesBackWhenThereIsNoAddress) {
    gNetwork.any.clear();
    gNetwork.ipv4.clear();
    EXPECT_EQ(Wide(ZBase::MachineName2IPAddress("box"_w).c_str()), u"box");
    WideString out;
    EXPECT_EQ(ZBase::MachineName2IPv4Address("box"_w, out), 0);
    EXPECT_EQ(Units(out), u"box");
}

TEST_F(NameResolutionOverScript, NetworkThatDoesNotStartGivesTheInputOrItsCode) {
    gNetwork.startCode = 10091;
    EXPECT_EQ(Wide(ZBase::IPAddress2MachineName("10.0.0.1"_w).c_str()), u"10.0.0.1");
    EXPECT_EQ(Wide(ZBase::MachineName2IPAddress("box"_w).c_str()), u"box");
    WideString out("before"_w);
    EXPECT_EQ(ZBase::MachineName2IPv4Address("box"_w, out), 10091);
    EXPECT_EQ(Units(out), u"box");
    EXPECT_EQ(gNetwork.askedName, "");
}

class NameResolutionFailure : public NameResolutionOverScript,
                              public testing::WithParamInterface<unsigned int> {};

TEST_P(NameResolutionFailure, GivesTheInputOrTheUnchangedCode) {
    gNetwork.anyCode = GetParam();
    gNetwork.ipv4Code = GetParam();
    const int code = static_cast<int>(GetParam());
    EXPECT_EQ(Wide(ZBase::IPAddress2MachineName("10.0.0.1"_w).c_str()), u"10.0.0.1");
    EXPECT_EQ(Wide(ZBase::MachineName2IPAddress("box"_w).c_str()), u"box");
    WideString out("before"_w);
    EXPECT_EQ(ZBase::MachineName2IPv4Address("box"_w, out), code);
    EXPECT_EQ(Units(out), u"box");
    WideString url("before"_w);
    EXPECT_EQ(ZBase::ConvertServerNameURL2IpAddrURL("svc://box:1"_w, url), code);
    EXPECT_EQ(Units(url), u"svc://box:1");
    EXPECT_EQ(gNetwork.described, 0u);
}

// Bad flags, unknown name, try again, no recovery, no data, family, socket type, service, memory, overflow,
// in progress, cancelled, interrupted, and what the system itself reports.
INSTANTIATE_TEST_SUITE_P(Codes, NameResolutionFailure,
                         testing::Values(10022u, 11001u, 11002u, 11003u, 11004u, 10047u, 10044u, 10109u, 8u,
                                         122u, 10036u, 10103u, 10004u, 5u, 4u, 31u));

TEST_F(NameResolutionOverScript, NameThatTheLocaleCannotHoldThrowsOrGivesMinusOne) {
    std::setlocale(LC_CTYPE, "C");
    WideString out("before"_w);
    EXPECT_EQ(ZBase::MachineName2IPv4Address("b\u00F6x"_w, out), -1);
    EXPECT_EQ(Units(out), u"b\u00F6x");
    EXPECT_EQ(gNetwork.askedName, "");
    EXPECT_THROW(ZBase::MachineName2IPAddress("b\u00F6x"_w), ZBase::StringConversionException);
    EXPECT_THROW(ZBase::IPAddress2MachineName("b\u00F6x"_w), ZBase::StringConversionException);
    WideString url;
    EXPECT_EQ(ZBase::ConvertServerNameURL2IpAddrURL("svc://b\u00F6x:1"_w, url), -1);
    EXPECT_EQ(Units(url), u"svc://b\u00F6x:1");
}

TEST_F(NameResolutionOverScript, AnswerThatIsNoTextInTheLocaleThrows) {
    gNetwork.texts = {"\xFF"};
    EXPECT_THROW(ZBase::IPAddress2MachineName("10.0.0.1"_w), ZBase::StringConversionException);
}

TEST_F(NameResolutionOverScript, InputAndOutputMayBeOneString) {
    gNetwork.texts = {"10.0.0.1"};
    WideString text("box"_w);
    EXPECT_EQ(ZBase::MachineName2IPv4Address(text, text), 0);
    EXPECT_EQ(Units(text), u"10.0.0.1");
    gNetwork.ipv4Code = 11001;
    EXPECT_EQ(ZBase::MachineName2IPv4Address(text, text), 11001);
    EXPECT_EQ(Units(text), u"10.0.0.1");
    EXPECT_EQ(ZBase::ConvertServerNameURL2IpAddrURL(text, text), -1);
    EXPECT_EQ(Units(text), u"10.0.0.1");
}

TEST_F(NameResolutionOverScript, HostOfAUrlBecomesItsAddressAndTheTerminatorComesAlong) {
    gNetwork.texts = {"10.0.0.1", "10.0.0.1"};
    WideString out;
    EXPECT_EQ(ZBase::ConvertServerNameURL2IpAddrURL("svc://host:8080/path"_w, out), 0);
    EXPECT_EQ(Units(out), std::u16string(u"svc://10.0.0.1:8080/path\0", 25));
    EXPECT_EQ(gNetwork.askedName, "host");
    EXPECT_EQ(ZBase::ConvertServerNameURL2IpAddrURL("a:xxb:"_w, out), 0);  // only colons are parsed
    EXPECT_EQ(Units(out), std::u16string(u"svc://10.0.0.1:8080/path\0a:xx10.0.0.1:\0", 39));
    EXPECT_EQ(gNetwork.askedName, "b");
}

TEST_F(NameResolutionOverScript, UrlWithoutAHostAndAPortIsCopied) {
    for (const char* url :
         {"", "host", "svc://host/path", "svc:", ":", "::", "a::80", "a:/:80", "a::", "://host"}) {
        const std::string text(url);
        const WideString wide(text.begin(), text.end());
        WideString out("before"_w);
        EXPECT_EQ(ZBase::ConvertServerNameURL2IpAddrURL(wide, out), -1) << url;
        EXPECT_EQ(out, wide) << url;
    }
}

TEST_F(NameResolutionOverScript, EmptyHostIsLeftToTheResolver) {
    gNetwork.ipv4Code = 11001;
    WideString out;
    EXPECT_EQ(ZBase::ConvertServerNameURL2IpAddrURL("a://:80"_w, out), 11001);
    EXPECT_EQ(Units(out), u"a://:80");
}

TEST_F(NameResolutionOverScript, AnyAnswerOfTheParserButZeroIsAnAddress) {
    for (const int answer : {1, -1, 2}) {
        gNetwork.parsed = answer;
        EXPECT_TRUE(ZBase::IsValidIPAddress("x"));
    }
    gNetwork.parsed = 0;
    EXPECT_FALSE(ZBase::IsValidIPAddress("10.0.0.1"));
}

}  // namespace
