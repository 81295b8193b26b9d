#pragma once

#include <Base/diagnostics/DebugHelpTypes.h>
#include <Base/frame/Api.h>

#include <cstdint>
#include <vector>

namespace ZBase {

namespace os {
struct ThreadContext;
}

class CallStackLineImp;

/// Turns a register state into the lines of a stack.
class ZBASE_API CallStackBuilder {
public:
    /// Loads the symbols; true on success.
    virtual bool LoadSymbols() = 0;

    /// Walks the stack from `context`, which it changes, and replaces `lines` with its frames.
    virtual void BuildCallStack(std::vector<CallStackLineImp>& lines, os::ThreadContext& context) = 0;

protected:
    ~CallStackBuilder() = default;
};

/// The entry points of the debug help library, null where not bound, and its handle.
struct ZBASE_API DbgHelpFunctions {
    DbgHelpFunctions() = default;
    ~DbgHelpFunctions();
    DbgHelpFunctions(const DbgHelpFunctions&) = delete;
    DbgHelpFunctions& operator=(const DbgHelpFunctions&) = delete;

    SymFunctionTableAccess64Function mpSymFunctionTableAccess64 = nullptr;
    SymGetModuleBase64Function mpSymGetModuleBase64 = nullptr;
    SymGetSymFromAddr64Function mpSymGetSymFromAddr64 = nullptr;
    StackWalk64Function mpStackWalk64 = nullptr;
    SymGetLineFromAddr64Function mpSymGetLineFromAddr64 = nullptr;
    SymCleanupFunction mpSymCleanup = nullptr;
    SymSetOptionsFunction mpSymSetOptions = nullptr;
    SymInitializeFunction mpSymInitialize = nullptr;
    SymGetOptionsFunction mpSymGetOptions = nullptr;
    SymGetSearchPathFunction mpSymGetSearchPath = nullptr;
    SymSetSearchPathFunction mpSymSetSearchPath = nullptr;
    SymEnumerateModules64Function mpSymEnumerateModules64 = nullptr;
    SymLoadModule64NarrowFunction mpSymLoadModule64 = nullptr;
    SymGetModuleInfo64Function mpSymGetModuleInfo64 = nullptr;
    void* mpLibrary = nullptr;  // owned
};

/// The library's only access to debug help, which is opened at first use and may be missing. Nothing here
/// takes a lock except `CreateCallStack`, which calls it under its own: symbols are looked up by one thread
/// at a time.
class ZBASE_API DbgHelpBuilder final : public CallStackBuilder {
public:
    DbgHelpBuilder();
    DbgHelpBuilder(const DbgHelpBuilder&) = delete;
    DbgHelpBuilder& operator=(const DbgHelpBuilder&) = delete;

    bool LoadSymbols() override;
    void BuildCallStack(std::vector<CallStackLineImp>& lines, os::ThreadContext& context) override;

    /// Prepares debug help: 1 if it is ready, with its options set, else 0. It enumerates nothing.
    int EnumerateModulesAndLoadSymbols();

    /// Writes return addresses of the calling thread to `out`, innermost first, without the first `skip`; the
    /// first is in this function. At most `count`, and at most 40 less `skip`; the rest of `out` is not
    /// changed. No heap, no lock; may be called in a signal handler. Without the system's capture it walks by
    /// debug help, if that is ready, and writes at most `count` - `skip` - 1.
    void DoStackWalk(std::uint64_t* out, unsigned long count, unsigned long skip);

    /// Walks `count` frames, at most 128, by debug help and writes those beyond the first `skip` + 1,
    /// outermost first. A stack with fewer frames writes nothing.
    void DoStackWalkTopN(std::uint64_t* out, unsigned long count, unsigned long skip);

    // The entry points; null if not bound. Three bind the library first.
    SymFunctionTableAccess64Function GetSymFunctionTableAccess();
    SymGetModuleBase64Function GetSymGetModuleBase();
    SymGetSymFromAddr64Function GetSymGetSymFromAddr();
    StackWalk64Function GetStackWalk();
    SymGetLineFromAddr64Function GetSymGetLineFromAddr();
    SymCleanupFunction GetSymCleanup();
    SymSetOptionsFunction GetSymSetOptions();  // binds
    SymInitializeFunction GetSymInitialize();  // binds
    SymGetOptionsFunction GetSymGetOptions();  // binds
    SymGetSearchPathFunction GetSymGetSearchPath();
    SymSetSearchPathFunction GetSymSetSearchPath();
    SymEnumerateModules64Function GetSymEnumerateModules();
    SymLoadModule64NarrowFunction GetSymLoadModule();
    SymGetModuleInfo64Function GetSymGetModuleInfo64();

private:
    class WalkedModules;
    using StackCapture = unsigned short (*)(std::uint32_t, std::uint32_t, void**, std::uint32_t*);

    bool LoadDbgHelpFunctions();
    bool Bind();
    bool CanWalk() const;
    bool Step(STACKFRAME64& frame, os::ThreadContext& context) const;
    CallStackLineImp ResolveFrame(const STACKFRAME64& frame, WalkedModules& modules) const;

    DbgHelpFunctions mFunctions;
    void* mpProcess;
    std::int32_t mBound;
    StackCapture mpStackCapture;  // null if the system has none
};

ZBASE_API extern DbgHelpBuilder gDbgHelpBuilder;

/// Calls `gDbgHelpBuilder.EnumerateModulesAndLoadSymbols()` and drops the result.
ZBASE_API void InitializeDBGHelpBuilder();

}  // namespace ZBase
