// The name of a file is made in the crash, without the heap: a name made earlier would be in use by an
// earlier dump, or by a forked child.

#include <Base/platform/os/linux/crash/CrashTurns.h>
#include <Base/platform/os/linux/crash/DumpWriter.h>
#include <Base/platform/os/linux/files/AbsoluteDirectory.h>
#include <Base/platform/os/linux/processes/SignalsHeldBack.h>
#include <Base/platform/os/processes/Environment.h>

#include <client/linux/minidump_writer/dump_limit.h>
#include <fcntl.h>
#include <sys/file.h>
#include <sys/prctl.h>
#include <sys/random.h>
#include <sys/stat.h>
#include <unistd.h>
#include <atomic>
#include <cerrno>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <ctime>

namespace ZBase::os {

namespace {

using google_breakpad::MinidumpDescriptor;

constexpr char kNothing[kDumpMemories][8] = {};  // memory of a dump for a user without any

// The steps of a generator whose results do not repeat (splitmix64).
std::uint64_t Mix(std::uint64_t number) {
    number = (number ^ (number >> 30)) * 0xBF58476D1CE4E5B9;
    number = (number ^ (number >> 27)) * 0x94D049BB133111EB;
    return number ^ (number >> 31);
}

// What no other dump has. Sandboxes refuse random numbers, and a system that has just started has none; a
// file's name does without: the time and the thread are enough.
void MakeUnique(unsigned char (&octets)[16]) {
    if (getrandom(octets, sizeof octets, GRND_NONBLOCK) == sizeof octets) return;
    static constinit std::atomic<std::uint32_t> sCount{0};
    timespec time{};
    clock_gettime(CLOCK_REALTIME, &time);
    const std::uint64_t halves[] = {Mix(static_cast<std::uint64_t>(time.tv_sec) * 1'000'000'000 +
                                        static_cast<std::uint64_t>(time.tv_nsec)),
                                    Mix(static_cast<std::uint64_t>(gettid()) << 32 | sCount.fetch_add(1))};
    std::memcpy(octets, halves, sizeof octets);
}

// "/" and a random GUID and the ending. Runs on the crashed thread. No heap, no lock.
void MakeName(char* name) {
    unsigned char random[16];
    MakeUnique(random);
    random[6] = static_cast<unsigned char>(0x40 | (random[6] & 0x0F));
    random[8] = static_cast<unsigned char>(0x80 | (random[8] & 0x3F));
    *name++ = '/';
    for (std::size_t i = 0; i != sizeof random; ++i) {
        if (i == 4 || i == 6 || i == 8 || i == 10) *name++ = '-';
        *name++ = "0123456789abcdef"[random[i] >> 4];
        *name++ = "0123456789abcdef"[random[i] & 0x0F];
    }
    std::memcpy(name, kDumpEnding, sizeof kDumpEnding);
}

}  // namespace

DumpWriter::DumpWriter(const std::string& directory, DumpUser user, bool onDemand, unsigned int megabytes)
    : mUser(user),
      mOnDemand(onDemand),
      mMostOctets(off_t{megabytes} << 20),
      mHandler(MinidumpDescriptor(STDIN_FILENO), nullptr, nullptr, nullptr, false, -1) {
    const char* const given = GetNarrowEnvironment("TMPDIR");
    const std::string temporary = AbsoluteDirectory(given == nullptr || *given == 0 ? "/tmp" : given);
    std::memcpy(mDirectory, directory.c_str(), directory.size() + 1);
    std::memcpy(mTemporary, temporary.c_str(), temporary.size() + 1);
    mPath[0] = 0;
    mElsewhere[0] = 0;
    // Each is identified by its address.
    for (const auto& nothing : kNothing)
        mHandler.RegisterAppMemory(const_cast<char*>(nothing), sizeof nothing);
}

bool DumpWriter::WriteCrash(int signal, siginfo_t* information, void* context) {
    const bool isMine = TakeDump();
    const bool written = Dump(signal == SIGABRT ? EDumpCause::eAbort : EDumpCause::eFault,
                              [&] { return mHandler.HandleSignal(signal, information, context); });
    if (isMine) LeaveDump();
    return EndDump(written);
}

bool DumpWriter::WriteNow() {
    bool written = false;
    {
        const SignalsHeldBack heldBack;
        if (!TakeDump()) return false;
        // Threads that crash from here on wait; one that has crashed before has priority over a dump on
        // demand.
        if (IsCrashing()) {
            LeaveDump();
            return false;
        }
        const int dumpable = prctl(PR_GET_DUMPABLE, 0, 0, 0, 0);
        written = Dump(EDumpCause::eDemand, [this] { return mHandler.WriteMinidump(); });
        // The dump has made the process one that others of its user may look into. Only 0 and 1 can be set.
        if (dumpable != 1) prctl(PR_SET_DUMPABLE, 0, 0, 0, 0);
        LeaveDump();
    }
    return EndDump(written);
}

// The file is locked until the user is done with it.
bool DumpWriter::EndDump(bool written) {
    const bool answer = mUser.end({mPath, written, mOnDemand, mElsewhere[0] == 0 ? nullptr : mElsewhere});
    CloseFile();
    return answer;
}

// Writes into the directory, or into the temporary one if that is not writable. Runs on the crashed thread.
// No heap, no lock.
template <class Write>
bool DumpWriter::Dump(EDumpCause cause, Write write) {
    const DumpContent content = mUser.begin(cause);
    for (std::size_t i = 0; i != kDumpMemories; ++i) {
        const DumpMemory& part = content.parts[i];
        mHandler.ReplaceAppMemory(
            i, part.size == 0 ? const_cast<char*>(kNothing[i]) : const_cast<void*>(part.start),
            part.size == 0 ? sizeof kNothing[i] : part.size);
    }
    mElsewhere[0] = 0;
    if (OpenInDirectory()) {
        const bool written = write();
        if (!DropIfEmpty(written) || google_breakpad::DumpLimit::IsHalfOver()) return written;
        SayWhere(mTemporary, mDirectory, "nothing can be written there");
    } else {
        if (errno == ENOTDIR) return false;  // not a directory
        SayWhere(mTemporary, mDirectory, strerrordesc_np(errno));
    }
    if (!OpenFile(mTemporary)) return false;
    const bool written = write();
    DropIfEmpty(written);
    return written;
}

// Makes the directory again if it was deleted.
bool DumpWriter::OpenInDirectory() {
    if (OpenFile(mDirectory)) return true;
    const int error = errno;
    if (error == ENOENT && mkdir(mDirectory, S_IRWXU) == 0 && OpenFile(mDirectory)) {
        SayWhere(mDirectory, mDirectory, "made again");
        return true;
    }
    errno = error;
    return false;
}

bool DumpWriter::OpenFile(const char* directory) {
    MakeName(stpcpy(mPath, directory));
    mFile = open(mPath, O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, S_IRUSR | S_IWUSR);
    if (mFile < 0) return false;
    flock(mFile, LOCK_EX | LOCK_NB);  // it is neither sent nor deleted meanwhile
    MinidumpDescriptor descriptor(mFile);
    descriptor.set_size_limit(mMostOctets);
    descriptor.set_sanitize_stacks(false);
    mHandler.set_minidump_descriptor(descriptor);
    return true;
}

// Deletes a file to which nothing could be written; true for such a one.
bool DumpWriter::DropIfEmpty(bool written) {
    struct stat file {};
    const bool isEmpty = !written && fstat(mFile, &file) == 0 && (file.st_size == 0 || file.st_blocks == 0);
    if (isEmpty) unlink(mPath);
    if (isEmpty) CloseFile();
    return isEmpty;
}

void DumpWriter::CloseFile() {
    if (mFile < 0) return;
    flock(mFile, LOCK_UN);  // a forked child may have the file open too
    close(mFile);
    mFile = -1;
}

void DumpWriter::SayWhere(const char* directory, const char* why, const char* reason) {
    std::size_t size = 0;
    for (const char* part : {directory, " (", why, ": ", reason == nullptr ? "?" : reason, ")"}) {
        const std::size_t length = strnlen(part, sizeof mElsewhere - 1 - size);
        std::memcpy(mElsewhere + size, part, length);
        size += length;
    }
    mElsewhere[size] = 0;
}

}  // namespace ZBase::os
