#include <Base/diagnostics/CallStack.h>
#include <Base/diagnostics/detail/LineText.h>
#include <Base/frame/Exceptions.h>
#include <Base/frame/WideLiteral.h>
#include <Base/memory/BufferGrowth.h>
#include <Base/memory/CreateBuffer.h>
#include <Base/memory/detail/BufferImplementation.h>
#include <Base/memory/detail/DebugBuffer.h>
#include <Base/text/MultibyteConversions.h>

#include <cstdio>
#include <memory>

namespace ZBase {

namespace {

constexpr char kReport[] = "DebugBuf.log";

void Destroy(CallStack*& stack) {
    if (stack != nullptr) stack->Delete();
    stack = nullptr;
}

void WriteStack(std::FILE* file, CallStack* stack) {
    if (stack == nullptr || stack->GetLineCount() < 2) return;
    std::fputs("------------ Callstack: ------------\n", file);
    for (unsigned int i = 1; i != stack->GetLineCount(); ++i)
        std::fprintf(file, "%s\n", WideCharToASCII(stack->GetLine(i).GetText(), false).c_str());
    std::fputs("------------------------------------\n", file);
}

}  // namespace

DebugBuffer::DebugBuffer(int initialBlocks, int growthBlocks, MemoryContract* contract, std::size_t blockSize,
                         bool) {
    mBuffer = CreateBuffer(initialBlocks, growthBlocks, contract, blockSize, mDebugMode);
    if (mBuffer == nullptr) {
        ExceptionImpl<BufferException> failure;
        failure.SetDomainAndID(0, -1);
        failure.SetMessage("CreateBuffer failed"_w);
        throw failure;
    }
    if (mDebugMode) mCreationStack = CreateCallStack(nullptr);
}

DebugBuffer::~DebugBuffer() noexcept(false) {
    mDeleted = true;
    Destroy(mDeletionStack);
    Destroy(mCreationStack);
    // Its clean-ups may still call this buffer.
    mBuffer->Delete();
    mBuffer = nullptr;
}

void DebugBuffer::Delete() {
    mDeleted = true;
    if (!mDebugMode) {
        delete this;
        return;
    }
    Destroy(mDeletionStack);
    mDeletionStack = CreateCallStack(nullptr);
    try {
        // Not checked: debugging mode needs a buffer of this class.
        static_cast<BufferImplementation*>(mBuffer)->DeCommitChunk();
    } catch (const BufferException&) {
        // The memory stays accessible; uses are reported all the same.
    }
    gDebugBufferList.Append(this);
}

Buffer& DebugBuffer::Checked() {
    if (mDebugMode && mDeleted) Report();
    return *mBuffer;
}

void DebugBuffer::Report() {
    const std::unique_ptr<std::FILE, int (*)(std::FILE*)> file(std::fopen(kReport, "w+"), std::fclose);
    if (file == nullptr) return;
    std::fprintf(file.get(), "DebugBuffer address: %s\n", detail::PointerText(this).c_str());
    WriteStack(file.get(), mCreationStack);
    WriteStack(file.get(), mDeletionStack);
}

bool DebugBuffer::EnsureAvailable(std::size_t size) {
    return Checked().EnsureAvailable(size);
}
void* DebugBuffer::Allocate(std::size_t size) {
    return Checked().Allocate(size);
}
std::size_t DebugBuffer::GetTotalKB() {
    return Checked().GetTotalKB();
}
std::size_t DebugBuffer::GetUsedKB() {
    return Checked().GetUsedKB();
}
std::size_t DebugBuffer::GetTotalBytes() {
    return Checked().GetTotalBytes();
}
std::size_t DebugBuffer::GetUsedBytes() {
    return Checked().GetUsedBytes();
}
void DebugBuffer::Lock() {
    Checked().Lock();
}
void DebugBuffer::SetLimit(std::int64_t limit) {
    Checked().SetLimit(limit);
}
bool DebugBuffer::LimitGrowth(std::size_t chunkBytes) {
    return ZBase::LimitGrowth(&Checked(), chunkBytes);
}
void DebugBuffer::AddCleanup(void (*function)(void*), void* argument) {
    Checked().AddCleanup(function, argument);
}

DebugBufferList::~DebugBufferList() {
    for (DebugBuffer* buffer : mBuffers) delete buffer;
}

Buffer* CreateDebugBuffer(int initialBlocks, int growthBlocks, MemoryContract* contract,
                          std::size_t blockSize, bool onBoundary) {
    return new DebugBuffer(initialBlocks, growthBlocks, contract, blockSize, onBoundary);
}

}  // namespace ZBase
