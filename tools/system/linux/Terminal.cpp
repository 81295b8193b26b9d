#include "tools/system/Terminal.h"

#include <sys/ioctl.h>
#include <unistd.h>

bool IsTerminalStream(int stream) {
    return isatty(stream) == 1;
}

std::size_t TerminalColumns() {
    winsize size{};
    constexpr std::size_t usual = 80;
    return ioctl(STDERR_FILENO, TIOCGWINSZ, &size) == 0 && size.ws_col != 0 ? size.ws_col : usual;
}
