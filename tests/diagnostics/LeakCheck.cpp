// AddressSanitizer without its search for leaks, which faults in a process that has opened debug help. The
// tests count live blocks themselves.

#if defined(__SANITIZE_ADDRESS__)
extern "C" const char* __asan_default_options() {
    return "detect_leaks=0";
}
#endif
