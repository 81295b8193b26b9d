#include <Base/ZBase.h>

#include <gtest/gtest.h>
#include <unistd.h>

#include <atomic>
#include <thread>

#include "tests/injection/Operation.h"
#include "tests/support/TemporaryFile.h"

namespace test {

namespace {

using namespace ZBase::Literals;

/// A thread that waits until the object ends.
class Waiting {
public:
    Waiting() {
        while (mId == 0) std::this_thread::yield();
    }
    ~Waiting() {
        mGoesOn = false;
        mThread.join();
    }
    Waiting(const Waiting&) = delete;
    Waiting& operator=(const Waiting&) = delete;

    void* Handle() { return reinterpret_cast<void*>(mThread.native_handle()); }
    unsigned long Id() const { return mId; }

private:
    std::atomic<bool> mGoesOn = true;
    std::atomic<unsigned long> mId = 0;
    std::thread mThread{[this] {
        mId = ZBase::GetCurrentThreadID();
        while (mGoesOn) usleep(200);
    }};
};

void Capture(Trial& trial, ZBase::CallStack* (*make)(void*), void* argument) {
    ZBase::CallStack* stack = nullptr;
    trial([&] { stack = make(argument); });
    if (stack == nullptr) return;
    trial([&] {
        const unsigned int count = stack->GetLineCount();
        if (count != 0) {
            EXPECT_NE(stack->GetLine(0).GetText(), nullptr);
        }
        EXPECT_NE(stack->ToString(), nullptr);
        if (!HasFailed()) {
            EXPECT_GT(count, 0u);
        }
    });
    stack->Delete();
}

void CapturesOwnStacks(Trial& trial) {
    Capture(trial, ZBase::CreateCallStack, nullptr);
    unsigned long own = ZBase::GetCurrentThreadID();
    Capture(
        trial, [](void* id) { return ZBase::CreateCallStackByThreadId(*static_cast<unsigned long*>(id)); },
        &own);
}

void CapturesOtherStacks(Trial& trial) {
    Waiting other;
    Capture(trial, ZBase::CreateCallStack, other.Handle());
    unsigned long id = other.Id();
    Capture(
        trial,
        [](void* thread) { return ZBase::CreateCallStackByThreadId(*static_cast<unsigned long*>(thread)); },
        &id);
}

void WalksStacks(Trial& trial) {
    trial([] { ZBase::InitializeDBGHelpBuilder(); });
    trial([] {
        std::uint64_t addresses[40] = {};
        ZBase::gDbgHelpBuilder.DoStackWalk(addresses, 40, 0);
        EXPECT_NE(addresses[0], 0u);
        ZBase::gDbgHelpBuilder.DoStackWalkTopN(addresses, 3, 0);
    });
}

void MakesABuilder(Trial& trial) {
    trial([] {
        ZBase::DbgHelpBuilder builder;
        const bool isThere = builder.LoadSymbols();
        EXPECT_TRUE(isThere || HasFailed());
        builder.EnumerateModulesAndLoadSymbols();
        for (int times = 0; times != 2; ++times) {
            builder.GetSymSetOptions();
            builder.GetSymInitialize();
            builder.GetSymGetOptions();
        }
        builder.GetSymFunctionTableAccess();
        builder.GetSymGetModuleBase();
        builder.GetSymGetSymFromAddr();
        builder.GetStackWalk();
        builder.GetSymGetLineFromAddr();
        builder.GetSymCleanup();
        builder.GetSymGetSearchPath();
        builder.GetSymSetSearchPath();
        builder.GetSymEnumerateModules();
        builder.GetSymLoadModule();
        builder.GetSymGetModuleInfo64();
    });
}

void CollectsStacks(Trial& trial) {
    TemporaryFile file;
    // Its records stay to the end of the process. Debug help is there before.
    ZBase::CallStackLogger logger;
    ZBase::InitializeDBGHelpBuilder();
    logger.AppendCallStack(0);
    logger.FprintfCallStack(file.Path());
    trial([&] { logger.AppendCallStack(0); });
    trial([&] { logger.AppendCallStack(3, 0); });
    trial([&] { logger.AppendCallStack(3, 0); });
    trial([&] { logger.RemoveDuplicates(); });
    trial([&] { logger.FprintfCallStack(file.Path()); });
    if (trial.IsUntouched()) {
        EXPECT_GT(file.Text().size(), 100u);
    }
    for (auto record = logger.begin(); record != logger.end(); ++record) EXPECT_GT((*record)->count, 0u);
}

void HuntsLeaks(Trial& trial) {
    TemporaryFile file;
    ZBase::RefCountCallStackTracer* tracer = nullptr;
    trial([&] {
        tracer =
            ZBase::CreateRefCountCallStackTracer("a label that is long enough for the heap"_w, file.Path());
    });
    if (tracer == nullptr) return;
    int object = 0;
    int other = 0;
    trial([&] { tracer->RecordRefCount(&object, 1); });
    trial([&] { tracer->RecordRefCount(&other, 1); });
    trial([&] { tracer->RecordRefCount(&other, 0); });
    trial([&] { tracer->ReportLeaks(); });
    trial([&] { tracer->Clear(); });
    trial([&] { tracer->RecordRefCount(&object, 1); });
    trial([&] { tracer->Delete(); });
    if (trial.IsUntouched()) {
        EXPECT_GT(file.Text().size(), 100u);
    }
}

class Tracer final : public ZBase::RefCountCallStackTracer {
public:
    void RecordRefCount(void*, long) override {}
    void ReportLeaks() override {}
    void Clear() override {}
    void Delete() override {}
};

void TracesAStack(Trial& trial) {
    TemporaryFile file;
    trial([&] { ZBase::TraceCallStack(file.Path(), "label"_w); });
    if (trial.IsUntouched()) {
        EXPECT_GT(file.Text().size(), 20u);
    }
    trial([] {
        Tracer one;
        Tracer other(one);
        other = one;
    });
}

void ListsModules(Trial& trial) {
    static const auto here = reinterpret_cast<std::uint64_t>(&ListsModules);
    trial([] {
        ZBase::ModuleInfo modules;
        modules.Initialize();
        std::string name;
        std::uint64_t base = 0;
        modules.FetchModuleNameAndBaseAddress(here, name, base);
        if (!HasFailed()) {
            EXPECT_NE(base, 0u);
        }
        modules.FprintfModuleInfo(nullptr);
    });
    TemporaryFile place;
    std::FILE* const file = std::fopen(place.Path(), "w");
    trial([&] {
        ZBase::ModuleInfo modules;
        EXPECT_TRUE(modules.FprintfModuleInfo(file));
    });
    std::fclose(file);
}

void NamesAddresses(Trial& trial) {
    static const auto here = reinterpret_cast<std::uint64_t>(&NamesAddresses) + 4;
    ZBase::InitializeDBGHelpBuilder();
    std::string module, symbol, file, line;
    trial([&] {
        ZBase::AddrToLine resolver;
        resolver.Initialize();
        resolver.Fetch(here, module, symbol, file, line);
    });
    if (trial.IsUntouched()) {
        EXPECT_FALSE(module.empty());
    }
}

void WritesAllStacksToADevice(Trial& trial) {
    trial([] { EXPECT_TRUE(ZBase::DumpAllStacks("/dev/null") || HasFailed()); });
}

void WritesAllStacks(Trial& trial) {
    TemporaryFile file;
    bool isWritten = false;
    trial([&] { isWritten = ZBase::DumpAllStacks(file.Path()); });
    EXPECT_TRUE(isWritten || !trial.IsUntouched());
    if (isWritten) {
        EXPECT_NE(file.Text().find("\nModules\n"), std::string::npos);
    }
}

void DescribesAFault(Trial& trial) {
    trial([] {
        const ZBase::StructuredExceptionImp fault(0xC0000005, nullptr);
        EXPECT_EQ(fault.GetCode(), 0xC0000005u);
        EXPECT_FALSE(fault.GetText().empty());
    });
}

void LocksStacks(Trial& trial) {
    // The lock of captures is one of the library's own; what is exported of it is its layout.
    trial([] {
        ZBase::CallStack* const stack = ZBase::CreateCallStack(nullptr);
        if (stack != nullptr) stack->Delete();
    });
}

}  // namespace

std::vector<Operation> DiagnosticsOperations() {
    return {
        {"captures own stacks",
         {"ZBase::CreateCallStack", "ZBase::CreateCallStackByThreadId"},
         kReturns | kBadAlloc,
         CapturesOwnStacks,
         EWhere::eInOneProcess},
        {"captures other stacks", {}, kReturns | kBadAlloc, CapturesOtherStacks, EWhere::eInOneProcess},
        {"holds the lock of captures",
         {"ZBase::CallStackImp::CallStackCriticalSection::*"},
         kReturns | kBadAlloc,
         LocksStacks,
         EWhere::eInOneProcess},
        {"walks stacks",
         {"ZBase::gDbgHelpBuilder", "ZBase::InitializeDBGHelpBuilder"},
         kReturns | kBadAlloc,
         WalksStacks,
         EWhere::eInOneProcess},
        {"makes a door to debug help",
         {"ZBase::DbgHelpBuilder::*", "ZBase::DbgHelpFunctions::*"},
         kReturns | kBadAlloc,
         MakesABuilder,
         EWhere::eInChildren},
        {"collects stacks",
         {"ZBase::CallStackLogger::*"},
         kReturns | kBadAlloc,
         CollectsStacks,
         EWhere::eInChildren},
        {"hunts leaks",
         {"ZBase::CreateRefCountCallStackTracer"},
         kReturns | kBadAlloc,
         HuntsLeaks,
         EWhere::eInOneProcess},
        {"traces a stack",
         {"ZBase::TraceCallStack", "ZBase::RefCountCallStackTracer::*"},
         kReturns | kBadAlloc,
         TracesAStack,
         EWhere::eInOneProcess},
        {"lists modules", {"ZBase::ModuleInfo::*"}, kReturns | kBadAlloc, ListsModules},
        {"names addresses",
         {"ZBase::AddrToLine::*"},
         kReturns | kBadAlloc,
         NamesAddresses,
         EWhere::eInOneProcess},
        {"writes all stacks to a device", {"ZBase::DumpAllStacks"}, kReturns, WritesAllStacksToADevice},
        {"writes all stacks to a file", {}, kReturns, WritesAllStacks, EWhere::eInChildren},
        {"describes a fault", {"ZBase::StructuredExceptionImp::*"}, kReturns | kBadAlloc, DescribesAFault},
        {"makes exceptions of faults",
         {"ZBase::SetExceptionTranslator"},
         kReturns,
         [](Trial& trial) { trial([] { ZBase::SetExceptionTranslator(); }); },
         EWhere::eInChildren},
    };
}

}  // namespace test
