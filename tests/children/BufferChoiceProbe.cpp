// BufferChoiceProbe STEP...: runs the steps and prints their results.
//   create      makes a buffer: "single" or "lockfree", told apart by the bytes that a clean-up takes
//   choice      the choice of the process, as a number
//   on, off     sets "Base/UseLockFreeBuffer"
//   initialize  declares the feature flags ready

#include <Base/ZBase.h>

#include <cstdio>
#include <string>

namespace {

using namespace ZBase;

const char* Create() {
    Buffer* const buffer = CreateBuffer(0, 1, 4096, false);
    buffer->AddCleanup([](void*) {}, nullptr);
    const bool lockFree = buffer->GetUsedBytes() != 0;
    buffer->Delete();
    return lockFree ? "lockfree" : "single";
}

}  // namespace

int main(int count, char** steps) {
    for (int i = 1; i != count; ++i) {
        const std::string step = steps[i];
        if (step == "create") std::printf("%s ", Create());
        if (step == "choice") std::printf("%d ", Buffer::GetDefaultBufferImplementation());
        if (step == "on") SetFeatureEnabled("Base/UseLockFreeBuffer"_w, true);
        if (step == "off") SetFeatureEnabled("Base/UseLockFreeBuffer"_w, false);
        if (step == "initialize") NotifyFeatureFlagMgrInitialized();
    }
}
