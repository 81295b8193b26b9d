#include <Base/platform/HostInformation.h>

#include <gtest/gtest.h>

#include <string>

#include "tests/scripted/ScriptedFailure.h"
#include "tests/scripted/ScriptedHost.h"
#include "tests/scripted/ScriptedInterfaces.h"
#include "tests/scripted/ScriptedNetwork.h"
#include "tests/support/Allocations.h"

namespace {

using test::gHost;
using test::Wide;

class HostInformationOverScript : public testing::Test {
protected:
    HostInformationOverScript() {
        gHost = {};
        test::gNetwork = {};
        test::gOwnAddresses.clear();
        test::SetSystemError(0, "Text.");
    }
};

TEST_F(HostInformationOverScript, ComputerNameIsTheDnsName) {
    EXPECT_EQ(Wide(ZBase::GetComputerName().c_str()), u"dnshost");
    EXPECT_EQ(gHost.asked, "dns ");
    EXPECT_EQ(gHost.nameCapacity, 255u);
}

TEST_F(HostInformationOverScript, ComputerNameIsEmptyWhenTheSystemDoesNotTell) {
    gHost.dnsHostName = nullptr;
    EXPECT_EQ(Wide(ZBase::GetComputerName().c_str()), u"");
}

TEST_F(HostInformationOverScript, NamesMayHave254UnitsAndNoMore) {
    const std::string fits(254, 'x');
    const std::string tooLong(255, 'x');
    gHost.dnsHostName = fits.c_str();
    EXPECT_EQ(ZBase::GetComputerName().GetLength(), 254u);
    gHost.dnsHostName = tooLong.c_str();
    EXPECT_EQ(Wide(ZBase::GetComputerName().c_str()), u"");
    gHost.hostName = fits.c_str();
    gHost.dnsDomain = fits.c_str();
    EXPECT_EQ(ZBase::GetComputerFullName().GetLength(), 254u + 1 + 254);
    gHost.dnsDomain = tooLong.c_str();
    EXPECT_EQ(Wide(ZBase::GetComputerFullName().c_str()), u"");
}

TEST_F(HostInformationOverScript, FullNameIsTheOtherNameWithTheDomain) {
    gHost.dnsDomain = "example.com";
    EXPECT_EQ(Wide(ZBase::GetComputerFullName().c_str()), u"host.example.com");
}

TEST_F(HostInformationOverScript, FullNameWithoutADomainEndsInNoDot) {
    EXPECT_EQ(Wide(ZBase::GetComputerFullName().c_str()), u"host");
}

TEST_F(HostInformationOverScript, FullNameAsksBothAndIsEmptyWhenEitherFails) {
    gHost.hostName = nullptr;
    gHost.dnsDomain = "example.com";
    EXPECT_EQ(Wide(ZBase::GetComputerFullName().c_str()), u"");
    EXPECT_EQ(gHost.asked, "host domain ");
    gHost = {};
    gHost.dnsDomain = nullptr;
    EXPECT_EQ(Wide(ZBase::GetComputerFullName().c_str()), u"");
    EXPECT_EQ(gHost.asked, "host domain ");
}

TEST_F(HostInformationOverScript, ProcessorsBeyond16BitsAreCut) {
    gHost.processors = 0x10003;
    EXPECT_EQ(ZBase::GetNumberOfSystemProcessors(), 3);
}

TEST_F(HostInformationOverScript, LoginIsDomainAndUser) {
    EXPECT_EQ(Wide(ZBase::GetCurrentLogin().c_str()), u"domain\\user");
    EXPECT_EQ(gHost.openTokens, 0);
    EXPECT_EQ(gHost.accountCapacity, 257u);
}

TEST_F(HostInformationOverScript, RoomForTheUserIsTheLengthRoundedUpPastTheNext16) {
    for (const auto& [length, room] : {std::pair(0u, 16u), {15u, 16u}, {16u, 32u}, {20u, 32u}, {31u, 32u}}) {
        gHost.userLength = length;
        ZBase::GetCurrentLogin();
        EXPECT_EQ(gHost.userCapacity, room) << length;
    }
}

TEST_F(HostInformationOverScript, AccountNamesMayHave256UnitsAndNoMore) {
    const std::string fits(256, 'x');
    const std::string tooLong(257, 'x');
    gHost.account = fits.c_str();
    gHost.accountDomain = fits.c_str();
    EXPECT_EQ(ZBase::GetCurrentLogin().GetLength(), 256u + 1 + 256);
    gHost.codeAfterAccount = 122;
    gHost.account = tooLong.c_str();
    EXPECT_THROW(ZBase::GetCurrentLogin(), ZBase::Message);
}

class HostInformationLoginOverScript : public HostInformationOverScript {
protected:
    static void ExpectLoginFailure(int id, const std::u16string& text) {
        test::ExpectFailure([] { ZBase::GetCurrentLogin(); }, id, text);
        EXPECT_EQ(gHost.openTokens, 0);
    }
};

TEST_F(HostInformationLoginOverScript, FailsWithoutAToken) {
    test::SetSystemError(5, "Denied.");
    gHost.hasToken = false;
    ExpectLoginFailure(5, u"::OpenProcessToken failed\nSystem Error 0x00000005 (5): --- Denied.");
}

TEST_F(HostInformationLoginOverScript, FailsWhenTheSizeIsNotToldByTheSmallBuffer) {
    gHost.sizeQueryCode = 6;
    ExpectLoginFailure(6, u"::GetTokenInformation failed\nSystem Error 0x00000006 (6): --- Text.");
}

TEST_F(HostInformationLoginOverScript, FailsWhenNoBufferAtAllSuffices) {
    gHost.sizeQuerySucceeds = true;
    ExpectLoginFailure(122, u"::GetTokenInformation failed\nSystem Error 0x0000007A (122): --- Text.");
}

TEST_F(HostInformationLoginOverScript, FailsWithoutTheUser) {
    gHost.userSucceeds = false;
    gHost.codeAfterUser = 1450;
    ExpectLoginFailure(1450, u"::GetTokenInformation failed\nSystem Error 0x000005AA (1450): --- Text.");
}

TEST_F(HostInformationLoginOverScript, FailsForAnAccountThatIsGone) {
    gHost.account = nullptr;
    gHost.codeAfterAccount = 1332;
    ExpectLoginFailure(1332, u"::LookupAccountSidW failed\nSystem Error 0x00000534 (1332): --- Text.");
}

TEST_F(HostInformationLoginOverScript, FailsForAnAccountThatIsNoUserWithWhateverCodeThereIs) {
    gHost.accountUse = 2;
    gHost.codeAfterAccount = 0;
    ExpectLoginFailure(0, u"::LookupAccountSidW failed\nSystem Error 0x00000000 (0): --- Text.");
}

TEST_F(HostInformationLoginOverScript, LeaksNothingWhenMemoryRunsOut) {
    const std::size_t live = test::LiveBlocks();
    test::ForEachFailingAllocation([] {
        try {
            ZBase::GetCurrentLogin();
        } catch (const std::bad_alloc&) {
        }
    });
    EXPECT_EQ(gHost.openTokens, 0);
    EXPECT_EQ(test::LiveBlocks(), live);
}

TEST_F(HostInformationOverScript, MachineIdIsTheIPv4AddressOfTheHostsOwnName) {
    test::gNetwork.hostName = "box";
    test::gNetwork.ipv4 = {{{10, 0, 0, 1}, 4, 0}, {{10, 0, 0, 2}, 4, 0}};
    EXPECT_EQ(ZBase::GetUniqueMachineID(), 0x0A000001);
    EXPECT_EQ(test::gNetwork.askedName, "box");
}

TEST_F(HostInformationOverScript, MachineIdOfAHostWithIPv6OnlyIsItsWordsTogether) {
    test::gNetwork.ipv4Code = 11004;
    test::gNetwork.any = {{{0x20, 1, 0x0D, 0xB8, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 7}, 16, 0}};
    EXPECT_EQ(ZBase::GetUniqueMachineID(), 0x20010DB8 ^ 7);
}

TEST_F(HostInformationOverScript, MachineIdIsZeroWhenTheNameDoesNotResolve) {
    EXPECT_EQ(ZBase::GetUniqueMachineID(), 0);
    test::gNetwork.ipv4Code = 11001;
    test::gNetwork.anyCode = 11001;
    EXPECT_EQ(ZBase::GetUniqueMachineID(), 0);
    test::gNetwork = {};
    test::gNetwork.ipv4 = {{{10, 0, 0, 1}, 4, 0}};
    test::gNetwork.hostName = nullptr;
    EXPECT_EQ(ZBase::GetUniqueMachineID(), 0);
    test::gNetwork.hostName = "box";
    test::gNetwork.startCode = 10091;
    EXPECT_EQ(ZBase::GetUniqueMachineID(), 0);
}

TEST_F(HostInformationOverScript, ResolverThatDoesNotAnswerIsAskedOnce) {
    test::gNetwork.ipv4Code = 11002;
    test::gNetwork.any = {{{10, 0, 0, 1}, 4, 0}};
    EXPECT_EQ(ZBase::GetUniqueMachineID(), 0);
    EXPECT_EQ(test::gNetwork.asked, 1);
}

TEST_F(HostInformationOverScript, MachineIdPassesOverTheLoopback) {
    test::gNetwork.ipv4 = {{{127, 0, 1, 1}, 4, 0}, {{127, 0, 0, 1}, 4, 0}, {{10, 0, 0, 7}, 4, 0}};
    test::gOwnAddresses = {{{10, 9, 9, 9}, 4, 0}};
    EXPECT_EQ(ZBase::GetUniqueMachineID(), 0x0A000007);
    EXPECT_EQ(test::gNetwork.asked, 1);
}

TEST_F(HostInformationOverScript, MachineIdOfANameOnTheLoopbackIsThatOfAnInterface) {
    const ZBase::os::NetworkAddress six{{0x20, 1, 0x0D, 0xB8, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 7}, 16, 0};
    const ZBase::os::NetworkAddress mapped{{0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0xFF, 0xFF, 127, 0, 0, 1}, 16, 0};
    const ZBase::os::NetworkAddress sixOfLoopback{{0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 1}, 16, 0};
    const ZBase::os::NetworkAddress none{{0, 0, 0, 0}, 4, 0};
    const ZBase::os::NetworkAddress four{{127, 0, 1, 1}, 4, 0};
    test::gOwnAddresses = {none, four, six};
    for (const ZBase::os::NetworkAddress& own : {four, none}) {
        test::gNetwork.ipv4 = {own};
        EXPECT_EQ(ZBase::GetUniqueMachineID(), 0x20010DB8 ^ 7);
    }
    test::gNetwork.ipv4Code = 11004;
    for (const ZBase::os::NetworkAddress& own : {mapped, sixOfLoopback}) {
        test::gNetwork.any = {own};
        EXPECT_EQ(ZBase::GetUniqueMachineID(), 0x20010DB8 ^ 7);
    }
}

TEST_F(HostInformationOverScript, MachineIdOfAHostOnTheLoopbackOnlyIsThat) {
    test::gNetwork.ipv4 = {{{127, 0, 1, 1}, 4, 0}};
    EXPECT_EQ(ZBase::GetUniqueMachineID(), 0x7F000101);
    test::gOwnAddresses = {{{127, 0, 0, 1}, 4, 0}};
    EXPECT_EQ(ZBase::GetUniqueMachineID(), 0x7F000101);
}

}  // namespace
