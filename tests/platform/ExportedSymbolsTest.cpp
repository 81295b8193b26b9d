#include <Base/ZBase.h>

#include <TestPlaces.h>
#include <gtest/gtest.h>

#include <dlfcn.h>
#include <sys/time.h>
#include <unistd.h>
#include <cstdint>
#include <ctime>
#include <filesystem>
#include <string>
#include <thread>

#include "tests/support/WideText.h"

// Every exported symbol of a library is found, at any address, and no other.

namespace {

using namespace ZBase::Literals;

auto Load(const std::string& path) {
    return ZBase::LoadSharedLibrary(test::Units(ZBase::UTF8ToWideChar(path.c_str(), false).c_str()).c_str());
}

template <class Function>
Function* Find(ZBase::SharedLibrary& library, const unsigned short* name) {
    return reinterpret_cast<Function*>(library.GetFunctionAddress(name));
}

int LookUpCode(ZBase::SharedLibrary& library, const unsigned short* name) {
    ZBase::Message message;
    if (library.GetFunctionAddressOrNULL(name, &message) != nullptr) return 0;
    const ZBase::Message* inner = message.GetLowerLevelMessageOrNULL();
    return inner == nullptr ? -1 : inner->GetID();
}

class ExportedSymbols : public testing::Test {
protected:
    decltype(Load("")) mLibrary = Load(std::filesystem::path(ZBASE_COMPONENTS_DIR) / "Kinds");
};

TEST_F(ExportedSymbols, FunctionsThatAreChosenWhenTheyAreAskedFor) {
    EXPECT_EQ(Find<int()>(*mLibrary, "HereFunction"_w)(), 10);
    EXPECT_EQ(Find<int()>(*mLibrary, "ElsewhereFunction"_w)(), getpid());
    EXPECT_EQ(Find<int()>(*mLibrary, "WeakFunction"_w)(), 9);
}

TEST_F(ExportedSymbols, Data) {
    EXPECT_EQ(*Find<int>(*mLibrary, "Number"_w), 8);
    EXPECT_EQ(*Find<int>(*mLibrary, "UniqueNumber"_w), 12);
}

TEST_F(ExportedSymbols, DataOfEachThread) {
    int* const here = Find<int>(*mLibrary, "ThreadNumber"_w);
    *here = 70;
    int* there = nullptr;
    std::thread([&] {
        there = Find<int>(*mLibrary, "ThreadNumber"_w);
        EXPECT_EQ(*there, 7);
    }).join();
    EXPECT_NE(there, here);
    EXPECT_EQ(*Find<int>(*mLibrary, "ThreadNumber"_w), 70);
}

TEST_F(ExportedSymbols, NumbersZeroIncluded) {
    EXPECT_EQ(reinterpret_cast<std::uintptr_t>(mLibrary->GetFunctionAddress("AbsoluteNumber"_w)), 0x1234u);
    ZBase::Message message;
    EXPECT_EQ(mLibrary->GetFunctionAddressOrNULL("AbsoluteZero"_w, &message), nullptr);
    EXPECT_TRUE(message.IsEmpty());
    EXPECT_THROW(mLibrary->GetFunctionAddress("AbsoluteZero"_w), ZBase::Message);
}

TEST_F(ExportedSymbols, NothingElse) {
    for (const auto* name : {"HiddenFunction"_w, "ResolveHere"_w, "getpid"_w, "malloc"_w, "printf"_w, ""_w,
                             "number"_w, "Numbe"_w, "Number1"_w})
        EXPECT_EQ(LookUpCode(*mLibrary, name), 127);
    ZBase::Message message;
    EXPECT_EQ(mLibrary->GetFunctionAddressOrNULL("HiddenFunction"_w, nullptr), nullptr);
    EXPECT_THROW(mLibrary->GetFunctionAddress("HiddenFunction"_w), ZBase::Message);
}

TEST(ExportedSymbolsOfTheCLibrary, WhatTheKernelDoesForItIsItsOwn) {
    const auto library = Load("libc.so.6");
    EXPECT_GT(Find<time_t(time_t*)>(*library, "time"_w)(nullptr), 1000000000);
    timeval now{};
    EXPECT_EQ(Find<int(timeval*, void*)>(*library, "gettimeofday"_w)(&now, nullptr), 0);
    EXPECT_GT(now.tv_sec, 1000000000);
}

// Compared with the loader's own result, for each name of a list.
TEST(ExportedSymbolsOfTheCLibrary, AreThoseThatTheLoaderFindsInIt) {
    const auto library = Load("libc.so.6");
    void* const handle = dlopen("libc.so.6", RTLD_LAZY | RTLD_NOLOAD);
    ASSERT_NE(handle, nullptr);
    for (const char* name :
         {"memcpy", "strlen", "qsort", "environ", "stdout", "sys_errlist", "pthread_create", "dlopen",
          "__libc_start_main", "memcpy@GLIBC_2.2.5", "_ZSt4cout", "nothing"}) {
        const test::Units wide(ZBase::ASCIIToWideChar(name, false).c_str());
        void* const address = dlsym(handle, name);
        EXPECT_EQ(library->GetFunctionAddressOrNULL(wide.c_str(), nullptr), address) << name;
    }
    dlclose(handle);
}

}  // namespace
