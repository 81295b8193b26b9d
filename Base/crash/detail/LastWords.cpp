#include <Base/crash/detail/CrashContract.h>
#include <Base/crash/detail/CrashState.h>
#include <Base/crash/detail/LastWords.h>
#include <Base/messages/Message.h>
#include <Base/messages/MessageFormat.h>
#include <Base/messages/detail/NestedExceptions.h>
#include <Base/platform/os/CurrentExceptionType.h>
#include <Base/platform/os/faults/Callers.h>
#include <Base/platform/os/processes/Threads.h>

#include <cxxabi.h>
#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <exception>
#include <string>

namespace ZBase::detail {

namespace {

constexpr std::size_t kMostTypeName = 1024;  // octets

std::string TextOf(const std::exception_ptr& exception) {
    try {
        std::rethrow_exception(exception);
    } catch (const Message& message) {
        return FormatMessage(message, 0).c_str();
    } catch (const std::exception& failure) {
        return failure.what();
    } catch (const std::string& thrown) {
        return thrown;
    } catch (const char* thrown) {
        return thrown == nullptr ? "" : thrown;
    } catch (...) {
        return "";
    }
}

// The text of an exception, and of those nested in it, a line or tree each.
std::string TextOfAll(NestedExceptions exception) {
    std::string text = TextOf(exception.Present());
    for (exception.Step(); exception.Present() != nullptr; exception.Step())
        text += "\n" + TextOf(exception.Present());
    return text;
}

// What an exception holds as it is.
void SayPlainly(ThreadWords& words, const std::exception_ptr& exception) {
    try {
        std::rethrow_exception(exception);
    } catch (const std::exception& failure) {
        words.Add(kExceptionField, failure.what());
    } catch (...) {
    }
}

void Say(ThreadWords& words) {
    const std::exception_ptr exception = std::current_exception();
    const bool hasHeap = !os::MayHoldAllocator();
    char type[kMostTypeName + 1];
    const bool hasType = os::GetCurrentExceptionType(type, sizeof type, hasHeap);
    if (os::IsCalledFrom(reinterpret_cast<const void*>(&abi::__cxa_pure_virtual))) {
        words.Add(kPureCallField, "pure virtual method called");
    } else if (exception == nullptr && !hasType) {
        words.Add(kTerminateField, "called without an exception");
    } else {
        if (hasType) words.Add(kExceptionTypeField, type);
        if (exception == nullptr || !hasHeap) return;  // null if it is of another language
        try {
            const std::string text = TextOfAll(NestedExceptions(exception));
            if (!text.empty()) words.Add(kExceptionField, text.c_str());
        } catch (...) {  // no memory for it
            SayPlainly(words, exception);
        }
    }
}

ThreadWords* WordsOf(unsigned long thread) {
    const auto found = std::find_if(std::begin(gCrash.words), std::end(gCrash.words),
                                    [&](const ThreadWords& words) { return words.thread == thread; });
    return found == std::end(gCrash.words) ? nullptr : found;
}

// A child that shares the memory says something, ends, and leaves its words behind.
bool Take(ThreadWords& words, unsigned long thread) {
    unsigned long holder = 0;
    if (words.thread.compare_exchange_strong(holder, thread)) return true;
    if (!os::IsThreadGone(holder) || !words.thread.compare_exchange_strong(holder, thread)) return false;
    words.size = 0;
    return true;
}

// A thread that enters a second time, from the code below, adds nothing.
[[noreturn]] void HandleTerminate() {
    const unsigned long thread = os::CurrentThreadId();
    if (WordsOf(thread) == nullptr) {
        for (ThreadWords& words : gCrash.words) {
            if (!Take(words, thread)) continue;
            Say(words);
            break;
        }
    }
    if (gCrash.terminateHandler != nullptr) gCrash.terminateHandler();
    std::abort();
}

}  // namespace

void ThreadWords::Add(const char* name, const char* value, std::size_t most) {
    const std::size_t nameSize = std::strlen(name) + 1;
    if (nameSize + 1 > sizeof fields - size) return;
    const std::size_t room = std::min(most, sizeof fields - size - nameSize - 1);
    const auto length = static_cast<std::size_t>(std::find(value, value + room, '\0') - value);
    std::memcpy(fields + size, name, nameSize);
    std::memcpy(fields + size + nameSize, value, length);
    size += nameSize + length + 1;
    fields[size - 1] = 0;
}

void WatchTerminate() {
    os::PrepareCallers();
    os::PrepareAbortMessage();
    if (std::get_terminate() != HandleTerminate)
        gCrash.terminateHandler = std::set_terminate(HandleTerminate);
}

void UnwatchTerminate() {
    if (std::get_terminate() == HandleTerminate) std::set_terminate(gCrash.terminateHandler);
}

std::size_t CopyLastWords(char* fields, os::EDumpCause cause) {
    std::size_t size = 0;
    if (cause == os::EDumpCause::eDemand) return 0;
    if (const ThreadWords* const words = WordsOf(os::CurrentThreadId())) {
        size = words->size;
        std::memcpy(fields, words->fields, size);
    }
    if (cause != os::EDumpCause::eAbort) return size;
    char* const value = fields + size + sizeof kAbortMessageField;
    std::size_t length = os::CopyAbortMessage(value, kMostLastWords - size - sizeof kAbortMessageField);
    while (length != 0 && value[length - 1] == '\n') --length;
    if (length == 0) return size;
    std::memcpy(fields + size, kAbortMessageField, sizeof kAbortMessageField);
    value[length] = 0;
    return size + sizeof kAbortMessageField + length + 1;
}

}  // namespace ZBase::detail
