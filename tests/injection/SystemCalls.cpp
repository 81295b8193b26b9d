// The calls of the system that can fail. Where one has more than one error, it is the one that a server
// meets.

#include <netdb.h>
#include <poll.h>
#include <sched.h>
#include <sys/mman.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <sys/types.h>
#include <sys/utsname.h>
#include <cerrno>
#include <cstdarg>
#include <cstdio>

#include "tests/injection/Interposed.h"

struct dirent;
struct ifaddrs;
struct passwd;
struct rlimit;
struct statfs;
struct iovec;

// Files.
ZBASE_INTERPOSE(int, open, (const char* path, int flags, mode_t mode), (path, flags, mode), -1, EMFILE, true)
ZBASE_INTERPOSE(int, openat, (int place, const char* path, int flags, mode_t mode),
                (place, path, flags, mode), -1, EMFILE, true)
ZBASE_INTERPOSE(int, access, (const char* path, int mode), (path, mode), -1, EACCES, false)
ZBASE_INTERPOSE(int, stat, (const char* path, struct stat* file), (path, file), -1, EACCES, false)
ZBASE_INTERPOSE(int, lstat, (const char* path, struct stat* file), (path, file), -1, EACCES, false)
ZBASE_INTERPOSE(int, fstat, (int file, struct stat* status), (file, status), -1, EIO, false)
ZBASE_INTERPOSE(int, fstat64, (int file, void* status), (file, status), -1, EIO, false)
ZBASE_INTERPOSE(int, fstatat, (int place, const char* path, struct stat* file, int flags),
                (place, path, file, flags), -1, EACCES, false)
ZBASE_INTERPOSE(int, fstatfs, (int file, struct statfs* status), (file, status), -1, EIO, true)
ZBASE_INTERPOSE(int, mkdir, (const char* path, mode_t mode), (path, mode), -1, EROFS, false)
ZBASE_INTERPOSE(int, unlink, (const char* path), (path), -1, EACCES, false)
ZBASE_INTERPOSE(int, unlinkat, (int place, const char* path, int flags), (place, path, flags), -1, EACCES,
                false)
ZBASE_INTERPOSE(int, rename, (const char* from, const char* to), (from, to), -1, EACCES, false)
ZBASE_INTERPOSE(int, renameat, (int place, const char* from, int other, const char* to),
                (place, from, other, to), -1, EACCES, false)
ZBASE_INTERPOSE(int, remove, (const char* path), (path), -1, EACCES, false)
ZBASE_INTERPOSE(int, linkat, (int place, const char* from, int other, const char* to, int flags),
                (place, from, other, to, flags), -1, EPERM, false)
ZBASE_INTERPOSE(ssize_t, readlink, (const char* path, char* text, std::size_t size), (path, text, size), -1,
                EACCES, false)
ZBASE_INTERPOSE(ssize_t, readlinkat, (int place, const char* path, char* text, std::size_t size),
                (place, path, text, size), -1, EACCES, false)
ZBASE_INTERPOSE(char*, realpath, (const char* path, char* resolved), (path, resolved), nullptr, EACCES, false)
ZBASE_INTERPOSE(char*, __realpath_chk, (const char* path, char* resolved, std::size_t room),
                (path, resolved, room), nullptr, EACCES, false)
ZBASE_INTERPOSE(char*, getcwd, (char* path, std::size_t size), (path, size), nullptr, ENOENT, false)
ZBASE_INTERPOSE(ssize_t, getdents64, (int file, void* entries, std::size_t size), (file, entries, size), -1,
                EIO, false)
ZBASE_INTERPOSE(void*, fdopendir, (int file), (file), nullptr, ENOMEM, false)
ZBASE_INTERPOSE(dirent*, readdir, (void* directory), (directory), nullptr, EIO, false)
ZBASE_INTERPOSE(off_t, lseek, (int file, off_t offset, int origin), (file, offset, origin), -1, ESPIPE, false)
ZBASE_INTERPOSE(off_t, lseek64, (int file, off_t offset, int origin), (file, offset, origin), -1, ESPIPE,
                false)
