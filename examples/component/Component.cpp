// A component of a server: a library with an optional initialiser, whose object lives until the library is
// unloaded.

#include <Base/ZBase.h>

#include <cstdio>

#ifdef _WIN32
#define GREETER_API extern "C" __declspec(dllexport)
#else
#define GREETER_API extern "C" [[gnu::visibility("default")]]
#endif

namespace {

/// The component's object, which lives as long as it is used.
class Counter : public ZSynch::ReferenceCountedImpl<unsigned int> {
public:
    Counter() { std::puts("component: ready"); }
    ~Counter() override { std::printf("component: %u greetings, done\n", mGreetings); }

    void Add() { ++mGreetings; }

private:
    unsigned int mGreetings = 0;
};

Counter* gpCounter = nullptr;  // held by the host

}  // namespace

GREETER_API ZBase::ReferenceCounted* GetZENTDLLInitializer() {
    if (gpCounter == nullptr) gpCounter = new Counter;
    return gpCounter;
}

GREETER_API void Greet(const char* name, char* greeting, unsigned int capacity) {
    gpCounter->Add();
    std::snprintf(greeting, capacity, "Good morning, %s.", name);
}
