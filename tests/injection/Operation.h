#pragma once

#include <Base/messages/Message.h>

#include <exception>
#include <new>
#include <string_view>
#include <vector>

#include "tests/injection/Injection.h"

namespace test {

// How a call may end; which of these it does stands in its header.
inline constexpr unsigned int kReturns = 1;   // with its result, or with what it gives for a failure
inline constexpr unsigned int kBadAlloc = 2;  // `std::bad_alloc`
inline constexpr unsigned int kMessage = 4;   // a `Message` of any kind
inline constexpr unsigned int kStandard = 8;  // another `std::exception`
inline constexpr unsigned int kAnything = 16;

/// An operation that is under way, with one failure at most.
class Trial {
public:
    /// Makes a call with failures armed, and notes how it ended. True if it returned. What stands around such
    /// calls in an operation is its setting and what it has to show.
    template <class Call>
    bool operator()(Call call) {
        const unsigned int ending = EndingOf(call);
        mEndings |= ending;
        return ending == kReturns;
    }

    /// Whether no call has failed so far, so that all has to have its full result.
    bool IsUntouched() const { return !HasFailed(); }

    unsigned int Endings() const { return mEndings; }

private:
    template <class Call>
    static unsigned int EndingOf(Call& call) {
        try {
            const Armed armed;
            call();
            return kReturns;
        } catch (const std::bad_alloc&) {
            return kBadAlloc;
        } catch (const ZBase::Message&) {
            return kMessage;
        } catch (const std::exception&) {
            return kStandard;
        } catch (...) {
            return kAnything;
        }
    }

    unsigned int mEndings = 0;
};

/// Where an operation runs: in children, each of which has never used the library before, and again and again
/// in one process.
enum class EWhere {
    eBoth,
    eInChildren,  // it changes its process for good, or keeps what it takes to the end of it
    // Its first use brings code of others into the process (the resolver's modules, debug help's, curl's),
    // and without memory that, or the loader, ends the process or is never tried again.
    eInOneProcess,
};

/// A row of the table.
struct Operation {
    const char* name;
    /// What is exported and used in it: a name without its parameters, of all its forms; with them, of one;
    /// with "*" at its end, of all that begins so. A class's destructor stands with what makes an object.
    std::vector<std::string_view> covers;
    unsigned int ends;  // what it may end in
    void (*run)(Trial&);
    EWhere where = EWhere::eBoth;
    /// What its header says of a failure that lasts, if that is another end than those.
    const char* whenItLasts = nullptr;
};

std::vector<Operation> FrameOperations();
std::vector<Operation> TextOperations();
std::vector<Operation> MessageOperations();
std::vector<Operation> MemoryOperations();
std::vector<Operation> PlatformOperations();
std::vector<Operation> DiagnosticsOperations();
std::vector<Operation> CrashOperations();
std::vector<Operation> XmlOperations();

/// All of them.
const std::vector<Operation>& Operations();

}  // namespace test
