#include <Base/ZBase.h>

#include <fcntl.h>
#include <unistd.h>

#include <cstdio>

#include "tests/growth/Inputs.h"
#include "tests/growth/Row.h"
#include "tests/support/TemporaryFile.h"

namespace test {

namespace {

using namespace ZBase::Literals;

/// Calls at a depth of frames.
[[gnu::noinline]] void AtDepth(std::size_t depth, const std::function<void()>& call) {
    if (depth == 0)
        call();
    else
        AtDepth(depth - 1, call);
    asm volatile("");  // no tail call
}

/// Calls on as many different stacks: each bit of the number takes one of two ways.
[[gnu::noinline]] void OnStack(std::size_t number, int bits, const std::function<void()>& call) {
    if (bits == 0)
        call();
    else if (number % 2 == 0)
        OnStack(number / 2, bits - 1, call);
    else
        OnStack(number / 2, bits - 1, call);
    asm volatile("");
}

/// The report of a logger tells its number on the standard output.
class Silence {
public:
    Silence() {
        std::fflush(stdout);
        dup2(mNull, STDOUT_FILENO);
    }
    ~Silence() {
        std::fflush(stdout);
        dup2(mOutput, STDOUT_FILENO);
        close(mOutput);
        close(mNull);
    }
    Silence(const Silence&) = delete;
    Silence& operator=(const Silence&) = delete;

private:
    int mOutput = dup(STDOUT_FILENO);
    int mNull = open("/dev/null", O_WRONLY | O_CLOEXEC);
};

void Capture(bool isRead) {
    ZBase::CallStack* const stack = ZBase::CreateCallStack(nullptr);
    for (unsigned int i = 0; isRead && i != stack->GetLineCount(); ++i) stack->GetLine(i).GetText();
    if (isRead) stack->ToString();
    stack->Delete();
}

template <class Run>
Row AtDepths(std::string name, std::vector<std::string_view> covers, std::size_t length, Run run) {
    return {std::move(name), std::move(covers), length, [run](std::size_t depth) {
                ZBase::InitializeDBGHelpBuilder();
                return Job([run, depth] { AtDepth(depth, run); });
            }};
}

void AddStacks(std::vector<Row>& rows) {
    rows.push_back(AtDepths(
        "a captured stack",
        {"ZBase::CreateCallStack", "ZBase::CallStackImp::*", "ZBase::DbgHelpBuilder::BuildCallStack"}, 40,
        [] { Capture(false); }));
    rows.push_back(AtDepths("a captured stack that is read", {}, 40, [] { Capture(true); }));
    rows.push_back(AtDepths("a captured stack by its thread", {"ZBase::CreateCallStackByThreadId"}, 40,
                            [] { ZBase::CreateCallStackByThreadId(ZBase::GetCurrentThreadID())->Delete(); }));
    rows.push_back(AtDepths(
        "a walk", {"ZBase::DbgHelpBuilder::DoStackWalk", "ZBase::DbgHelpBuilder::DoStackWalkTopN"}, 40, [] {
            std::vector<std::uint64_t> addresses(1000);
            ZBase::gDbgHelpBuilder.DoStackWalk(addresses.data(), addresses.size(), 0);
            ZBase::gDbgHelpBuilder.DoStackWalkTopN(addresses.data(), 10, 0);
        }));
    rows.push_back(AtDepths("a stack in a report", {"ZBase::TraceCallStack"}, 40,
                            [] { ZBase::TraceCallStack("/dev/null", "label"_w); }));
    rows.push_back({"a long label", {}, 4096, [](std::size_t length) {
                        return Over(Units(length, 'x'), [](const Units& label) {
                            ZBase::TraceCallStack("/dev/null", label.c_str());
                        });
                    }});
    rows.push_back(AtDepths("a fault", {"ZBase::StructuredExceptionImp::*"}, 40,
                            [] { const ZBase::StructuredExceptionImp fault(0xC0000005, nullptr); }));
}

/// Records that differ in their category, or in nothing.
void Fold(std::size_t count, bool differs) {
    ZBase::CallStackLogger logger;
    for (std::size_t i = 0; i != count; ++i) {
        const unsigned int category = differs ? static_cast<unsigned int>(i * 2654435761u) : 7;
        OnStack(differs ? i : 0, 12, [&] { logger.AppendCallStack(category, 0); });
    }
    logger.RemoveDuplicates();
    std::size_t left = 0;
    for (auto record = logger.begin(); record != logger.end(); ++record) ++left;
}

void AddLoggers(std::vector<Row>& rows) {
    const std::vector<std::string_view> covers = {"ZBase::CallStackLogger::*", "ZBase::AddrToLine::*",
                                                  "ZBase::ModuleInfo::FetchModuleNameAndBaseAddress"};
    rows.push_back({"equal stacks in a logger", covers, 64,
                    [](std::size_t count) { return Job([count] { Fold(count, false); }); }});
    rows.push_back({"different stacks in a logger", {}, 64, [](std::size_t count) {
                        return Job([count] { Fold(count, true); });
                    }});
    rows.push_back({"a logger's report", {}, 8, [](std::size_t count) {
                        ZBase::InitializeDBGHelpBuilder();
                        return Job([count] {
                            ZBase::CallStackLogger logger;
                            for (std::size_t i = 0; i != count; ++i)
                                OnStack(i, 8, [&] { logger.AppendCallStack(0); });
                            const Silence silence;
                            logger.FprintfCallStack("/dev/null");
                        });
                    }});
}

template <class Run>
Row Traced(std::string name, std::size_t length, Run run) {
    return {std::move(name), {"ZBase::CreateRefCountCallStackTracer"}, length, [run](std::size_t count) {
                return Job([run, count] {
                    ZBase::RefCountCallStackTracer* const tracer =
                        ZBase::CreateRefCountCallStackTracer("label"_w, "/dev/null");
                    std::vector<int> objects(count);
                    run(*tracer, objects);
                    tracer->Clear();
                    tracer->Delete();
                });
            }};
}

void AddTracers(std::vector<Row>& rows) {
    using Tracer = ZBase::RefCountCallStackTracer;
    rows.push_back(Traced("objects that leak", 8, [](Tracer& tracer, std::vector<int>& objects) {
        for (int& object : objects) tracer.RecordRefCount(&object, 1);
    }));
    rows.push_back(Traced("objects that are told as leaks", 8, [](Tracer& tracer, std::vector<int>& objects) {
        for (int& object : objects) tracer.RecordRefCount(&object, 1);
        tracer.ReportLeaks();
    }));
    rows.push_back(Traced("objects that end", 8, [](Tracer& tracer, std::vector<int>& objects) {
        for (int& object : objects) tracer.RecordRefCount(&object, 1);
        for (std::size_t i = objects.size(); i-- != 0;) tracer.RecordRefCount(&objects[i], 0);
    }));
    rows.push_back(Traced("changes of one count", 8, [](Tracer& tracer, std::vector<int>& objects) {
        for (std::size_t i = 0; i != objects.size(); ++i)
            tracer.RecordRefCount(&objects, static_cast<long>(i + 1));
        tracer.ReportLeaks();
    }));
    rows.push_back({"tracers in number", {"ZBase::RefCountCallStackTracer::*"}, 64, [](std::size_t count) {
                        return Job([count] {
                            std::vector<Tracer*> tracers;
                            for (std::size_t i = 0; i != count; ++i)
                                tracers.push_back(
                                    ZBase::CreateRefCountCallStackTracer("label"_w, "/dev/null"));
                            for (Tracer* const tracer : tracers) tracer->Delete();
                        });
                    }});
}

}  // namespace

std::vector<Row> DiagnosticsRows() {
    std::vector<Row> rows;
    AddStacks(rows);
    AddLoggers(rows);
    AddTracers(rows);
    return rows;
}

}  // namespace test
