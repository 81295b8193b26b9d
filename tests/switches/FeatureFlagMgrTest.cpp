// The flags are initialised once for a process, so each case that does it runs in a child.

#include <Base/ZBase.h>

#include <gtest/gtest.h>

#include <unistd.h>

#include <atomic>
#include <chrono>
#include <cstdio>
#include <new>
#include <thread>
#include <vector>

#include "tests/support/Allocations.h"
#include "tests/support/Buffers.h"

namespace {

using namespace ZBase;

const unsigned short* const kKnownNames[] = {
    "COM/SampleFeature"_w,
    "FolioEA"_w,
    "DM/FROnDB"_w,
    "Engine/AJFE"_w,
    "KS/MSForStats"_w,
    "DBE/DataBlendingForFR"_w,
    "RWDEngine/OnDmdEval4GF"_w,
    "ENGINE/ParallelAE"_w,
    "ENGINE/AdvancedPU"_w,
    "Server/VerityMgrImpactDataSQLMDXCSI"_w,
    "Engine/NonAggSupportForMultiTableCube"_w,
    "AE/EarlyTempRel"_w,
    "AE/ThreadControl"_w,
    "AppSchema"_w,
    "EE/PDFEncrypt"_w,
    "OM/ElasticSearchEngine"_w,
    "DocServices/ShortcutCache"_w,
    "DocServices/SharedPageCache"_w,
    "AE/IKGovern"_w,
    "Engine/DAPushDown"_w,
    "DS/GroupRecipients"_w,
};

// Runs `body` in a child, which passes if nothing in it failed.
#define IN_CHILD(...)                                     \
    EXPECT_EXIT(                                          \
        {                                                 \
            [] __VA_ARGS__();                             \
            ::_exit(testing::Test::HasFailure() ? 1 : 0); \
        },                                                \
        testing::ExitedWithCode(0), "")

TEST(FeatureFlagMgrDeathTest, QueryBeforeInitializationThrows) {
    IN_CHILD({
        EXPECT_FALSE(IsFeatureFlagManagerInitialized());
        for (const unsigned short* name :
             {"COM/SampleFeature"_w, "unknown"_w, static_cast<const unsigned short*>(nullptr)}) {
            try {
                IsFeatureEnabled(name);
                ADD_FAILURE();
            } catch (const ExceptionImpl<Message>& failure) {
                EXPECT_EQ(failure.GetDomain(), 0);
                EXPECT_EQ(failure.GetID(), -1);
                EXPECT_STREQ(
                    WideCharToUTF8(failure.GetMessage(), false).c_str(),
                    "Do NOT use this function before Object Server initializing the Feature Flag Status Map");
            }
        }
    });
}

TEST(FeatureFlagMgrDeathTest, KnownNamesAreOffUntilTurnedOn) {
    IN_CHILD({
        NotifyFeatureFlagMgrInitialized();
        EXPECT_TRUE(IsFeatureFlagManagerInitialized());
        EXPECT_EQ(std::size(kKnownNames), 21u);
        for (const unsigned short* name : kKnownNames) EXPECT_FALSE(IsFeatureEnabled(name));
        for (const unsigned short* name : kKnownNames) {
            SetFeatureEnabled(name, true);
            EXPECT_TRUE(IsFeatureEnabled(name));
        }
        SetFeatureEnabled(kKnownNames[0], false);
        EXPECT_FALSE(IsFeatureEnabled(kKnownNames[0]));
    });
}

TEST(FeatureFlagMgrDeathTest, OtherNamesAreOnUntilTurnedOff) {
    IN_CHILD({
        NotifyFeatureFlagMgrInitialized();
        EXPECT_TRUE(IsFeatureEnabled("nobody/knows"_w));
        EXPECT_TRUE(IsFeatureEnabled(""_w));
        EXPECT_TRUE(IsFeatureEnabled("Base/UseLockFreeBuffer"_w));
        SetFeatureEnabled("nobody/knows"_w, false);
        EXPECT_FALSE(IsFeatureEnabled("nobody/knows"_w));
        EXPECT_TRUE(IsFeatureEnabled("nobody/know"_w));
    });
}

TEST(FeatureFlagMgrDeathTest, NamesAreCaseSensitive) {
    IN_CHILD({
        NotifyFeatureFlagMgrInitialized();
        EXPECT_FALSE(IsFeatureEnabled("Engine/AJFE"_w));
        EXPECT_TRUE(IsFeatureEnabled("engine/ajfe"_w));
        EXPECT_TRUE(IsFeatureEnabled("ENGINE/AJFE"_w));
        EXPECT_TRUE(IsFeatureEnabled("Engine/ParallelAE"_w));
    });
}

TEST(FeatureFlagMgrDeathTest, ValueSetBeforeSurvivesInitialization) {
    IN_CHILD({
        SetFeatureEnabled("AE/IKGovern"_w, true);
        SetFeatureEnabled("mine"_w, false);
        NotifyFeatureFlagMgrInitialized();
        EXPECT_TRUE(IsFeatureEnabled("AE/IKGovern"_w));
        EXPECT_FALSE(IsFeatureEnabled("mine"_w));
        NotifyFeatureFlagMgrInitialized();
        EXPECT_TRUE(IsFeatureEnabled("AE/IKGovern"_w));
    });
}

TEST(FeatureFlagMgrDeathTest, NullNameIsOnAndSetsNothing) {
    IN_CHILD({
        SetFeatureEnabled(nullptr, false);
        NotifyFeatureFlagMgrInitialized();
        SetFeatureEnabled(nullptr, false);
        EXPECT_TRUE(IsFeatureEnabled(nullptr));
    });
}

TEST(FeatureFlagMgrDeathTest, InstanceAndFreeFunctionsAreOne) {
    IN_CHILD({
        FeatureFlagMgr& manager = FeatureFlagMgr::GetInstance();
        EXPECT_EQ(&manager, &FeatureFlagMgr::mFeatureFlagMgrInst);
        manager.NotifyInitialized();
        EXPECT_TRUE(IsFeatureFlagManagerInitialized());
        manager.SetFeatureEnabled("x"_w, false);
        EXPECT_FALSE(IsFeatureEnabled("x"_w));
        SetFeatureEnabled("x"_w, true);
        EXPECT_TRUE(manager.IsFeatureEnabled("x"_w));
        EXPECT_TRUE(manager.IsInitialized());
    });
}

TEST(FeatureFlagMgrDeathTest, FailedAllocationChangesNoFlag) {
    IN_CHILD({
        NotifyFeatureFlagMgrInitialized();
        const std::size_t failures = test::ForEachFailingAllocation([] {
            try {
                SetFeatureEnabled("a name that is too long for the string itself"_w, false);
            } catch (const std::bad_alloc&) {
                // This thread can go on.
                EXPECT_TRUE(FeatureFlagMgr::GetInstance().IsInitialized());
            }
        });
        EXPECT_EQ(failures, 2u);  // the name and its entry
        EXPECT_FALSE(IsFeatureEnabled("a name that is too long for the string itself"_w));
        EXPECT_FALSE(IsFeatureEnabled("FolioEA"_w));
    });
}

// The name is looked up in a copy that needs the heap only when it is long: from 64 units on.
TEST(FeatureFlagMgrDeathTest, QueryOfAnOrdinaryNameTakesNoBlock) {
    IN_CHILD({
        NotifyFeatureFlagMgrInitialized();
        for (const std::size_t length : {0, 1, 7, 8, 62, 63, 64, 65, 300}) {
            std::vector<unsigned short> name(length, 'n');
            name.push_back(0);
            EXPECT_TRUE(IsFeatureEnabled(name.data()));
            SetFeatureEnabled(name.data(), false);
            const std::size_t before = test::AllocationCount();
            EXPECT_FALSE(IsFeatureEnabled(name.data())) << length;
            EXPECT_EQ(test::AllocationCount() - before, length < 64 ? 0u : 1u) << length;
        }
    });
}

// The lock is not released after a failed insertion, so another thread waits for ever.
TEST(FeatureFlagMgrDeathTest, FailedInsertionKeepsOtherThreadsOut) {
    IN_CHILD({
        NotifyFeatureFlagMgrInitialized();
        {
            test::FailingAllocation failing(1);  // the entry; the name came before the lock
            EXPECT_THROW(SetFeatureEnabled("a name that is too long for the string itself"_w, false),
                         std::bad_alloc);
        }
        std::atomic<bool> passed = false;
        std::thread([&passed] {
            IsFeatureEnabled("FolioEA"_w);
            passed = true;
        }).detach();
        std::this_thread::sleep_for(std::chrono::milliseconds(100));
        EXPECT_FALSE(passed);
    });
}

TEST(FeatureFlagMgrDeathTest, FailedInitializationKeepsOtherThreadsOut) {
    IN_CHILD({
        {
            test::FailingAllocation failing(0);  // the first name
            EXPECT_THROW(NotifyFeatureFlagMgrInitialized(), std::bad_alloc);
        }
        std::atomic<bool> passed = false;
        std::thread([&passed] {
            SetFeatureEnabled("FolioEA"_w, true);
            passed = true;
        }).detach();
        std::this_thread::sleep_for(std::chrono::milliseconds(100));
        EXPECT_FALSE(passed);
    });
}

TEST(FeatureFlagMgrDeathTest, FailedInitializationCanBeDoneAgain) {
    IN_CHILD({
        test::ForEachFailingAllocation([] {
            try {
                NotifyFeatureFlagMgrInitialized();
            } catch (const std::bad_alloc&) {
                EXPECT_FALSE(IsFeatureFlagManagerInitialized());
            }
        });
        for (const unsigned short* name : kKnownNames) EXPECT_FALSE(IsFeatureEnabled(name));
    });
}

TEST(FeatureFlagMgrDeathTest, ManyThreadsMayAskAndSet) {
    IN_CHILD({
        std::vector<std::thread> threads;
        for (int thread = 0; thread != 4; ++thread)
            threads.emplace_back([thread] {
                unsigned short name[] = {'t', static_cast<unsigned short>('0' + thread), 0, 0};
                if (thread == 0) NotifyFeatureFlagMgrInitialized();
                while (!IsFeatureFlagManagerInitialized()) std::this_thread::yield();
                for (unsigned short i = 0; i != 2000; ++i) {
                    name[2] = static_cast<unsigned short>('a' + i % 26);
                    SetFeatureEnabled(name, i % 2 == 0);
                    if (IsFeatureEnabled(name) != (i % 2 == 0)) ADD_FAILURE();
                }
            });
        for (std::thread& thread : threads) thread.join();
    });
}

}  // namespace
