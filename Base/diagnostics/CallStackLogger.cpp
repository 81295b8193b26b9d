#include <Base/diagnostics/CallStackLogger.h>
#include <Base/diagnostics/DbgHelpBuilder.h>
#include <Base/diagnostics/detail/ForkedLocks.h>
#include <Base/frame/Threads.h>
#include <Base/frame/detail/LibraryState.h>
#include <Base/platform/os/files/Files.h>

#include <algorithm>
#include <cstdio>
#include <memory>
#include <ostream>
#include <string>
#include <string_view>
#include <unordered_map>

namespace ZBase {

namespace {

constexpr std::int32_t kTaken = 0x12345678;
constexpr unsigned long kAddresses = std::size(CallStackRec{}.addresses);
constexpr unsigned long kEverything = 39;  // skipping this many and one more leaves nothing

/// The key of a duplicate: the category and the addresses up to the first zero.
struct Stack {
    std::uint32_t lockCategory;
    const std::uint64_t* addresses;
    std::size_t size;

    explicit Stack(const CallStackRec& record)
        : lockCategory(record.lockCategory),
          addresses(record.addresses),
          size(static_cast<std::size_t>(std::find(addresses, addresses + kAddresses, 0) - addresses)) {}

    bool operator==(const Stack& other) const {
        return lockCategory == other.lockCategory && size == other.size &&
               std::equal(addresses, addresses + size, other.addresses);
    }
};

struct HashStack {
    std::size_t operator()(const Stack& stack) const {
        std::uint64_t hash = stack.lockCategory;
        for (std::size_t i = 0; i != stack.size; ++i) {
            hash = (hash ^ stack.addresses[i]) * 0x9E3779B97F4A7C15;
            hash ^= hash >> 32;
        }
        return static_cast<std::size_t>(hash);
    }
};

/// The line of an address in the report; each address is looked up once.
class AddressLines {
public:
    explicit AddressLines(AddrToLine& resolver) : mResolver(resolver) {}

    const std::string& operator[](std::uint64_t address) {
        std::string& text = mTexts[address];
        if (text.empty()) {
            std::string module, symbol, file, line;
            mResolver.Fetch(address, module, symbol, file, line);
            char number[24];
            std::snprintf(number, sizeof number, "0x%llx", static_cast<unsigned long long>(address));
            text = std::string(number) + " # " + module + " # " + symbol + " # " + file + " # " + line + "\n";
        }
        return text;
    }

private:
    AddrToLine& mResolver;
    std::unordered_map<std::uint64_t, std::string> mTexts;
};

struct CloseFile {
    void operator()(std::FILE* file) const { std::fclose(file); }
};

}  // namespace

class CallStackLogger::SpinGuard {
public:
    explicit SpinGuard(std::atomic<std::int32_t>& lock) : mGate(lock), mWord(lock) {
        while (mWord.exchange(kTaken, std::memory_order_acquire) == kTaken) Sleep(0);
    }
    ~SpinGuard() { mWord.exchange(0, std::memory_order_release); }
    SpinGuard(const SpinGuard&) = delete;
    SpinGuard& operator=(const SpinGuard&) = delete;

private:
    detail::ForkGate mGate;
    std::atomic<std::int32_t>& mWord;
};

CallStackLogger::CallStackLogger() = default;

// The walk begins in this function, so the other overload repeats the code and does not call it.
void CallStackLogger::AppendCallStack(unsigned int lockCategory, unsigned long skip) {
    auto record = std::make_unique<CallStackRec>(CallStackRec{lockCategory, 1, {}});
    std::list<CallStackRec*> node{record.get()};  // outside the lock, which then never waits for the heap
    static_cast<void>(record.release());          // never freed: records live to the end of the process
    const SpinGuard guard(mLock);
    gDbgHelpBuilder.DoStackWalk(node.front()->addresses, kAddresses, std::min(skip, kEverything) + 1);
    mRecords.splice(mRecords.end(), node);
}

void CallStackLogger::AppendCallStack(unsigned long skip) {
    auto record = std::make_unique<CallStackRec>(CallStackRec{0, 1, {}});
    std::list<CallStackRec*> node{record.get()};  // outside the lock, which then never waits for the heap
    static_cast<void>(record.release());          // never freed: records live to the end of the process
    const SpinGuard guard(mLock);
    gDbgHelpBuilder.DoStackWalk(node.front()->addresses, kAddresses, std::min(skip, kEverything) + 1);
    mRecords.splice(mRecords.end(), node);
}

void CallStackLogger::RemoveDuplicates() {
    const SpinGuard guard(mLock);
    std::unordered_map<Stack, CallStackRec*, HashStack> firsts;
    firsts.reserve(mRecords.size());
    for (auto next = mRecords.begin(); next != mRecords.end();) {
        const auto [first, isNew] = firsts.try_emplace(Stack(**next), *next);
        if (isNew) {
            ++next;
            continue;
        }
        // The count of the removed record is dropped, and it stays allocated; kept for callers that hold
        // records.
        ++first->second->count;
        next = mRecords.erase(next);
    }
}

void CallStackLogger::FprintfCallStack(const char* path) {
    gDbgHelpBuilder.EnumerateModulesAndLoadSymbols();
    const std::unique_ptr<std::FILE, CloseFile> file(path == nullptr ? nullptr : os::OpenFile(path, "w+"));
    if (file == nullptr) return;
    AddressLines lines(mResolver);
    std::uint64_t total = 0;
    for (const CallStackRec* record : mRecords) {
        std::fprintf(file.get(), "%s\nLock Category = %d\n", "<start>",
                     static_cast<int>(record->lockCategory));
        std::fprintf(file.get(), "Count = %lu\n", static_cast<unsigned long>(record->count));
        for (const std::uint64_t address : record->addresses) {
            if (address != 0) std::fputs(lines[address].c_str(), file.get());
        }
        std::fprintf(file.get(), "%s\n\n", "<end>");
        total += record->count;
    }
    // As text, which no setting of the stream changes.
    StandardOutput() << "Total Call Stacks Captured: " << std::to_string(total) << std::endl;
}

std::list<CallStackRec*>::const_iterator CallStackLogger::begin() const {
    return mRecords.begin();
}
std::list<CallStackRec*>::const_iterator CallStackLogger::end() const {
    return mRecords.end();
}

}  // namespace ZBase
