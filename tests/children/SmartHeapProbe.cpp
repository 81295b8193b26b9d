// SmartHeapProbe MODULE WHEN: calls the link to the outside heap, with MODULE in the process before the first
// call ("early"), after it ("late") or not at all ("never"), and prints the results. The functions are looked
// up once in a process.

#include <Base/ZBase.h>

#include <dlfcn.h>
#include <cinttypes>
#include <cstdio>
#include <cstring>

namespace {

using ZBase::SmartHeapIntegrator;
using SetFigures = void (*)(std::uint64_t used, std::uint64_t total, int answer);

SetFigures gSetFigures = nullptr;

bool Load(const char* module) {
    void* heap = dlopen(module, RTLD_NOW | RTLD_LOCAL);
    if (heap == nullptr) return false;
    gSetFigures = reinterpret_cast<SetFigures>(dlsym(heap, "SetFigures"));
    return true;
}

void Ask(std::uint64_t used, std::uint64_t total, int answer) {
    if (gSetFigures != nullptr) gSetFigures(used, total, answer);
    SmartHeapIntegrator::MemInfo info{1, 2, 3, 4, 5, 6, 7, 8};
    const bool known = SmartHeapIntegrator::GetMemoryUsageInfo(info);
    std::printf("%d %" PRIx64 " %" PRIx64 " %" PRIx64 " %" PRIx64 " %" PRIx64 " %" PRIx64 " %" PRIx64 " %x\n",
                known ? 1 : 0, info.usedBytes, info.freeBytes, info.peakBytes, info.smallBlockBytes,
                info.largeBlockBytes, info.systemBytes, info.poolCount, info.threadCount);
}

}  // namespace

int main(int argc, char** argv) {
    if (argc != 3) return 2;
    const bool late = std::strcmp(argv[2], "late") == 0;
    const bool early = std::strcmp(argv[2], "early") == 0;
    std::printf("enabled %d\n", SmartHeapIntegrator::IsSmartHeapEnabled() ? 1 : 0);
    if (early && !Load(argv[1])) return 1;
    Ask(0x100, 0x180, 1);
    Ask(0x100, 0x100, 1);
    Ask(0x100, 0xFF, 1);
    Ask(0x100, 0x180, -1);
    Ask(0x100, 0x180, 0);
    std::printf("shrunk %zu\n", SmartHeapIntegrator::ShrinkSmartHeapMemoryCache(100));
    if (late && !Load(argv[1])) return 1;
    ZBase::Buffer* buffer = ZBase::CreateBufferSingleThread(1, 1, nullptr, 0x10000, true);
    buffer->Allocate(100);
    const std::size_t held = ZBase::Buffer::GetOnBoundaryAllocTotal();
    if (held == 0) return 1;
    Ask(0x100 - held, 0x180, 1);  // wraps back to 0x100
    std::printf("shrunk %zu\n", SmartHeapIntegrator::ShrinkSmartHeapMemoryCache(100));
    buffer->Delete();
}
