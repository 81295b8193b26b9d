// Finds a leak: every change of a session's reference count is recorded with its stack. A session whose
// reference was never released is still there at the end, and the report shows the code that changed its
// count.

#include <Base/ZBase.h>

#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <iostream>
#include <string>

using namespace ZBase::Literals;

namespace {

ZBase::RefCountCallStackTracer* gpTracer = nullptr;  // held by main

// The report leaves out the six innermost lines of each stack, which in a server are those of its own
// tracing. Here that code is short, so a few calls stand in for it.
[[gnu::noinline]] void Note(void* object, long owners, int calls = 4) {
    if (calls != 0) {
        Note(object, owners, calls - 1);
    } else {
        gpTracer->RecordRefCount(object, owners);
    }
    asm volatile("" ::: "memory");
}

/// A reference-counted object. The count is also kept here, to be reported.
class Session : public ZSynch::ReferenceCountedImpl<unsigned int> {
public:
    void AddRef() override {
        Note(this, ++mOwners);
        ReferenceCountedImpl::AddRef();
    }
    void Release() override {
        Note(this, --mOwners);
        ReferenceCountedImpl::Release();
    }

private:
    long mOwners = 0;
};

[[gnu::noinline]] void ServeAndClose() {
    const ZBase::SmartPtrI<Session> session(new Session);
    const ZBase::SmartPtrI<Session> another = session;
    asm volatile("" ::: "memory");
}

// The mistake: the pointer is detached by hand, and its reference is lost.
[[gnu::noinline]] void ServeAndForget() {
    ZBase::SmartPtrI<Session> session(new Session);
    session->AddRef();
    asm volatile("" ::: "memory");
}

[[gnu::noinline]] void ServeAll() {
    for (int i = 0; i != 3; ++i) ServeAndClose();
    ServeAndForget();
    asm volatile("" ::: "memory");
}

}  // namespace

int main(int argc, char** argv) {
    const char* const report = argc > 1 ? argv[1] : "leaks.log";
    std::remove(report);  // reports append
    gpTracer = ZBase::CreateRefCountCallStackTracer("Sessions"_w, report);
    if (gpTracer == nullptr) return 1;
    ServeAll();
    gpTracer->Delete();  // reports all sessions left
    std::cout << std::ifstream(report).rdbuf();
    return std::cout ? 0 : 1;
}
