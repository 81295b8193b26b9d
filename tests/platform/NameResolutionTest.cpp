#include <Base/ZBase.h>

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "tests/support/ChildProcess.h"
#include "tests/support/ScratchFolder.h"

namespace {

using test::ChildResult;
using test::RunChild;

constexpr char kHosts[] =
    "127.0.0.1 localhost\n"
    "127.0.1.1 box.example.com box\n"
    "10.0.0.1 single.example.com single host\n"
    "10.0.0.2 several.example.com several\n"
    "10.0.0.3 several.example.com several\n"
    "2001:db8::7 six.example.com six\n"
    "10.0.0.5 b\u00F6x\n";

enum class EHost { OfItsOwn, StandIn };

// A host that has the file above and no other source of names: in namespaces of its own, if the machine
// permits that, and always with a stand-in for the resolver.
class NameResolutionOfAHost : public test::ScratchFolder, public testing::WithParamInterface<EHost> {
protected:
    void SetUp() override {
        Write("hosts", kHosts);
        Write("nsswitch.conf", "passwd: files\nhosts: files\n");
        if (GetParam() == EHost::OfItsOwn && Ask("computer") != "box") {
            GTEST_SKIP() << "no namespaces here; the stand-in shows the same";
        }
    }

    std::string Ask(const std::string& question, const std::string& argument = "",
                    const std::string& locale = "C.UTF-8") const {
        const std::vector<std::string> environment = {
            "LC_ALL=" + locale, "ZBASE_TEST_HOSTS=" + (mFolder / "hosts").string(),
            "ZBASE_TEST_NODE=" + mNode, "ZBASE_TEST_INTERFACE=" + mInterface};
        if (GetParam() == EHost::StandIn) {
            return RunChild({test::ChildProgram("StandInHostProbe"), question, argument}, environment).output;
        }
        const std::string enter = "cd " + mFolder.string() +
                                  " && mount --bind hosts /etc/hosts && touch /etc/nsswitch.conf && "
                                  "mount --bind nsswitch.conf /etc/nsswitch.conf && hostname " +
                                  mNode + " && exec \"$@\"";
        return RunChild({"/usr/bin/unshare", "--mount", "--net", "--uts", "/bin/sh", "-c", enter, "sh",
                         test::ChildProgram("HostProbe"), question, argument},
                        environment)
            .output;
    }

