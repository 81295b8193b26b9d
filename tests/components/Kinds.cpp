// A component that exports one symbol of each kind.

#include <unistd.h>

extern "C" {

[[gnu::visibility("default")]] constinit thread_local int ThreadNumber = 7;
[[gnu::visibility("default")]] int Number = 8;
[[gnu::visibility("default"), gnu::weak]] int WeakFunction() {
    return 9;
}

// It is in another module.
[[maybe_unused]] static int (*ResolveElsewhere())() {
    return getpid;
}
[[gnu::visibility("default"), gnu::ifunc("ResolveElsewhere")]] int ElsewhereFunction();

static int GiveTen() {
    return 10;
}
[[maybe_unused]] static int (*ResolveHere())() {
    return GiveTen;
}
[[gnu::visibility("default"), gnu::ifunc("ResolveHere")]] int HereFunction();

[[gnu::visibility("hidden")]] int HiddenFunction() {
    return 11;
}
}

asm(R"(
    .globl AbsoluteNumber
    .set AbsoluteNumber, 0x1234
    .globl AbsoluteZero
    .set AbsoluteZero, 0
    .data
    .globl UniqueNumber
    .type UniqueNumber, @gnu_unique_object
    .size UniqueNumber, 4
    .balign 4
UniqueNumber:
    .long 12
    .text
)");
