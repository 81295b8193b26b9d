#include <Base/messages/TerminateHandler.h>

#include <Base/messages/CurrentException.h>
#include <Base/messages/MessageTreeText.h>
#include <Base/platform/os/ErrorStream.h>
#include <Base/platform/os/modules/StayLoaded.h>
#include <Base/platform/os/processes/Threads.h>

#include <atomic>
#include <cstdlib>
#include <exception>
#include <string>

namespace ZBase {

namespace {

constinit std::atomic<std::terminate_handler> sFirst{nullptr};   // before the first installation
constinit std::atomic<std::terminate_handler> sFormer{nullptr};  // before the last one
constinit std::atomic<unsigned long> sEnding{0};                 // the thread that tells its exception

[[noreturn]] void EndBy(std::terminate_handler handler) {
    if (handler != nullptr) handler();
    std::abort();
}

[[noreturn]] void TellAndTerminate() {
    // A handler that was set in between calls this one as its former.
    const unsigned long thread = os::CurrentThreadId();
    if (sEnding.exchange(thread) == thread) EndBy(sFirst);
    if (std::current_exception()) {
        try {
            const std::string tree = FormatTree(MessageOfCurrentException()).c_str();
            os::WriteErrorText("An exception was not caught:\n" + tree);
        } catch (...) {
            // The process ends, printed or not.
        }
    }
    EndBy(sFormer);
}

}  // namespace

void InstallTerminateHandler() {
    os::StayLoaded();  // a later handler may have kept a pointer to this one
    std::terminate_handler former = std::get_terminate();
    if (former == TellAndTerminate) return;
    std::terminate_handler none = nullptr;
    sFirst.compare_exchange_strong(none, former);
    sFormer = former;  // before the handler can run
    former = std::set_terminate(TellAndTerminate);
    if (former != TellAndTerminate) sFormer = former;
}

}  // namespace ZBase
