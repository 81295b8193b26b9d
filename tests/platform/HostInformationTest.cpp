#include <Base/ZBase.h>

#include <gtest/gtest.h>

#include <pwd.h>
#include <sys/utsname.h>
#include <sys/wait.h>
#include <unistd.h>
#include <string>

#include "tests/support/WideText.h"

namespace {

std::string Narrow(const ZBase::ReturnWString& text) {
    return ZBase::WideCharToUTF8(text.c_str(), false).c_str();
}

std::string HostName() {
    utsname system{};
    uname(&system);
    const std::string name = system.nodename;
    return name.substr(0, name.find('.'));
}

TEST(HostInformation, ComputerNameIsTheHostNameUpToTheFirstDot) {
    EXPECT_EQ(Narrow(ZBase::GetComputerName()), HostName());
}

TEST(HostInformation, FullNameBeginsWithTheHostName) {
    const std::string full = Narrow(ZBase::GetComputerFullName());
    EXPECT_EQ(full.substr(0, full.find('.')), HostName());
    EXPECT_NE(full.back(), '.');
}

TEST(HostInformation, HasAProcessor) {
    EXPECT_EQ(ZBase::GetNumberOfSystemProcessors(), sysconf(_SC_NPROCESSORS_ONLN));
}

TEST(HostInformation, LoginIsTheAccountOfTheEffectiveUser) {
    EXPECT_EQ(Narrow(ZBase::GetCurrentLogin()), HostName() + "\\" + getpwuid(geteuid())->pw_name);
}

TEST(HostInformation, LoginOfAnAccountThatIsGoneFails) {
    if (geteuid() != 0) GTEST_SKIP() << "only root can act for another user; a scripted host shows the same";
    uid_t stranger = 54321;
    while (getpwuid(stranger) != nullptr) ++stranger;
    const pid_t child = fork();
    if (child == 0) {
        int code = 99;
        try {
            if (seteuid(stranger) == 0) ZBase::GetCurrentLogin();
        } catch (const ZBase::ExceptionImpl<ZBase::Message>& failure) {
            const bool right = failure.GetID() == 1332 && test::Wide(failure.GetMessage())
                                                                  .rfind(
                                                                      u"::LookupAccountSidW failed\n"
                                                                      u"System Error 0x00000534 (1332): --- ",
                                                                      0) == 0;
            code = right ? 0 : 1;
        }
        _exit(code);
    }
    int status = 0;
    ASSERT_EQ(waitpid(child, &status, 0), child);
    EXPECT_EQ(status, 0);
}

TEST(HostInformation, MachineIdIsStable) {
    EXPECT_EQ(ZBase::GetUniqueMachineID(), ZBase::GetUniqueMachineID());
}

}  // namespace
