#include <Base/platform/os/host/Processor.h>
#include <Base/text/detail/TextKernels.h>

#include <atomic>

namespace ZBase::detail {

namespace {

constinit std::atomic<const TextKernels*> sKernels{nullptr};

}  // namespace

const TextKernels& Kernels() {
    const TextKernels* kernels = sKernels.load(std::memory_order_relaxed);
    if (kernels == nullptr) {
        const KernelList runnable = RunnableKernels();
        kernels = runnable.kinds[runnable.count - 1];
        sKernels.store(kernels, std::memory_order_relaxed);
    }
    return *kernels;
}

KernelList RunnableKernels() {
    KernelList list;
    const auto add = [&list](const TextKernels* kernels, bool runs) {
        if (kernels != nullptr && runs) list.kinds[list.count++] = kernels;
    };
    add(PlainKernels(), true);
    add(Sse2Kernels(), true);
    add(Avx2Kernels(), os::ProcessorHasAvx2());
    add(Avx512Kernels(), os::ProcessorHasAvx512());
    add(NeonKernels(), true);
    return list;
}

// Defined by the build, for the sources of those kinds too.
#if !defined(ZBASE_X86_64_KERNELS)
const TextKernels* Sse2Kernels() {
    return nullptr;
}
const TextKernels* Avx2Kernels() {
    return nullptr;
}
const TextKernels* Avx512Kernels() {
    return nullptr;
}
#endif
#if !defined(ZBASE_ARM64_KERNELS)
const TextKernels* NeonKernels() {
    return nullptr;
}
#endif

void UseKernels(const TextKernels* kernels) {
    sKernels.store(kernels, std::memory_order_relaxed);
}

}  // namespace ZBase::detail
