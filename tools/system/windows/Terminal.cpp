#include "tools/system/Terminal.h"

#include <windows.h>

#include <io.h>

namespace {

HANDLE ConsoleOf(int stream) {
    return GetStdHandle(stream == 1 ? STD_OUTPUT_HANDLE : STD_ERROR_HANDLE);
}

}  // namespace

// A console understands control sequences once it is told so, and UTF-8 as well.
bool IsTerminalStream(int stream) {
    DWORD mode = 0;
    if (_isatty(stream) == 0 || !GetConsoleMode(ConsoleOf(stream), &mode)) return false;
    SetConsoleOutputCP(CP_UTF8);
    return SetConsoleMode(ConsoleOf(stream), mode | ENABLE_VIRTUAL_TERMINAL_PROCESSING) != 0;
}

std::size_t TerminalColumns() {
    CONSOLE_SCREEN_BUFFER_INFO facts{};
    constexpr std::size_t usual = 80;
    if (!GetConsoleScreenBufferInfo(ConsoleOf(2), &facts)) return usual;
    return static_cast<std::size_t>(facts.srWindow.Right - facts.srWindow.Left + 1);
}
