#include "tests/support/BackgroundChild.h"

#include "tests/support/windows/StartChild.h"

namespace test {

namespace {

HANDLE Of(std::intptr_t handle) {
    return reinterpret_cast<HANDLE>(handle);
}

}  // namespace

BackgroundChild::BackgroundChild(const std::vector<std::string>& command,
                                 const std::vector<std::string>& environment) {
    const Pipe output(false);
    mOutput = reinterpret_cast<std::intptr_t>(output.reading);
    mChild = reinterpret_cast<std::intptr_t>(
        StartChild(command, environment, nullptr, output.writing, GetStdHandle(STD_ERROR_HANDLE)));
    CloseHandle(output.writing);
}

BackgroundChild::~BackgroundChild() {
    if (mChild != 0) {
        TerminateProcess(Of(mChild), 1);
        Wait();
    }
    CloseHandle(Of(mOutput));
}

std::string BackgroundChild::ReadLine() {
    std::string line;
    char letter = 0;
    DWORD count = 0;
    while (ReadFile(Of(mOutput), &letter, 1, &count, nullptr) && count == 1 && letter != '\n')
        if (letter != '\r') line.push_back(letter);
    return line;
}

void BackgroundChild::Signal(int) const {}

int BackgroundChild::Wait() {
    WaitForSingleObject(Of(mChild), INFINITE);
    CloseHandle(Of(mChild));
    mChild = 0;
    return 0;
}

}  // namespace test