ZBASE_INTERPOSE(int, ftruncate, (int file, off_t size), (file, size), -1, EIO, true)
ZBASE_INTERPOSE(int, posix_fallocate, (int file, off_t offset, off_t size), (file, offset, size), ENOSPC,
                ENOSPC, false)
ZBASE_INTERPOSE(int, fsync, (int file), (file), -1, EIO, true)
ZBASE_INTERPOSE(int, flock, (int file, int operation), (file, operation), -1, EWOULDBLOCK, true)
ZBASE_INTERPOSE(int, fcntl, (int file, int command, void* argument), (file, command, argument), -1, EINVAL,
                false)
ZBASE_INTERPOSE(int, fchmod, (int file, mode_t mode), (file, mode), -1, EPERM, false)
ZBASE_INTERPOSE(int, fchown, (int file, uid_t user, gid_t group), (file, user, group), -1, EPERM, false)
ZBASE_INTERPOSE(ssize_t, fgetxattr, (int file, const char* name, void* value, std::size_t size),
                (file, name, value, size), -1, ENOTSUP, false)
ZBASE_INTERPOSE(int, fsetxattr, (int file, const char* name, const void* value, std::size_t size, int flags),
                (file, name, value, size, flags), -1, ENOTSUP, false)
ZBASE_INTERPOSE(int, fremovexattr, (int file, const char* name), (file, name), -1, ENOTSUP, false)
ZBASE_INTERPOSE(int, memfd_create, (const char* name, unsigned int flags), (name, flags), -1, EMFILE, false)
ZBASE_INTERPOSE(int, pipe2, (int* ends, int flags), (ends, flags), -1, EMFILE, false)

// A file is closed whatever `close` says of it.
ZBASE_INTERPOSED(int, close, (int file)) {
    const int failed = Real_close()(file);
    return test::Fails("close", EIO, true) ? -1 : failed;
}

ZBASE_INTERPOSED(ssize_t, read, (int file, void* octets, std::size_t size)) {
    if (test::Fails("read", EIO, true)) return -1;
    return Real_read()(file, octets, size > 1 && test::IsShort("read") ? 1 : size);
}
ZBASE_INTERPOSED(ssize_t, pread, (int file, void* octets, std::size_t size, off_t offset)) {
    if (test::Fails("pread", EIO, true)) return -1;
    return Real_pread()(file, octets, size > 1 && test::IsShort("pread") ? 1 : size, offset);
}
ZBASE_INTERPOSED(ssize_t, __pread_chk,
                 (int file, void* octets, std::size_t size, off_t offset, std::size_t room)) {
    if (test::Fails("pread", EIO, true)) return -1;
    return Real___pread_chk()(file, octets, size > 1 && test::IsShort("pread") ? 1 : size, offset, room);
}
ZBASE_INTERPOSED(ssize_t, write, (int file, const void* octets, std::size_t size)) {
    if (test::Fails("write", ENOSPC, true)) return -1;
    return Real_write()(file, octets, size > 1 && test::IsShort("write") ? 1 : size);
}
ZBASE_INTERPOSE(ssize_t, writev, (int file, const iovec* pieces, int count), (file, pieces, count), -1,
                ENOSPC, true)
ZBASE_INTERPOSED(ssize_t, send, (int file, const void* octets, std::size_t size, int flags)) {
    if (test::Fails("send", EPIPE, true)) return -1;
    return Real_send()(file, octets, size > 1 && test::IsShort("send") ? 1 : size, flags);
}
ZBASE_INTERPOSED(ssize_t, recv, (int file, void* octets, std::size_t size, int flags)) {
    if (test::Fails("recv", ECONNRESET, true)) return -1;
    return Real_recv()(file, octets, size > 1 && test::IsShort("recv") ? 1 : size, flags);
}

