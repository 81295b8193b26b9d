#include <Base/text/FragmentedString.h>

#include <Base/frame/Exceptions.h>
#include <Base/frame/detail/TextBlock.h>
#include <Base/memory/Buffer.h>

#include <algorithm>
#include <cstddef>
#include <cstring>
#include <limits>
#include <new>

namespace ZBase {

namespace {

constexpr std::uint64_t kBlockSize = 512;
constexpr std::uint64_t kUnit = sizeof(unsigned short);

constexpr int kOutOfMemory = static_cast<int>(0x8007000E);
constexpr int kBufferFailed = static_cast<int>(0x80041FF2);
constexpr int kUnexpected = static_cast<int>(0x8000FFFF);
constexpr long kNoFragment = static_cast<long>(0x8007000E);

// One allocation: this header, followed by the text, without a terminator.
struct Fragment {
    std::uint32_t size;  // in bytes, this header included
    Fragment* next;      // null at the tail

    unsigned short* Text() { return reinterpret_cast<unsigned short*>(this + 1); }
};
constexpr std::uint64_t kHeader = sizeof(Fragment);
static_assert(kHeader == 16);

std::uint64_t RoundUp(std::uint64_t size) {
    return (size + kBlockSize - 1) / kBlockSize * kBlockSize;
}

bool FitsInSize(std::uint64_t bytes) {
    return bytes <= std::numeric_limits<std::uint32_t>::max();
}

void* AllocateBytes(Buffer* buffer, std::size_t size) {
    return buffer == nullptr ? ::operator new(size) : buffer->Allocate(size);
}

template <class T>
int Give(T* out, T value) {
    if (out == nullptr) return 1;
    *out = value;
    return 0;
}

class FragmentedStringImpl final : public FragmentedString {
public:
    explicit FragmentedStringImpl(Buffer* buffer) : mpBuffer(buffer) {}

    // Completes a creation: the first fragment of `size` bytes, and the text that it begins with.
    void Start(std::uint64_t size, const unsigned short* text);
    void SetInitialCapacity(std::uint64_t capacity) {
        mInitialCapacity = static_cast<unsigned int>(capacity);
    }

    int Append(const unsigned short* text, unsigned int length) override;
    int AppendChar(unsigned short character) override;
    int AppendString(const unsigned short* text) override;
    int GetLength(unsigned int* length) override { return Give(length, mLength); }
    int CopyTo(unsigned int count, unsigned short* destination) override;
    int GetTotalBytes(unsigned int* bytes) override { return Give(bytes, mTotalBytes); }
    int GetFragmentCount(unsigned int* count) override { return Give(count, mFragmentCount); }
    int GetInitialCapacity(unsigned int* capacity) override { return Give(capacity, mInitialCapacity); }
    void Delete() override;

private:
    enum class OnNull { kFail, kThrow };

    int AppendUnits(const unsigned short* text, std::uint64_t length, OnNull onNull);
    int AppendOne(unsigned short character);
    bool OpenFragment(std::uint64_t size, OnNull onNull, int& failure);
    void Store(const unsigned short* text, std::uint64_t length);
    void* AllocateFragment(std::uint64_t size);
    void Link(void* memory, std::uint64_t size);