    std::string mNode = "box";
    std::string mInterface;  // the address of the one that the stand-in has beside the loopback
};

INSTANTIATE_TEST_SUITE_P(Hosts, NameResolutionOfAHost, testing::Values(EHost::OfItsOwn, EHost::StandIn),
                         [](const auto& host) {
                             return host.param == EHost::OfItsOwn ? "OfItsOwn" : "StandIn";
                         });

TEST_P(NameResolutionOfAHost, AddressGivesItsName) {
    EXPECT_EQ(Ask("ip2name", "10.0.0.1"), "single.example.com");
    EXPECT_EQ(Ask("ip2name", "10.0.0.3"), "several.example.com");
    EXPECT_EQ(Ask("ip2name", "2001:DB8:0::7"), "six.example.com");
}

TEST_P(NameResolutionOfAHost, AddressWithoutANameGivesItsNumber) {
    EXPECT_EQ(Ask("ip2name", "10.9.9.9"), "10.9.9.9");
    EXPECT_EQ(Ask("ip2name", "2001:DB8:0::99"), "2001:db8::99");
}

TEST_P(NameResolutionOfAHost, NameForAnAddressGivesTheCanonicalName) {
    EXPECT_EQ(Ask("ip2name", "single"), "single.example.com");
}

TEST_P(NameResolutionOfAHost, NameGivesItsFirstAddressOfAnyFamily) {
    EXPECT_EQ(Ask("name2ip", "single"), "10.0.0.1");
    EXPECT_EQ(Ask("name2ip", "several"), "10.0.0.2");
    EXPECT_EQ(Ask("name2ip", "six"), "2001:db8::7");
    EXPECT_EQ(Ask("name2ip", "10.0.0.1"), "10.0.0.1");
    EXPECT_EQ(Ask("name2ip", "b\u00F6x"), "10.0.0.5");
}

TEST_P(NameResolutionOfAHost, AddressOfALinkSaysWhichLink) {
    if (GetParam() == EHost::StandIn) GTEST_SKIP() << "the stand-in has no links";
    EXPECT_EQ(Ask("name2ip", "fe80::1%1"), "fe80::1%lo");
    EXPECT_EQ(Ask("ip2name", "fe80::1%1"), "fe80::1%lo");
}

TEST_P(NameResolutionOfAHost, WhatDoesNotResolveComesBack) {
    EXPECT_EQ(Ask("name2ip", "missing"), "missing");
    EXPECT_EQ(Ask("ip2name", "missing"), "missing");
    EXPECT_EQ(Ask("name2ip", ""), "");
    EXPECT_EQ(Ask("name2ip", "a b"), "a b");
}

TEST_P(NameResolutionOfAHost, IPv4AddressComesWithItsCode) {
    EXPECT_EQ(Ask("name2ipv4", "single"), "0 10.0.0.1");
    EXPECT_EQ(Ask("name2ipv4", "several"), "0 10.0.0.2");
    EXPECT_EQ(Ask("name2ipv4", "missing"), "11001 missing");
}

TEST_P(NameResolutionOfAHost, IPv4AddressOfAHostWithIPv6OnlyIsARefusal) {
    const std::string answer = Ask("name2ipv4", "six");
    EXPECT_TRUE(answer == "11001 six" || answer == "11004 six") << answer;  // unknown, or without such data
}

TEST_P(NameResolutionOfAHost, NameThatTheLocaleCannotHoldIsRefused) {
    EXPECT_EQ(Ask("name2ipv4", "b\u00F6x", "C"), "-1 b\u00F6x");
    EXPECT_EQ(Ask("name2ip", "b\u00F6x", "C").rfind("thrown: ", 0), 0u);
    EXPECT_EQ(Ask("ip2name", "b\u00F6x", "C").rfind("thrown: ", 0), 0u);
}

TEST_P(NameResolutionOfAHost, HostOfAUrlBecomesItsAddress) {
    EXPECT_EQ(Ask("url", "svc://host:8080/path"), "0 svc://10.0.0.1:8080/path+0");
    EXPECT_EQ(Ask("url", "svc://host/path"), "-1 svc://host/path");
    EXPECT_EQ(Ask("url", "svc://missing:80"), "11001 svc://missing:80");
    EXPECT_EQ(Ask("url", ""), "-1 ");
    EXPECT_EQ(Ask("url", "svc://[::1]:80"), "11001 svc://[::1]:80");
}

TEST_P(NameResolutionOfAHost, HostKnowsItself) {
    EXPECT_EQ(Ask("computer"), "box");
    EXPECT_EQ(Ask("full"), "box.example.com");
    EXPECT_EQ(Ask("machine"), "7F000101");
}

TEST_P(NameResolutionOfAHost, HostWithoutADomainHasNoDot) {
    Write("hosts", "127.0.1.1 box\n");
    EXPECT_EQ(Ask("full"), "box");
    Write("hosts", "127.0.0.1 localhost\n");  // an unknown name
    EXPECT_EQ(Ask("full"), "box");
    EXPECT_EQ(Ask("machine"), "0");
}

TEST_P(NameResolutionOfAHost, DomainIsThatOfTheNodesOwnName) {
    mNode = "web1.corp.example.com";
    Write("hosts", "127.0.0.1 localhost.localdomain localhost\n");
    EXPECT_EQ(Ask("full"), "web1.corp.example.com");
    Write("hosts", "127.0.0.1 localhost.localdomain localhost web1.corp.example.com\n");
    EXPECT_EQ(Ask("full"), "web1.corp.example.com");
    Write("hosts", "10.0.0.1 other.example.org web1.corp.example.com\n");
    EXPECT_EQ(Ask("full"), "web1.corp.example.com");
    EXPECT_EQ(Ask("computer"), "web1");
}

TEST_P(NameResolutionOfAHost, NameOfTheLoopbackTellsNoDomain) {
    Write("hosts", "127.0.0.1 localhost.localdomain localhost box\n");
    EXPECT_EQ(Ask("full"), "box");
}

TEST_P(NameResolutionOfAHost, NameMayHave64Octets) {
    mNode = std::string(60, 'n') + ".abc";
    EXPECT_EQ(Ask("full"), mNode);
    EXPECT_EQ(Ask("computer"), std::string(60, 'n'));
    mNode = std::string(64, 'n');
    EXPECT_EQ(Ask("computer"), mNode);
}

TEST_P(NameResolutionOfAHost, MachineIsKnownByAnAddressThatOthersDoNotHave) {
    Write("hosts", "127.0.0.1 localhost box\n127.0.1.1 box\n10.0.0.9 box\n");
    EXPECT_EQ(Ask("machine"), "A000009");
    Write("hosts", "127.0.0.1 localhost\n127.0.1.1 box\n");
    EXPECT_EQ(Ask("machine"), "7F000101");  // there is no other
    if (GetParam() != EHost::StandIn) return;
    mInterface = "10.1.2.3";
    EXPECT_EQ(Ask("machine"), "A010203");
    Write("hosts", "::1 box\n");
    EXPECT_EQ(Ask("machine"), "A010203");
}

TEST(NameResolutionOfAnIPv4Address, IsFourDecimalNumbers) {
    for (const char* text : {"10.0.0.1", "0.0.0.0", "255.255.255.255", "127.0.0.1"}) {
        EXPECT_TRUE(ZBase::IsValidIPAddress(text)) << text;
    }
    for (const char* text : {"10.0.0", "::1", "", "10.0.0.256", "10.0.0.1.2", "10.0.0.1 ", " 10.0.0.1",
                             "localhost", "0x0a.0.0.1", "10.0.0.-1", "::ffff:10.0.0.1"}) {
        EXPECT_FALSE(ZBase::IsValidIPAddress(text)) << text;
    }
    EXPECT_FALSE(ZBase::IsValidIPAddress(nullptr));
}

}  // namespace
