// TerminateProbe KIND: ends by an uncaught exception, with the handler that prints it. With "chained" a
// handler is set between two installations that calls the one before it.

#include <Base/ZBase.h>

#include <cstdio>
#include <cstdlib>
#include <exception>
#include <stdexcept>
#include <string>

namespace {

void EndQuietly() {
    std::fputs("the former handler\n", stderr);
    std::_Exit(7);
}

std::terminate_handler gFormer = nullptr;

void EndByFormer() {
    std::fputs("a handler in between\n", stderr);
    gFormer();
}

}  // namespace

int main(int, char** arguments) {
    const std::string kind = arguments[1];
    if (kind != "default") std::set_terminate(EndQuietly);
    ZBase::InstallTerminateHandler();
    if (kind == "chained") gFormer = std::set_terminate(EndByFormer);
    ZBase::InstallTerminateHandler();
    if (kind == "none") std::terminate();
    if (kind == "standard") throw std::runtime_error("what it says");
    ZBase::Message message(300, 103, "%1 is not text.");
    message << "names.txt";
    message.WrapBy(300, 110, "could not load");
    throw ZBase::ExceptionImpl<ZBase::BufferException>(message);
}
