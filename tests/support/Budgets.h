#pragma once

#include <Base/ZBase.h>

#include <cstddef>
#include <functional>
#include <memory>
#include <mutex>
#include <string>
#include <utility>
#include <vector>

namespace test {

/// One call on a budget, such as {"RequestChunk", 4096}.
using BudgetCall = std::pair<std::string, std::size_t>;
using BudgetCalls = std::vector<BudgetCall>;

/// A contract that records its calls, and refuses when `chunkCode` or `code` is not 0. It is on the test's
/// stack; `references` counts its holders.
class RecordingContract final : public ZBase::MemoryContract {
public:
    void AddRef() override { ++references; }
    void Release() override { --references; }

    unsigned int Request(unsigned int bytes) override {
        if (inRequest) inRequest();
        Note("Request", bytes);
        return code;
    }
    void Settle(unsigned int bytes) override {
        Note("Settle", bytes);
        if (throwInSettle) throw 7;
    }
    unsigned int RequestChunk(std::size_t bytes, bool chunk) override {
        Note(chunk ? "RequestChunk" : "RequestChunk of false", bytes);
        if (inRequestChunk) inRequestChunk();
        return chunkCode;
    }
    void SettleChunk(std::size_t bytes) override {
        Note("SettleChunk", bytes);
        if (throwInSettleChunk) throw 7;
    }

    int references = 0;
    unsigned int code = 0;
    unsigned int chunkCode = 0;
    bool throwInSettle = false;
    bool throwInSettleChunk = false;
    std::function<void()> inRequest;
    std::function<void()> inRequestChunk;
    std::shared_ptr<BudgetCalls> calls = std::make_shared<BudgetCalls>();

private:
    void Note(const char* call, std::size_t bytes) {
        const std::lock_guard lock(mMutex);
        calls->emplace_back(call, bytes);
    }

    std::mutex mMutex;
};

inline ZBase::WideString ToWide(const std::string& text) {
    return ZBase::WideString(ZBase::UTF8ToWideChar(text.c_str(), false).c_str());
}

/// A registered governor that records its calls.
class RecordingGovernor {
public:
    explicit RecordingGovernor(std::string name = "governor",
                               std::shared_ptr<BudgetCalls> into = std::make_shared<BudgetCalls>())
        : calls(std::move(into)), mName(std::move(name)) {
        proxy.mRequest = [this](std::size_t bytes) {
            Note("asks", bytes);
            return !refuses;
        };
        proxy.mRelease = [this](std::size_t bytes) { Note("releases", bytes); };
        proxy.mRefusalText = [this](std::size_t bytes) {
            return ToWide(mName + " refuses " + std::to_string(bytes));
        };
        ZBase::RegisterMemGovernor(&proxy);
    }
    ~RecordingGovernor() { ZBase::UnregisterMemGovernor(&proxy); }
    RecordingGovernor(const RecordingGovernor&) = delete;
    RecordingGovernor& operator=(const RecordingGovernor&) = delete;

    ZBase::MemGovernorProxy proxy;
    bool refuses = false;
    std::shared_ptr<BudgetCalls> calls;

private:
    void Note(const char* what, std::size_t bytes) {
        const std::lock_guard lock(mMutex);
        calls->emplace_back(mName + " " + what, bytes);
    }

    std::string mName;
    std::mutex mMutex;
};

}  // namespace test
