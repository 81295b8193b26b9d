#include <Base/memory/VirtualMemory.h>

#include <Base/platform/os/memory/Pages.h>

#include <atomic>

namespace ZBase {

namespace {

std::atomic<void* (*)(std::size_t)> gVirtualAllocCallback{nullptr};
std::atomic<int (*)(void*, std::size_t)> gVirtualFreeCallback{nullptr};
std::atomic<int (*)(void*, std::size_t)> gVirtualProtectCallback{nullptr};

}  // namespace

void* ZNTVirtualAlloc(std::size_t size, bool useCallback) {
    const auto callback = gVirtualAllocCallback.load();
    return callback != nullptr && useCallback ? callback(size) : os::AllocatePages(size);
}

int ZNTVirtualFree(void* address, std::size_t size, bool useCallback) {
    const auto callback = gVirtualFreeCallback.load();
    if (callback != nullptr && useCallback) return callback(address, size);
    return os::ReleasePages(address) ? 0 : 1;
}

int ZNTVirtualProtect(void* address, std::size_t size, bool) {
    // A protection callback disables protection and is never called; kept for hosts that set it for that.
    if (gVirtualProtectCallback.load() != nullptr) return 1;
    return os::ProtectPages(address, size) ? 0 : 1;
}

bool ZNTDeCommit(void* address, std::size_t size) {
    return os::DecommitPages(address, size);
}

void SetCallBackVirtualAlloc(void* (*callback)(std::size_t)) {
    gVirtualAllocCallback = callback;
}
void UnSetCallBackVirtualAlloc() {
    gVirtualAllocCallback = nullptr;
}
void SetCallBackVirtualFree(int (*callback)(void*, std::size_t)) {
    gVirtualFreeCallback = callback;
}
void SetCallBackVirtualProtect(int (*callback)(void*, std::size_t)) {
    gVirtualProtectCallback = callback;
}
void UnSetCallBackVirtualProtect() {
    gVirtualProtectCallback = nullptr;
}

}  // namespace ZBase
