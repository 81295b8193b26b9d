#pragma once

#include <Base/frame/Api.h>

namespace ZBase {

/// Reads "crash_report.ini" and, if that switches it on, has every crash of the process dumped and reported
/// from now on. False, with no new handler and no message, if there is no file, if it says so or leaves a
/// server out, if the dump directory can't be made, or if there is no memory. Call once, early. Another call
/// adds what it reads to what was read before; `native_dump` and `keep_dump_file` stay true once they are.
///
/// A crash ends the process by its signal, once the report was sent; that takes at most 10 seconds for the
/// dump and 60 for the upload. While it is sent, other threads continue, except for those that crash too and
/// for calls of `exit` and `quick_exit`, which wait for that end. A child of fork or vfork has its own crash.
/// The directory of the dumps is kept within the limits of `CrashStore`, here and after each dump. Dumps hold
/// the memory of stacks, the command line and the environment.
///
/// `std::terminate` records the text of its exception for the report and then continues as before; a handler
/// that the host sets later has to call the one that it replaces.
ZBASE_API bool InstallCrashHandler();

/// Dumps and reports the process as hanging; then it continues. False if there is no handler, if another call
/// runs, during a crash, in a child of vfork, or if the dump could not be written. `exit` waits for it.
ZBASE_API bool CreateDump();

/// Adds a crash key, which is sent with each report. Octets from 0x80 up become "?". False for a null, and
/// for a key that is there already unless `overwrite`. What is set before the installation loses to a key of
/// the configuration file. The key "customer_dsi" with a number that is not 0, as `atoi` reads it, directs
/// reports to `ServerProdURL` from now on. Any thread may call, beside a crash too; a report has the keys
/// that were set when it is sent. In a name what is not printable, and a quote, is reported as "%" and its
/// number, and an empty name as "%". Throws `std::bad_alloc` with nothing changed.
ZBASE_API bool SetCrashAttr(const char* key, const char* value, bool overwrite);

/// Gives the calling thread, until it ends, the alternate stack for reporting its stack overflow, unless it
/// has one of 16 KiB or more, and unblocks the fault signals for it: the kernel ends a process unreported if
/// it faults while they are blocked. The thread that called `InstallCrashHandler` has both. False if there is
/// no memory for the stack.
ZBASE_API bool InstallCrashStack();

}  // namespace ZBase