// Streams of the C library.
ZBASE_INTERPOSE(std::FILE*, fopen, (const char* path, const char* mode), (path, mode), nullptr, EMFILE, false)
ZBASE_INTERPOSE(std::FILE*, fopen64, (const char* path, const char* mode), (path, mode), nullptr, EMFILE,
                false)
ZBASE_INTERPOSE(int, fflush, (std::FILE * file), (file), EOF, ENOSPC, false)
ZBASE_INTERPOSE(int, fputs, (const char* text, std::FILE* file), (text, file), EOF, ENOSPC, false)
ZBASE_INTERPOSE(std::size_t, fwrite,
                (const void* octets, std::size_t size, std::size_t count, std::FILE* file),
                (octets, size, count, file), 0, ENOSPC, false)

// Memory.
ZBASE_INTERPOSED(void*, mmap,
                 (void* place, std::size_t size, int rights, int flags, int file, off_t offset)) {
    if (test::Fails("mmap", ENOMEM, false)) return MAP_FAILED;
    void* const start = Real_mmap()(place, size, rights, flags, file, offset);
    if (start != MAP_FAILED && (flags & MAP_FIXED) == 0) test::CountMappings(1);
    return start;
}
ZBASE_INTERPOSED(int, munmap, (void* start, std::size_t size)) {
    if (test::Fails("munmap", ENOMEM, false)) return -1;
    test::CountMappings(-1);
    return Real_munmap()(start, size);
}
ZBASE_INTERPOSE(int, mprotect, (void* start, std::size_t size, int rights), (start, size, rights), -1, ENOMEM,
                false)
ZBASE_INTERPOSE(int, madvise, (void* start, std::size_t size, int advice), (start, size, advice), -1, EAGAIN,
                false)
ZBASE_INTERPOSE(int, mincore, (void* start, std::size_t size, unsigned char* pages), (start, size, pages), -1,
                EAGAIN, false)
ZBASE_INTERPOSE(ssize_t, process_vm_readv,
                (pid_t process, const iovec* own, unsigned long ownCount, const iovec* its,
                 unsigned long itsCount, unsigned long flags),
                (process, own, ownCount, its, itsCount, flags), -1, EPERM, false)

// Processes, threads and signals.
ZBASE_INTERPOSE(int, clone, (int (*function)(void*), void* stack, int flags, void* argument),
                (function, stack, flags, argument), -1, EAGAIN, false)
ZBASE_INTERPOSE(int, kill, (pid_t process, int signal), (process, signal), -1, EPERM, false)
ZBASE_INTERPOSE(int, waitid, (int kind, id_t id, void* information, int options),
                (kind, id, information, options), -1, ECHILD, true)
ZBASE_INTERPOSE(pid_t, waitpid, (pid_t process, int* status, int options), (process, status, options), -1,
                ECHILD, true)
ZBASE_INTERPOSE(int, pthread_create,
                (void* thread, const void* how, void* (*function)(void*), void* argument),
                (thread, how, function, argument), EAGAIN, EAGAIN, false)
ZBASE_INTERPOSE(int, pthread_getattr_np, (unsigned long thread, void* attributes), (thread, attributes),
                ENOMEM, ENOMEM, false)
ZBASE_INTERPOSE(int, pthread_getcpuclockid, (unsigned long thread, void* clock), (thread, clock), ESRCH,
                ESRCH, false)
ZBASE_INTERPOSE(int, pthread_attr_setstacksize, (void* attributes, std::size_t size), (attributes, size),
                EINVAL, EINVAL, false)
ZBASE_INTERPOSE(int, __register_atfork, (void (*before)(), void (*parent)(), void (*child)(), void* module),
                (before, parent, child, module), ENOMEM, ENOMEM, false)
ZBASE_INTERPOSE(int, __cxa_at_quick_exit, (void (*function)(), void* module), (function, module), -1, ENOMEM,
                false)
ZBASE_INTERPOSE(int, prctl, (int option, unsigned long a, unsigned long b, unsigned long c, unsigned long d),
                (option, a, b, c, d), -1, EINVAL, false)
