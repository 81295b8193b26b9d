#pragma once

#include <windows.h>
#include <cstddef>
#include <cstdint>

namespace ZBase::os {

/// The entry of a function in the unwind tables of its module.
struct FunctionEntry {
    std::uint64_t base = 0;  // of the module
    RUNTIME_FUNCTION* entry = nullptr;
};

/// Where unwind tables are found.
class FunctionTables {
public:
    /// False if no code that is known lies there. Without an entry it is code of a function that keeps no
    /// frame.
    virtual bool Find(std::uint64_t address, FunctionEntry& function) = 0;

protected:
    ~FunctionTables() = default;
};

/// Asks the system, which may lock the list of modules: for the own stack.
class SystemTables final : public FunctionTables {
public:
    bool Find(std::uint64_t address, FunctionEntry& function) override;
};

/// Tables that were looked up before, so that a stack can be walked while its thread may hold any lock. What
/// is not known is asked for when the thread goes on. No heap.
class KnownTables final : public FunctionTables {
public:
    /// Reads the modules of the process.
    KnownTables() { ReadModules(); }

    bool Find(std::uint64_t address, FunctionEntry& function) override;

    /// A module of those that were read.
    struct Range {
        std::uint64_t start;  // both 0 if there is none
        std::uint64_t end;
    };
    Range ModuleOf(std::uint64_t address) const;
    Range ModuleAt(std::size_t index) const;

    /// Learns what was not known; whether there is anything new. Asks the system, as `SystemTables` does.
    bool Learn();

private:
    struct Module {
        std::uint64_t start;
        std::uint64_t end;
        RUNTIME_FUNCTION* entries;
        std::uint32_t count;
    };
    struct Place {  // in no module, as of a compiler at run time
        std::uint64_t address;
        FunctionEntry function;
    };
    static constexpr std::size_t kModules = 1024;
    static constexpr std::size_t kPlaces = 32;

    void ReadModules();
    const Module* FindModule(std::uint64_t address) const;

    std::size_t mCount = 0;
    std::size_t mUnknown = 0;  // places that follow the known ones
    std::size_t mKnown = 0;
    Module mModules[kModules];  // by their start
    Place mPlaces[kPlaces];
    HMODULE mHandles[kModules];
};

/// Walks a stack by unwind tables. What it reads may be damaged or, of a running thread, gone. No heap, and
/// no lock but that of the tables.
class FrameWalker {
public:
    FrameWalker(const CONTEXT& context, FunctionTables& tables) : mContext(context), mTables(tables) {}

    std::uint64_t Address() const;
    std::uint64_t StackPointer() const;
    const CONTEXT& Context() const { return mContext; }

    /// Where the function of this frame begins; 0 if that is not known.
    std::uint64_t FunctionStart();

    /// What handles exceptions of this frame, where it stands now; null for nothing.
    PEXCEPTION_ROUTINE Handler();

    /// Moves to the caller; false at the end.
    bool Step();

private:
    bool Unwind(CONTEXT& context, PEXCEPTION_ROUTINE& handler);

    CONTEXT mContext;
    FunctionTables& mTables;
    bool mIsInnermost = true;
};

}  // namespace ZBase::os
