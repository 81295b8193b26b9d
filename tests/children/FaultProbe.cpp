// FaultProbe ORDER FAULT: several threads with a translator catch a fault again and again, and a thread
// without one ends the process by it. ORDER says what was set up first, "translator" or "handler".

#include <Base/ZBase.h>

#include <atomic>
#include <cstdio>
#include <cstring>
#include <thread>
#include <vector>

#include "tests/support/linux/FaultKinds.h"

namespace {

constexpr int kThreads = 4;
constexpr int kTimes = 25;

const test::FaultKind* FaultOf(const char* name) {
    for (const test::FaultKind& kind : test::kFaults) {
        if (std::strcmp(kind.name, name) == 0) return &kind;
    }
    return nullptr;
}

bool IsCaught(const test::FaultKind& kind) {
    const bool caught = test::CodeOf(kind.fault) == kind.code;
    asm volatile("fninit");  // clears the state of the fault
    return caught;
}

}  // namespace

int main(int, char** argv) {
    const bool handlerIsFirst = std::strcmp(argv[1], "handler") == 0;
    const test::FaultKind* const kind = FaultOf(argv[2]);
    if (kind == nullptr) return 97;
    if (handlerIsFirst && !ZBase::InstallCrashHandler()) return 96;
    std::atomic<int> ready = 0;
    std::atomic<bool> go = false;
    std::atomic<int> caught = 0;
    std::vector<std::thread> threads;
    for (int i = 0; i != kThreads; ++i) {
        threads.emplace_back([&] {
            ZBase::SetExceptionTranslator();
            ++ready;
            while (!go) std::this_thread::yield();
            for (int k = 0; k != kTimes; ++k) caught += IsCaught(*kind);
        });
    }
    while (ready != kThreads) std::this_thread::yield();
    if (!handlerIsFirst && !ZBase::InstallCrashHandler()) return 96;
    go = true;
    for (std::thread& thread : threads) thread.join();
    std::fprintf(stderr, "caught %d\n", caught.load());
    std::thread(kind->fault).join();
    return 0;
}
