#include <Base/platform/HostInformation.h>
#include <Base/platform/ProcessLimits.h>

#include <gtest/gtest.h>

#include <sched.h>
#include <unistd.h>
#include <cstdint>
#include <thread>

TEST(ProcessLimits, AreWithinThoseOfTheMachine) {
    const unsigned int processors = ZBase::GetUsableProcessors();
    EXPECT_GE(processors, 1u);
    EXPECT_LE(processors, ZBase::GetNumberOfSystemProcessors());
    const auto machine = static_cast<std::uint64_t>(sysconf(_SC_PHYS_PAGES)) *
                         static_cast<std::uint64_t>(sysconf(_SC_PAGESIZE));
    EXPECT_GT(ZBase::GetUsableMemory(), 0u);
    EXPECT_LE(ZBase::GetUsableMemory(), machine);
}

TEST(ProcessLimits, AThreadThatIsBoundToOneProcessorHasOne) {
    std::thread([] {
        cpu_set_t set;
        ASSERT_EQ(sched_getaffinity(0, sizeof set, &set), 0);
        int first = 0;
        while (!CPU_ISSET(first, &set)) ++first;
        CPU_ZERO(&set);
        CPU_SET(first, &set);
        ASSERT_EQ(sched_setaffinity(0, sizeof set, &set), 0);
        EXPECT_EQ(ZBase::GetUsableProcessors(), 1u);
    }).join();
}
