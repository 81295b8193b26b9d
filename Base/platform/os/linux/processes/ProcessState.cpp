#include <Base/platform/os/linux/processes/OwnProc.h>
#include <Base/platform/os/linux/processes/ProcessState.h>

#include <sys/stat.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>
#include <cerrno>
#include <climits>
#include <string>

namespace ZBase::os {

namespace {

enum class EState { Unknown, Running, Ended };

// A zombie has no current directory, and no thread but its first.
EState StateFromTheProcessList(int id) {
    if (!HasOwnProc()) return EState::Unknown;
    const std::string folder = "/proc/" + std::to_string(id);
    struct stat threads {};
    if (stat((folder + "/task").c_str(), &threads) != 0) return EState::Unknown;
    if (threads.st_nlink > 3) return EState::Running;
    char current[PATH_MAX];
    if (readlink((folder + "/cwd").c_str(), current, sizeof current) >= 0) return EState::Running;
    return errno == ENOENT ? EState::Ended : EState::Unknown;
}

// WNOWAIT leaves the result of a child to the thread that waits for it.
bool IsEndedChild(int id) {
    siginfo_t info{};
    return waitid(P_PID, static_cast<id_t>(id), &info, WEXITED | WNOHANG | WNOWAIT | __WALL) == 0 &&
           info.si_pid == id;
}

}  // namespace

bool IsRunning(int id) {
    if (id <= 0) return false;
    if (id == getpid()) return true;
    // The id of a thread that is not the first of its process is not a process id.
    if (syscall(SYS_tgkill, id, id, 0) != 0 && errno == ESRCH) return false;
    const EState state = StateFromTheProcessList(id);
    return state == EState::Running || (state == EState::Unknown && !IsEndedChild(id));
}

}  // namespace ZBase::os
