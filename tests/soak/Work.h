#pragma once

#include <Base/ZBase.h>

#include <array>
#include <atomic>
#include <cstddef>
#include <memory>
#include <random>
#include <string>

namespace soak {

/// Numbers of 32 bits.
class Random {
public:
    explicit Random(unsigned int seed) : mEngine(seed) {}
    unsigned int operator()() { return static_cast<unsigned int>(mEngine()); }

private:
    std::mt19937 mEngine;
};

/// A budget for all memory that is asked for: it refuses one request in ten.
class TenthRefuses final : public ZBase::MemoryContract {
public:
    void AddRef() override { ++references; }
    void Release() override { --references; }
    unsigned int Request(unsigned int) override { return Answer(); }
    void Settle(unsigned int) override {}
    unsigned int RequestChunk(std::size_t, bool) override { return Answer(); }
    void SettleChunk(std::size_t) override {}

    std::atomic<long long> references = 0;
    std::atomic<unsigned long long> requests = 0;
    std::atomic<unsigned long long> refusals = 0;

private:
    unsigned int Answer() {
        if (++requests % 10 != 0) return 0;
        ++refusals;
        return 1816;
    }
};

/// What the threads share. Between rounds the buffer is another one.
struct World {
    World();
    ~World();
    World(const World&) = delete;
    World& operator=(const World&) = delete;
    void RenewBuffer();

    TenthRefuses contract;
    ZBase::MemoryCeiling ceiling{std::size_t{1} << 30};
    ZBase::Buffer* buffer = nullptr;  // owned; null if it was refused
    std::string component;
};

/// One kind of work, which throws a `Message` where the budget refuses, and anything else where it fails.
struct Operation {
    const char* name;
    void (*run)(World& world, Random& random);
};

constexpr std::size_t kOperations = 12;
extern const std::array<Operation, kOperations> kWork;

}  // namespace soak
