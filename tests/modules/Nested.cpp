// A function that is exported, one that is not, and one that is inlined into that. NestedTwin is the same to
// the octet except for the name of the second.
#ifndef ZBASE_TEST_HIDDEN
#define ZBASE_TEST_HIDDEN Hidden
#endif

using Function = int (*)(void*);

[[gnu::always_inline]] static inline int Inlined(Function function, void* argument) {
    const int result = function(argument);
    asm volatile("nop" ::: "memory");  // to return to
    return result;
}

[[gnu::noinline]] static int ZBASE_TEST_HIDDEN(Function function, void* argument) {
    const int result = Inlined(function, argument);
    asm volatile("" ::: "memory");
    return result;
}

extern "C" [[gnu::visibility("default")]] int CallNested(Function function, void* argument) {
    const int result = ZBASE_TEST_HIDDEN(function, argument);
    asm volatile("" ::: "memory");
    return result;
}
