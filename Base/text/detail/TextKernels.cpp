#include <Base/platform/os/host/Processor.h>
#include <Base/text/detail/TextKernels.h>

namespace ZBase::detail {

constinit std::atomic<const TextKernels*> gKernels{nullptr};

const TextKernels& ChooseKernels() {
    const KernelList runnable = RunnableKernels();
    const TextKernels* const kernels = runnable.kinds[runnable.count - 1];
    gKernels.store(kernels, std::memory_order_relaxed);
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
    gKernels.store(kernels, std::memory_order_relaxed);
}

}  // namespace ZBase::detail
