#pragma once

// How a call is stood in front of: a function of this program that is called by the name of another.

#include <dlfcn.h>
#include <cerrno>
#include <initializer_list>

#include "tests/injection/Injection.h"

namespace test {

/// Whether this call is the one that fails; `errno` is set then. `isInterruptible`: may end with EINTR.
bool Fails(const char* name, int error, bool isInterruptible) noexcept;

/// Whether this transfer is the one that moves a single octet.
bool IsShort(const char* name) noexcept;

/// Other threads give memory back while this one sleeps.
void EndShortage() noexcept;

/// What happened to the number of live mappings.
void CountMappings(int more) noexcept;

struct Interposition {
    explicit Interposition(const char* name);
};

}  // namespace test

// ZBASE_INTERPOSE(result, name, parameters, arguments, whatFails, error, isInterruptible)
#define ZBASE_INTERPOSED(result, name, parameters)                                      \
    namespace {                                                                         \
    const test::Interposition kInterposed_##name(#name);                                \
    }                                                                                   \
    extern "C" [[gnu::visibility("default")]] result Test_##name parameters asm(#name); \
    static decltype(&Test_##name) Real_##name() noexcept {                              \
        static void* sReal = nullptr;                                                   \
        if (sReal == nullptr) sReal = dlsym(RTLD_NEXT, #name);                          \
        return reinterpret_cast<decltype(&Test_##name)>(sReal);                         \
    }                                                                                   \
    result Test_##name parameters

#define ZBASE_INTERPOSE(result, name, parameters, arguments, failure, error, isInterruptible) \
    ZBASE_INTERPOSED(result, name, parameters) {                                              \
        if (test::Fails(#name, error, isInterruptible)) return failure;                       \
        return Real_##name() arguments;                                                       \
    }
