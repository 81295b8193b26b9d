#include "tools/zbase-crash-sender/Starter.h"

#include <poll.h>
#include <sys/resource.h>
#include <sys/syscall.h>
#include <unistd.h>
#include <algorithm>
#include <cerrno>
#include <ctime>

std::string ReadRequest() {
    std::string input;
    char piece[4096];
    for (;;) {
        const ssize_t count = read(STDIN_FILENO, piece, sizeof piece);
        if (count > 0) input.append(piece, static_cast<std::size_t>(count));
        if (count == 0 || (count < 0 && errno != EINTR)) return input;
    }
}

bool Answer(char answer) {
    return write(STDIN_FILENO, &answer, 1) == 1;
}

EPart GoOnInBackground() {
    const pid_t child = fork();
    if (child != 0) return child > 0 ? EPart::eStays : EPart::eFailed;
    close(STDIN_FILENO);
    setsid();
    return EPart::eGoesOn;
}

// What the process that started this one may use is not what this one needs over hours.
bool LeaveStarter() {
    rlimit limit{};
    getrlimit(RLIMIT_CPU, &limit);
    limit.rlim_cur = limit.rlim_max;
    setrlimit(RLIMIT_CPU, &limit);
    return chdir("/") == 0;
}

Starter::Starter(unsigned int process) : mProcess(syscall(SYS_pidfd_open, static_cast<pid_t>(process), 0)) {}

Starter::~Starter() {
    if (mProcess >= 0) close(static_cast<int>(mProcess));
}

bool Starter::LivesFor(long long seconds) const {
    constexpr long long kLongestWait = 3600;
    const std::time_t end = std::time(nullptr) + seconds;
    for (;;) {
        const long long left = std::clamp<long long>(end - std::time(nullptr), 0, kLongestWait);
        pollfd entry{static_cast<int>(mProcess), POLLIN, 0};
        const int ready = mProcess < 0 ? 1 : poll(&entry, 1, static_cast<int>(left * 1000));
        if (ready == 0) return true;
        if (ready > 0 || errno != EINTR) return false;
    }
}