ZBASE_INTERPOSE(int, setrlimit, (int resource, const rlimit* limit), (resource, limit), -1, EPERM, false)
ZBASE_INTERPOSE(int, sigaltstack, (const void* stack, void* before), (stack, before), -1, ENOMEM, false)
ZBASE_INTERPOSE(int, sched_getaffinity, (pid_t thread, std::size_t size, cpu_set_t* processors),
                (thread, size, processors), -1, EPERM, false)
ZBASE_INTERPOSE(int, poll, (pollfd * entries, nfds_t count, int timeout), (entries, count, timeout), -1,
                ENOMEM, true)
ZBASE_INTERPOSED(int, nanosleep, (const timespec* wanted, timespec* left)) {
    test::EndShortage();
    return test::Fails("nanosleep", 0, true) ? -1 : Real_nanosleep()(wanted, left);
}
// The wall clock cannot fail, and the C++ library's clock reads what the call left uninitialised if it does.
ZBASE_INTERPOSED(int, clock_gettime, (clockid_t clock, timespec* time)) {
    if (clock != CLOCK_REALTIME && test::Fails("clock_gettime", EINVAL, false)) return -1;
    return Real_clock_gettime()(clock, time);
}
ZBASE_INTERPOSED(long, syscall, (long number, long a, long b, long c, long d, long e, long f)) {
    if (number != SYS_clock_gettime && test::Fails("syscall", ENOSYS, false)) return -1;
    return Real_syscall()(number, a, b, c, d, e, f);
}

// What the system tells.
ZBASE_INTERPOSE(int, setenv, (const char* name, const char* value, int overwrite), (name, value, overwrite),
                -1, ENOMEM, false)
ZBASE_INTERPOSE(int, unsetenv, (const char* name), (name), -1, EINVAL, false)
ZBASE_INTERPOSE(long, sysconf, (int name), (name), -1, EINVAL, false)
ZBASE_INTERPOSE(int, uname, (utsname * names), (names), -1, EFAULT, false)
ZBASE_INTERPOSE(int, gethostname, (char* name, std::size_t size), (name, size), -1, ENAMETOOLONG, false)
ZBASE_INTERPOSE(ssize_t, getrandom, (void* octets, std::size_t size, unsigned int flags),
                (octets, size, flags), -1, ENOSYS, true)
ZBASE_INTERPOSE(int, getpwuid_r, (uid_t user, passwd* entry, char* room, std::size_t size, passwd** found),
                (user, entry, room, size, found), EIO, EIO, false)

// The network.
ZBASE_INTERPOSE(int, socket, (int family, int kind, int protocol), (family, kind, protocol), -1, EMFILE,
                false)
ZBASE_INTERPOSE(int, socketpair, (int family, int kind, int protocol, int* ends),
                (family, kind, protocol, ends), -1, EMFILE, false)
ZBASE_INTERPOSE(int, connect, (int file, const sockaddr* address, socklen_t size), (file, address, size), -1,
                ECONNREFUSED, true)
ZBASE_INTERPOSE(int, getifaddrs, (ifaddrs * *list), (list), -1, ENOMEM, false)
ZBASE_INTERPOSE(int, getaddrinfo,
                (const char* host, const char* service, const addrinfo* hints, addrinfo** list),
                (host, service, hints, list), EAI_AGAIN, EAGAIN, false)
ZBASE_INTERPOSE(int, getnameinfo,
                (const sockaddr* address, socklen_t size, char* host, socklen_t hostSize, char* service,
                 socklen_t serviceSize, int flags),
                (address, size, host, hostSize, service, serviceSize, flags), EAI_AGAIN, EAGAIN, false)

// The loader. Its failure leaves words for `dlerror`.
ZBASE_INTERPOSED(void*, dlopen, (const char* path, int mode)) {
    return Real_dlopen()(test::Fails("dlopen", EMFILE, false) ? "/nowhere/at/all" : path, mode);
}