    Fragment* mpFirst = nullptr;
    Buffer* mpBuffer;               // held, not owned; null for the heap
    Fragment* mpCurrent = nullptr;  // the tail of the chain
    unsigned int mUsedBytes = 0;    // of the tail, its header included
    unsigned int mLength = 0;       // in units, over all fragments
    unsigned int mTotalBytes = 0;   // of all fragments
    unsigned int mFragmentCount = 0;
    unsigned int mInitialCapacity = 0;
};

void FragmentedStringImpl::Start(std::uint64_t size, const unsigned short* text) {
    if (!FitsInSize(size)) throw std::bad_alloc();
    void* const memory = AllocateFragment(size);
    if (memory == nullptr) throw kNoFragment;
    Link(memory, size);
    // A text that does not fit is cut where the memory ends, without an error: the creation itself succeeded,
    // and the header says so.
    if (text != nullptr) AppendUnits(text, detail::TextLength(text), OnNull::kThrow);
}

int FragmentedStringImpl::Append(const unsigned short* text, unsigned int length) {
    return text == nullptr ? 1 : AppendUnits(text, length, OnNull::kFail);
}

int FragmentedStringImpl::AppendChar(unsigned short character) {
    if (character == 0) return 1;
    // Each number is read once, before the unit is written, which might alias it for all the compiler knows.
    Fragment* const tail = mpCurrent;
    const unsigned int used = mUsedBytes;
    const unsigned int length = mLength;
    if (tail->size - used < kUnit) return AppendOne(character);
    mUsedBytes = used + static_cast<unsigned int>(kUnit);
    mLength = length + 1;
    std::memcpy(reinterpret_cast<char*>(tail) + used, &character, kUnit);
    return 0;
}

// Separate from the form above, which would need more registers for it.
int FragmentedStringImpl::AppendOne(unsigned short character) {
    return AppendUnits(&character, 1, OnNull::kFail);
}

int FragmentedStringImpl::AppendString(const unsigned short* text) {
    return text == nullptr ? 1 : AppendUnits(text, detail::TextLength(text), OnNull::kFail);
}

int FragmentedStringImpl::AppendUnits(const unsigned short* text, std::uint64_t length, OnNull onNull) {
    const std::uint64_t room = (mpCurrent->size - mUsedBytes) / kUnit;
    const std::uint64_t fitting = std::min(room, length);
    Store(text, fitting);
    if (fitting == length) return 0;
    // Stored text stays, whatever happens to the rest.
    const std::uint64_t rest = length - fitting;
    int failure = 0;
    if (OpenFragment(RoundUp(rest * kUnit + kHeader), onNull, failure)) Store(text + fitting, rest);
    return failure;
}

void FragmentedStringImpl::Store(const unsigned short* text, std::uint64_t length) {
    if (length == 0) return;
    const std::uint64_t bytes = length * kUnit;
    std::memcpy(reinterpret_cast<char*>(mpCurrent) + mUsedBytes, text, bytes);
    mUsedBytes += static_cast<unsigned int>(bytes);
    mLength += static_cast<unsigned int>(length);
}

// False when there is no new fragment, with the error in `failure`; the code of a contract may be 0.
bool FragmentedStringImpl::OpenFragment(std::uint64_t size, OnNull onNull, int& failure) {
    failure = kOutOfMemory;
    if (!FitsInSize(mTotalBytes + size)) return false;
    void* memory = nullptr;
    try {
        memory = AllocateFragment(size);
    } catch (const std::bad_alloc&) {
        return false;
    } catch (const BufferException&) {
        failure = kBufferFailed;
        return false;
    } catch (const ContractManagerAllocException& refusal) {
        failure = refusal.GetID();
        return false;
    } catch (...) {
        failure = kUnexpected;
        return false;
    }
    if (memory == nullptr && onNull == OnNull::kThrow) throw kNoFragment;
    if (memory == nullptr) return false;
    Link(memory, size);
    failure = 0;
    return true;
}

void* FragmentedStringImpl::AllocateFragment(std::uint64_t size) {
    return AllocateBytes(mpBuffer, static_cast<std::size_t>(size));
}

// Makes `memory` the tail, empty.
void FragmentedStringImpl::Link(void* memory, std::uint64_t size) {
    auto* const fragment = new (memory) Fragment{static_cast<std::uint32_t>(size), nullptr};
    (mpCurrent == nullptr ? mpFirst : mpCurrent->next) = fragment;
    mpCurrent = fragment;
    mUsedBytes = kHeader;
    mTotalBytes += fragment->size;
    ++mFragmentCount;
}

int FragmentedStringImpl::CopyTo(unsigned int count, unsigned short* destination) {
    if (destination == nullptr && count != 0) return 1;
    for (Fragment* fragment = mpFirst; fragment != nullptr && count != 0; fragment = fragment->next) {
        const unsigned int used = fragment == mpCurrent ? mUsedBytes : fragment->size;
        const auto units = std::min(count, static_cast<unsigned int>((used - kHeader) / kUnit));
        std::memcpy(destination, fragment->Text(), units * kUnit);
        destination += units;
        count -= units;
    }
    return 0;
}

void FragmentedStringImpl::Delete() {
    if (mpBuffer != nullptr) return;  // freed with the buffer
    for (Fragment* fragment = mpFirst; fragment != nullptr;) {
        Fragment* const next = fragment->next;
        ::operator delete(fragment);
        fragment = next;
    }
    ::operator delete(this);
}

FragmentedStringImpl* Create(const Allocator<unsigned short>& allocator) {
    void* const memory = AllocateBytes(allocator.GetBuffer(), sizeof(FragmentedStringImpl));
    return memory == nullptr ? nullptr : new (memory) FragmentedStringImpl(allocator.GetBuffer());
}

// A failed creation frees everything.
FragmentedString* Start(FragmentedStringImpl* string, std::uint64_t size, const unsigned short* text) {
    if (string == nullptr) return nullptr;
    try {
        string->Start(size, text);
    } catch (...) {
        string->Delete();
        throw;
    }
    return string;
}

}  // namespace

FragmentedString* CreateFragmentedString(const unsigned short* text, std::uint64_t capacity,
                                         const Allocator<unsigned short>& allocator) {
    // A capacity beyond 32 bits fails like a size beyond them.
    const std::uint64_t size = FitsInSize(capacity) ? capacity * kUnit + kHeader : capacity;
    FragmentedStringImpl* const string = Create(allocator);
    if (string != nullptr) string->SetInitialCapacity(capacity);
    return Start(string, size, text);
}

FragmentedString* CreateFragmentedString(const unsigned short* text,
                                         const Allocator<unsigned short>& allocator) {
    const std::uint64_t length = text == nullptr ? 0 : detail::TextLength(text);
    return Start(Create(allocator), RoundUp(length * kUnit + kHeader), text);
}

}  // namespace ZBase
