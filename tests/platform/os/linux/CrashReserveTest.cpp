#include <Base/platform/os/linux/crash/CrashReserve.h>

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/resource.h>

#include "tests/support/RefusedCalls.h"

namespace {

namespace os = ZBase::os;

int OpenDescriptors() {
    int count = 0;
    for (int descriptor = 0; descriptor != 1024; ++descriptor) count += fcntl(descriptor, F_GETFD) >= 0;
    return count;
}

void Limit(int resource, rlim_t value) {
    rlimit limit{};
    getrlimit(static_cast<__rlimit_resource>(resource), &limit);
    limit.rlim_cur = value;
    setrlimit(static_cast<__rlimit_resource>(resource), &limit);
}

TEST(CrashReserve, DescriptorsAreHeldOnceAndLetGoWhereNoAddressesAreLeft) {
    EXPECT_EQ(test::InChild([] {
                  Limit(RLIMIT_NOFILE, 1024);
                  Limit(RLIMIT_AS, 0);
                  static os::CrashReserve reserve;
                  const int before = OpenDescriptors();
                  reserve.Take();
                  const int held = OpenDescriptors() - before;
                  reserve.Take();
                  const int heldAgain = OpenDescriptors() - before;
                  reserve.LetGo(false);
                  return held == 8 && heldAgain == 8 && OpenDescriptors() == before ? 0 : 1;
              }),
              0);
}

TEST(CrashReserve, WhatWasRefusedIsTakenTheNextTime) {
    EXPECT_EQ(test::InChild([] {
                  static os::CrashReserve reserve;
                  const int before = OpenDescriptors();
                  Limit(RLIMIT_NOFILE, 0);
                  reserve.Take();
                  Limit(RLIMIT_NOFILE, 1024);
                  const int refused = OpenDescriptors() - before;
                  reserve.Take();
                  const int held = OpenDescriptors() - before;
                  reserve.LetGo(false);
                  return refused == 0 && held == 8 && OpenDescriptors() == before ? 0 : 1;
              }),
              0);
}

}  // namespace
