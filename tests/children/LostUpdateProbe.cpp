// LostUpdateProbe: two threads add to a number and hold a lock while they read it and while they write it,
// but not in between. On one processor another thread hardly ever comes there by itself. Prints how many of
// the additions are lost.
#include <sched.h>
#include <cstdio>
#include <mutex>
#include <thread>

namespace {

constexpr int kTimes = 1000;

std::mutex gLock;
int gNumber = 0;

void Add() {
    for (int i = 0; i != kTimes; ++i) {
        gLock.lock();
        const int number = gNumber;
        gLock.unlock();
        gLock.lock();
        gNumber = number + 1;
        gLock.unlock();
    }
}

}  // namespace

int main() {
    cpu_set_t one;
    CPU_ZERO(&one);
    CPU_SET(sched_getcpu(), &one);
    if (sched_setaffinity(0, sizeof one, &one) != 0) return 1;
    std::thread first(Add);
    std::thread second(Add);
    first.join();
    second.join();
    std::printf("%d\n", 2 * kTimes - gNumber);
}
