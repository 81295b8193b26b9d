#pragma once

#include <Base/ZBase.h>

#include <cstddef>
#include <mutex>
#include <string>
#include <vector>

/// A buffer's request for a chunk, and its result.
struct Charge {
    std::size_t bytes;
    unsigned long thread;
    bool contractGranted;
    std::size_t contractLeft;  // bytes
    bool governorAsked;
};

/// The budgets of a buffer: a contract with a fixed sum, and a governor of the whole process that grants
/// every request and records it. Used by any number of threads.
class Budget {
public:
    explicit Budget(std::size_t bytes);
    ~Budget();
    Budget(const Budget&) = delete;
    Budget& operator=(const Budget&) = delete;

    ZBase::MemoryContract* Contract() { return mContract.Get(); }

    /// In the order of the requests.
    std::vector<Charge> Charges() const;

    /// Bytes granted by the governor and not yet freed.
    std::size_t Outstanding() const;

private:
    class Purse;

    bool Govern(std::size_t bytes);

    mutable std::mutex mLock;
    std::vector<Charge> mCharges;
    std::size_t mOutstanding = 0;
    ZBase::SmartPtrI<ZBase::MemoryContract> mContract;
    ZBase::MemGovernorProxy mGovernor;
};

struct GovernedText {
    std::string text;
    std::size_t pieces;
};

/// Reads a file by several threads at once, in pieces in one lock-free buffer. Throws a `Message`: the file's
/// own failure or the refusal of the budget, whichever came first on any thread.
GovernedText ReadGoverned(const std::string& file, Budget& budget, std::size_t pieceSize,
                          unsigned int threads);
