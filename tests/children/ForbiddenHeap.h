#pragma once

#include <unistd.h>
#include <atomic>
#include <cstddef>

// A heap that ends the program when it is used after a crash has begun. One source of a program includes it.

extern "C" void* __libc_malloc(std::size_t size);
extern "C" void __libc_free(void* block);
extern "C" void* __libc_calloc(std::size_t count, std::size_t size);
extern "C" void* __libc_realloc(void* block, std::size_t size);

// By this name tests/modules/CountedProcess.cpp finds it.
extern "C" {
std::atomic<bool> gHeapIsForbidden = false;
}

[[maybe_unused]] static void CheckHeap() {
    if (gHeapIsForbidden) _exit(99);
}

#if !defined(__SANITIZE_ADDRESS__) && !defined(__SANITIZE_THREAD__)
extern "C" void* malloc(std::size_t size) {
    CheckHeap();
    return __libc_malloc(size);
}
extern "C" void free(void* block) {
    if (block == nullptr) return;
    CheckHeap();
    __libc_free(block);
}
extern "C" void* calloc(std::size_t count, std::size_t size) {
    CheckHeap();
    return __libc_calloc(count, size);
}
extern "C" void* realloc(void* block, std::size_t size) {
    CheckHeap();
    return __libc_realloc(block, size);
}
#endif
