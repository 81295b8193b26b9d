#include <Base/messages/TerminateHandler.h>

#include <Base/messages/CurrentException.h>
#include <Base/messages/MessageTreeText.h>
#include <Base/platform/os/ErrorStream.h>
#include <Base/platform/os/modules/StayLoaded.h>

#include <atomic>
#include <cstdlib>
#include <exception>
#include <string>

namespace ZBase {

namespace {

constinit std::atomic<std::terminate_handler> sFormer{nullptr};

[[noreturn]] void TellAndTerminate() {
    if (std::current_exception()) {
        try {
            const std::string tree = FormatTree(MessageOfCurrentException()).c_str();
            os::WriteErrorText("An exception was not caught:\n" + tree);
        } catch (...) {
            // The process ends, printed or not.
        }
    }
    const std::terminate_handler former = sFormer;
    if (former != nullptr) former();
    std::abort();
}

}  // namespace

void InstallTerminateHandler() {
    os::StayLoaded();  // a later handler may have kept a pointer to this one
    const std::terminate_handler former = std::set_terminate(TellAndTerminate);
    if (former != TellAndTerminate) sFormer = former;
}

}  // namespace ZBase
