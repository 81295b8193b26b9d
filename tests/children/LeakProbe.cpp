// LeakProbe FILE: leaks twenty objects and reports them into the file.

#include <Base/ZBase.h>

namespace {

[[gnu::noinline]] void Leak(ZBase::RefCountCallStackTracer* tracer, std::uintptr_t object, int calls) {
    if (calls != 0)
        Leak(tracer, object, calls - 1);
    else
        tracer->RecordRefCount(reinterpret_cast<void*>(object), 1);
    asm volatile("" ::: "memory");
}

}  // namespace

int main(int argc, char** argv) {
    using namespace ZBase;
    if (argc != 2) return 2;
    RefCountCallStackTracer* tracer = CreateRefCountCallStackTracer("Leaks"_w, argv[1]);
    for (std::uintptr_t object = 1; object != 21; ++object) Leak(tracer, object, 30);
    tracer->Delete();
}
