#include <Base/crash/detail/CrashKeyLog.h>
#include <Base/crash/detail/ReportText.h>
#include <Base/platform/os/memory/Pages.h>

#include <cstring>
#include <new>
#include <utility>

namespace ZBase::detail {

namespace {

constexpr std::size_t kLeastRoom = 4096;

void AppendField(std::string& fields, const std::string& name, const std::string& value) {
    fields.append(name).push_back('\0');
    fields.append(value).push_back('\0');
}

std::string Fields(const CrashConfigTable& keys) {
    std::string fields;
    for (const auto& [name, value] : keys)
        AppendField(fields, ReportName(ReportText(name)), ReportText(value));
    return fields;
}

// A reader uses the size that it loads; everything before that is complete.
std::atomic_ref<std::uint64_t> SizeOf(CrashKeysBlock& block) {
    return std::atomic_ref<std::uint64_t>(block.size);
}

}  // namespace

void CrashKeyLog::Write(const CrashConfigTable& keys, bool isProduction) {
    const std::string fields = Fields(keys);
    const Pages pages = NewPages(sizeof(CrashKeysBlock) + fields.size());
    if (pages.text == nullptr) throw std::bad_alloc();
    auto* const block = reinterpret_cast<CrashKeysBlock*>(pages.text);
    const CrashKeysBlock* const present = mpPresent;
    std::memset(pages.text, 0, sizeof *block);
    std::memcpy(pages.text + sizeof *block, fields.data(), fields.size());
    block->size = fields.size();
    block->production = isProduction ? 1 : 0;
    block->sequence = present == nullptr ? 1 : present->sequence + 1;
    std::memcpy(block->magic, kCrashKeysMagic, sizeof block->magic);
    mRetired = std::exchange(mPages, pages);
    mpPresent = block;
}

void CrashKeyLog::Append(const std::string& name, const std::string& value, const CrashConfigTable& keys,
                         bool isProduction) {
    CrashKeysBlock* const block = mpPresent;
    const std::size_t added = name.size() + value.size() + 2;
    if (block == nullptr || mPages.capacity - sizeof *block - block->size < added) {
        Write(keys, isProduction);
        return;
    }
    char* const end = mPages.text + sizeof *block + block->size;
    std::memcpy(end, name.c_str(), name.size() + 1);
    std::memcpy(end + name.size() + 1, value.c_str(), value.size() + 1);
    if (isProduction) block->production = 1;
    SizeOf(*block).store(block->size + added);
}

CrashKeysBlock* CrashKeyLog::BeginReading() {
    ++mReaders;
    return mpPresent;
}

// With space for twice the size. The pages of the retired block are reused if they are large enough. A reader
// counted here may still read that block; a later one gets the present one.
CrashKeyLog::Pages CrashKeyLog::NewPages(std::size_t size) {
    const bool isRead = mReaders != 0;
    if (!isRead && mRetired.capacity >= size + size / 2) return std::exchange(mRetired, Pages{});
    if (!isRead && mRetired.text != nullptr) os::ReleasePages(mRetired.text);
    mRetired = Pages{};  // pages in use are leaked
    const std::size_t capacity = 2 * size + kLeastRoom;
    auto* const text = static_cast<char*>(os::AllocatePages(capacity));
    return text == nullptr ? Pages{} : Pages{text, capacity};
}

}  // namespace ZBase::detail
