#pragma once

#include <Base/ZBase.h>

#include <cstddef>
#include <mutex>
#include <string>
#include <vector>

/// One chunk that a buffer asked for, and what became of it.
struct Charge {
    std::size_t bytes;
    unsigned long thread;
    bool contractGranted;
    std::size_t contractLeft;  // bytes
    bool governorAsked;
};

/// Who pays for a buffer: a contract for so many bytes, and a governor of the whole process that grants all
/// it is asked and keeps the books. Used by any number of threads.
class Budget {
public:
    explicit Budget(std::size_t bytes);
    ~Budget();
    Budget(const Budget&) = delete;
    Budget& operator=(const Budget&) = delete;

    ZBase::MemoryContract* Contract() { return mContract.Get(); }

    /// In the order of asking.
    std::vector<Charge> Charges() const;

    /// What the governor is still owed, in bytes.
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

/// Reads a file by several threads at once, in pieces that lie in one lock-free buffer. Throws a `Message`:
/// the file's own failure or the refusal of the budget, whichever came first on any thread.
GovernedText ReadGoverned(const std::string& file, Budget& budget, std::size_t pieceSize,
                          unsigned int threads);
