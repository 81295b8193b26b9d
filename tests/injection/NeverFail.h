#pragma once

#include <string_view>

namespace test {

/// What the library calls of others, and that is not stood in front of.
inline constexpr std::string_view kNeverFail[] = {
    // Of the compiler and of the C++ runtime. What they need of the heap fails there.
    "_ITM_deregisterTMCloneTable", "_ITM_registerTMCloneTable", "_Unwind_Find_FDE", "_Unwind_Resume",
    "__cxa_allocate_exception", "__cxa_atexit", "__cxa_begin_catch", "__cxa_call_terminate",
    "__cxa_current_exception_type", "__cxa_demangle", "__cxa_end_catch", "__cxa_finalize",
    "__cxa_free_exception", "__cxa_guard_abort", "__cxa_guard_acquire", "__cxa_guard_release",
    "__cxa_pure_virtual", "__cxa_rethrow", "__cxa_thread_atexit", "__cxa_throw",
    "__cxa_throw_bad_array_new_length", "__dynamic_cast", "__gmon_start__", "__gxx_personality_v0",
    "__once_proxy", "__popcountdi2", "__stack_chk_fail", "__tls_get_addr", "pthread_once",
    // Never come back.
    "_exit", "abort", "raise",
    // Give what is there, or that it is not, whatever the system has.
    "__ctype_get_mb_cur_max", "__errno_location", "__libc_current_sigrtmax", "__libc_current_sigrtmin",
    "__libc_single_threaded", "__libc_stack_end", "getauxval", "getcontext", "getenv", "geteuid",
    "getpagesize", "getpid", "getrlimit", "gettid", "getuid", "gnu_get_libc_version", "nl_langinfo",
    "pthread_self", "pthread_setcancelstate", "stdout", "time", "uselocale", "rand", "srand", "sched_yield",
    "setlocale", "uuid_generate_random",
    "_dl_find_object",  // the unwinder asks it too, for each exception
    "_r_debug", "dl_iterate_phdr", "dladdr", "dladdr1", "dlinfo", "dlsym", "dlvsym", "dlerror", "dlclose",
    // Work on memory that is theirs or the caller's. What they need of the heap fails there.
    "__sched_cpualloc", "__sched_cpucount", "__sched_cpufree", "freeaddrinfo", "freeifaddrs", "inet_pton",
    "mbrtowc", "mbsnrtowcs", "memchr", "memcmp", "memcpy", "memmove", "memset", "newlocale", "pow",
    "snprintf", "stpcpy", "strchr", "strcmp", "strcpy", "strdup", "strerror", "strerrordesc_np", "strlen",
    "strncpy", "strnlen", "strrchr", "strspn", "strstr", "strtol", "strtoll", "strtoul", "strtoull",
    "vsnprintf", "wcrtomb", "wcslen", "wcsnrtombs",
    // Locks, attributes and masks of signals: fail for what the caller does wrong.
    "pthread_attr_destroy", "pthread_attr_getguardsize", "pthread_attr_getstack", "pthread_attr_init",
    "pthread_attr_setdetachstate", "pthread_mutex_lock", "pthread_mutex_trylock", "pthread_mutex_unlock",
    "pthread_setname_np", "pthread_sigmask", "sigaction", "sigaddset", "sigdelset", "sigemptyset",
    "sigfillset", "sigismember", "signal", "sigorset", "sigpending", "sigprocmask", "sigtimedwait",
    "shutdown",
    // Streams: what fails under them fails in the calls by which they write and are opened.
    "fclose", "ferror", "fprintf", "fread", "printf", "puts", "syslog"};

}  // namespace test
