// Functions whose names are 1023, 1024 and 5000 characters long.

#define TEN(text) text text text text text text text text text text
#define HUNDRED TEN(TEN("n"))
#define THOUSAND TEN(HUNDRED)

int NameOf1023() asm(THOUSAND TEN("n") TEN("n") "nnn");
int NameOf1024() asm(THOUSAND TEN("m") TEN("m") "mmmm");
int NameOf5000() asm(THOUSAND THOUSAND THOUSAND THOUSAND THOUSAND);

[[gnu::noinline]] int NameOf1023() {
    return 1;
}
[[gnu::noinline]] int NameOf1024() {
    return 2;
}
[[gnu::noinline]] int NameOf5000() {
    return 3;
}

extern "C" [[gnu::visibility("default")]] int (*const LongNames[])() = {NameOf1023, NameOf1024, NameOf5000};
