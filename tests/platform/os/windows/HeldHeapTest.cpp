#include <Base/platform/os/stacks/AllStacks.h>

#include <gtest/gtest.h>
#include <windows.h>

#include <cerrno>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>

namespace {

namespace fs = std::filesystem;

struct Call {
    std::string path;
    HANDLE isThere;  // a thread's start takes the heap, its end, and its first use of the C library
    HANDLE mayBegin;
    HANDLE isDone;
    bool written = false;
};

DWORD WINAPI WriteStacks(void* argument) {
    auto& call = *static_cast<Call*>(argument);
    errno = 0;
    SignalObjectAndWait(call.isThere, call.mayBegin, INFINITE, FALSE);
    call.written = ZBase::os::WriteAllStacks(call.path.c_str());
    SetEvent(call.isDone);
    return 0;
}

// The heap is this thread's while another writes.
TEST(HeldHeap, KeepsNobodyFromWritingAllStacks) {
    const fs::path file = fs::temp_directory_path() / "zbase-held-heap.txt";
    const auto event = [] { return CreateEventW(nullptr, TRUE, FALSE, nullptr); };
    Call call{file.string(), event(), event(), event()};
    const HANDLE thread = CreateThread(nullptr, 0, WriteStacks, &call, 0, nullptr);
    ASSERT_NE(thread, nullptr);
    WaitForSingleObject(call.isThere, INFINITE);
    ASSERT_TRUE(HeapLock(GetProcessHeap()));
    SetEvent(call.mayBegin);
    const DWORD waited = WaitForSingleObject(call.isDone, 20'000);
    HeapUnlock(GetProcessHeap());
    WaitForSingleObject(thread, INFINITE);
    for (const HANDLE handle : {thread, call.isThere, call.mayBegin, call.isDone}) CloseHandle(handle);
    EXPECT_EQ(waited, WAIT_OBJECT_0);
    EXPECT_TRUE(call.written);
    std::ifstream stream(file);
    const std::string text((std::istreambuf_iterator<char>(stream)), {});
    EXPECT_TRUE(text.starts_with("Stacks of process ")) << text;
    EXPECT_NE(text.find("\nModules\n"), std::string::npos);
    stream.close();
    fs::remove(file);
}

}  // namespace
