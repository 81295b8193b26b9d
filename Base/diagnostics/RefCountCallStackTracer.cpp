// The report is written twice, to a file and to the debugger, with texts that differ in places, and its
// stacks begin one line later than those of TraceCallStack; kept for tools that parse either.

#include <Base/diagnostics/RefCountCallStackTracer.h>
#include <Base/diagnostics/detail/CallStackImp.h>
#include <Base/diagnostics/detail/LineText.h>
#include <Base/diagnostics/detail/RefCountCallStackTracerImp.h>
#include <Base/frame/Threads.h>
#include <Base/frame/detail/Utf8Path.h>
#include <Base/platform/DebugOutput.h>

#include <algorithm>
#include <fstream>
#include <new>
#include <string_view>

namespace ZBase {

namespace {

using detail::LineText;
using detail::PointerText;

constexpr unsigned int kFirstReportedLine = 6;
constexpr unsigned int kFirstTracedLine = 5;

/// A text for the debugger, which shows at most 511 units.
class DebuggerText {
public:
    DebuggerText& operator<<(std::string_view plain) {
        const std::size_t count = std::min(plain.size(), kUnits - mSize);
        std::copy_n(plain.begin(), count, mUnits + mSize);
        mSize += count;
        return *this;
    }
    DebuggerText& operator<<(const WideString& wide) {
        const std::size_t count = std::min(wide.size(), kUnits - mSize);
        std::copy_n(wide.begin(), count, mUnits + mSize);
        mSize += count;
        return *this;
    }
    void Tell() {
        mUnits[mSize] = 0;
        OutputDebugString(mUnits);
    }

private:
    static constexpr std::size_t kUnits = 511;

    std::size_t mSize = 0;
    unsigned short mUnits[kUnits + 1];
};

constexpr unsigned short kNothing[] = {0};

/// The lines of a stack; `line` is reused for all of them. The stack is of our own class.
void Report(std::string& text, WideString& line, const CallStack* stack) {
    if (stack == nullptr) return;
    const auto& lines = static_cast<const CallStackImp*>(stack)->Lines();
    for (std::size_t i = kFirstReportedLine; i < lines.size(); ++i) {
        line.clear();
        lines[i].AppendText(line);
        text.append("\t\t").append(LineText(line.c_str())).append("\n");
        (DebuggerText() << "\t\t" << line << "\n").Tell();
    }
}

}  // namespace

RefCountCallStackTracer::RefCountCallStackTracer() = default;
RefCountCallStackTracer::RefCountCallStackTracer(const RefCountCallStackTracer&) = default;
RefCountCallStackTracer& RefCountCallStackTracer::operator=(const RefCountCallStackTracer&) = default;
RefCountCallStackTracer::~RefCountCallStackTracer() = default;

RefCountCallStackTracerImp::RefCountCallStackTracerImp(const unsigned short* label, const char* path)
    : mPath(path == nullptr ? "" : path), mLabel(label == nullptr ? kNothing : label) {
    std::ofstream(detail::Utf8Path(mPath), std::ios::app).close();
}

RefCountCallStackTracerImp::~RefCountCallStackTracerImp() {
    try {
        ReportLeaks();
    } catch (const std::bad_alloc&) {
        // The report ends with what was written so far.
    }
}

void RefCountCallStackTracerImp::RecordRefCount(void* instance, long refCount) {
    const CallStackGuard guard(gTracerLock);
    const auto address = reinterpret_cast<std::uint64_t>(instance);
    // The heap is used only before or after a change of the map, so a forked child finds it consistent.
    if (refCount == 0) {
        mInstances.extract(address);
        return;
    }
    OwnedCallStack stack(CreateCallStack(nullptr));
    std::list<Change> change;
    change.push_back({std::move(stack), static_cast<std::int32_t>(refCount)});
    auto known = mInstances.find(address);
    if (known == mInstances.end()) {
        std::map<std::uint64_t, std::list<Change>> alone;
        alone.try_emplace(address);
        known = mInstances.insert(alone.extract(address)).position;
    }
    known->second.splice(known->second.end(), change);
}

void RefCountCallStackTracerImp::ReportLeaks() {
    std::ofstream file(detail::Utf8Path(mPath), std::ios::app);
    if (!file) return;
    const std::string process = "Proc<" + std::to_string(GetCurrentProcessID()) + ">: ";
    const std::string label = LineText(mLabel.c_str());
    const std::string count = std::to_string(mInstances.size());
    file << process + "******<" + label + ">: Number of leaked objects = " + count + "\n" << std::flush;
    (DebuggerText() << "******<" << mLabel << ">: Number of leaked objects = " << count << ":\n").Tell();
    std::string text;
    WideString line;
    for (const auto& [address, changes] : mInstances) {
        if (changes.empty() || changes.back().refCount == 0) continue;
        file << process + "***<" + label + ">: InstanceLeak = 0x" + PointerText(address) + ":\n";
        (DebuggerText() << "***<" << mLabel << ">: Instance = " << PointerText(address) << ":\n").Tell();
        for (const Change& change : changes) {
            text = "\t*CallStack when RefCount = " + std::to_string(change.refCount) + ":\n";
            (DebuggerText() << text).Tell();
            Report(text, line, change.stack.get());
            // One write for each stack, so that the lines of two processes don't mix.
            file << text << std::flush;
        }
    }
}

void RefCountCallStackTracerImp::Clear() {
    mInstances.clear();
}

void RefCountCallStackTracerImp::Delete() {
    // Null is allowed; volatile stops the compiler from assuming this != nullptr.
    RefCountCallStackTracerImp* volatile object = this;
    delete object;
}

RefCountCallStackTracer* CreateRefCountCallStackTracer(const unsigned short* label, const char* path) {
    return new (std::nothrow) RefCountCallStackTracerImp(label, path);
}

void TraceCallStack(const char* path, const unsigned short* label) {
    std::ofstream file(detail::Utf8Path(path == nullptr ? "" : path), std::ios::app);
    if (!file) return;
    file << std::string("**<").append(LineText(label)).append(">**:\n");
    const OwnedCallStack stack(CreateCallStack(nullptr));
    for (unsigned int i = kFirstTracedLine; stack != nullptr && i < stack->GetLineCount(); ++i)
        file << std::string("\t").append(LineText(stack->GetLine(i).GetText())).append("\n") << std::flush;
}

}  // namespace ZBase
