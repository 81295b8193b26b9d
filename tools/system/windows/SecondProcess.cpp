#include "tools/system/SecondProcess.h"
#include "Child.h"
#include "tools/system/Programs.h"
#include "tools/zbase/terminal/Console.h"

#include <windows.h>

#include <algorithm>
#include <thread>

namespace {

// A child that ends before it has read all is no failure here.
void WriteAndClose(Handle& pipe, const std::string& input) {
    for (std::size_t done = 0; done != input.size();) {
        const auto size = static_cast<DWORD>(std::min<std::size_t>(input.size() - done, 1 << 20));
        DWORD count = 0;
        if (!WriteFile(pipe.Get(), input.data() + done, size, &count, nullptr)) break;
        done += count;
    }
    pipe.Close();
}

}  // namespace

SecondProcess RunSecondProcess(const std::vector<std::string>& arguments, const std::string& input) {
    Pipe toChild(true);
    Pipe fromChild(false);
    std::vector<std::string> command{ThisProgram()};
    command.insert(command.end(), arguments.begin(), arguments.end());
    DWORD id = 0;
    const Handle process(StartChild(command, toChild.reading.Get(), fromChild.writing.Get(),
                                    GetStdHandle(STD_ERROR_HANDLE), id));
    toChild.reading.Close();
    fromChild.writing.Close();
    std::thread writer([&] { WriteAndClose(toChild.writing, input); });
    SecondProcess second{static_cast<int>(id), ReadToTheEnd(fromChild.reading.Get())};
    writer.join();
    if (EndOf(process.Get()) != 0) throw Failure("process " + std::to_string(id) + " failed");
    return second;
}
