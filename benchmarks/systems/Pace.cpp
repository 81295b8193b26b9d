// How fast the library is on one system, to be set beside another system on the same machine: conversions,
// records, and the lock-free buffer in relation to the interlocked operation that it stands on. Needs nothing
// but the library and C++. scripts/windows/pace.sh compares.
//
// Systems differ most in their heaps and in their C libraries. So that the same code is compared, "pool"
// gives it one heap that is the same on both, while "system" takes the system's; OwnCalls.cpp has the calls
// of the C library.
//
// Each line is a row and a number, with a tab between: nanoseconds, or for the buffer how often the bare
// operation would fit.

#include <Base/ZBase.h>
#include <ZLiteXML/UTF8Reader.h>
#include <ZLiteXML/UTF8Writer.h>

#include <atomic>
#include <bit>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <exception>
#include <functional>
#include <memory>
#include <new>
#include <string>
#include <string_view>
#include <thread>
#include <vector>

#include "benchmarks/support/Beside.h"

namespace {

using ZBase::Message;

/// Blocks of powers of two, which are kept for the next of their size. Takes its memory from an array: what
/// is not from there is the system's.
class Pool {
public:
    void* Allocate(std::size_t size) {
        const auto power = static_cast<unsigned int>(std::bit_width(size + kHeader - 1));
        if (power >= kPowers) return nullptr;
        const Locked locked(mBusy);
        if (Block* const kept = mpFree[power]; kept != nullptr) {
            mpFree[power] = kept->pNext;
            return kept;
        }
        if (kSize - mUsed < std::size_t{1} << power) return nullptr;
        char* const block = sMemory + mUsed;
        mUsed += std::size_t{1} << power;
        *reinterpret_cast<unsigned int*>(block) = power;
        return block + kHeader;
    }
    /// Whether the block is from here.
    bool Free(void* block) {
        char* const octets = static_cast<char*>(block);
        if (std::less<>()(octets, sMemory) || !std::less<>()(octets, sMemory + kSize)) return false;
        const unsigned int power = *reinterpret_cast<unsigned int*>(octets - kHeader);
        const Locked locked(mBusy);
        mpFree[power] = new (block) Block{mpFree[power]};
        return true;
    }

private:
    struct Block {
        Block* pNext;
    };
    struct Locked {
        explicit Locked(std::atomic_flag& flag) : mFlag(flag) {
            while (mFlag.test_and_set(std::memory_order_acquire)) std::this_thread::yield();
        }
        ~Locked() { mFlag.clear(std::memory_order_release); }
        std::atomic_flag& mFlag;
    };
    static constexpr std::size_t kHeader = 16;
    static constexpr std::size_t kSize = std::size_t{64} << 20;
    static constexpr unsigned int kPowers = 24;

    alignas(64) static char sMemory[kSize];
    Block* mpFree[kPowers] = {};
    std::size_t mUsed = 0;
    std::atomic_flag mBusy;
};

alignas(64) char Pool::sMemory[kSize];

constinit Pool sPool;
constinit bool sUsesPool = false;

void* Allocate(std::size_t size) {
    if (sUsesPool)
        if (void* const block = sPool.Allocate(size); block != nullptr) return block;
    if (void* const block = std::malloc(size); block != nullptr) return block;
    throw std::bad_alloc();
}

void Free(void* block) {
    if (!sPool.Free(block)) std::free(block);
}

constexpr bench::Rounds kRounds{31, 5e-5, bench::WallSeconds};

void Tell(const std::string& row, const bench::Measured& measured) {
    std::printf("%s\t%.3f\t%.6f\n", row.c_str(), measured.ours * 1e9, measured.ratio);
}

void Multiply() {
    std::uint64_t value = 1;
    for (int i = 0; i != 1000; ++i) {
        value *= 0x5851F42D4C957F2D;
        asm volatile("" : "+r"(value));
    }
}

template <class Work>
void Measure(const std::string& row, Work work) {
    Tell(row, bench::Compare(work, Multiply, kRounds));
}

// Octets of UTF-8, cut between two characters.
std::string Cut(const std::string& text, std::size_t length) {
    std::string cut;
    while (cut.size() <= length) cut += text;
    while ((cut[length] & 0xC0) == 0x80) --length;
    return cut.substr(0, length);
}

void MeasureConversions() {
    const struct {
        const char* script;
        const char* text;
    } texts[] = {
        {"ASCII", "The report can't be loaded since its attributes are on another server. "},
        {"French", "L'été dernier, la forêt où nous étions allés près de la frontière a brûlé, hélas. "},
        {"Cyrillic", "Все счастливые семьи похожи друг на друга, каждая несчастливая семья несчастлива. "},
        {"Chinese", "床前明月光，疑是地上霜。举头望明月，低头思故乡。"},
        {"emoji", "\U0001F300\U0001F34E\U0001F525\U0001F4A1\U0001F600\U0001F680\U0001F911\U0001F9E0"},
    };
    const struct {
        const char* name;
        std::size_t octets;
    } lengths[] = {{"64", 64}, {"4 KiB", 4096}, {"1 MiB", std::size_t{1} << 20}};
    for (const auto& [script, text] : texts) {
        for (const auto& [name, length] : lengths) {
            const std::string octets = Cut(text, length);
            std::vector<unsigned short> units(octets.size() + 1);
            const std::string what = std::string(script) + ", " + name;
            Measure("decoding, " + what, [&] {
                ZBase::UTF8ToWideChar(reinterpret_cast<const unsigned char*>(octets.data()), units.data(),
                                      octets.size(), false);
                bench::Use(units.data());
            });
            Measure("encoding, " + what,
                    [&] { bench::Use(ZBase::WideCharToUTF8(units.data(), false).c_str()); });
        }
    }
}

Message MakeMessage() {
    Message message(ZBase::MESSAGE_DOMAIN_SERVER, 103, "The file %1 can't be opened.");
    message << "names.txt";
    return message;
}

Message MakeWrapped() {
    Message message = MakeMessage();
    message.WrapBy(ZBase::MESSAGE_DOMAIN_SERVER, 104, "The report can't be loaded.");
    message.WrapBy(ZBase::MESSAGE_DOMAIN_SERVER, 105, "The project %1 is not open.") << "Sales";
    return message;
}

std::string ToXML(const Message& message) {
    std::string document;
    ZBase::SerializeToXML(message, *ZLiteXML::CreateStringWriter(document));
    return document;
}

void FromXML(const std::string& document, Message& message) {
    const auto reader = ZLiteXML::CreateReader();
    reader->PushHandler(ZBase::GetSerializerFromXML(message, *reader).Get());
    reader->Read(document.data(), document.size());
    reader->Finish();
}

void MeasureRecords() {
    const Message message = MakeMessage();
    const Message wrapped = MakeWrapped();
    // A parser takes a random number from the system: there is enough to read that this does not count.
    Message deep = MakeMessage();
    for (int level = 1; level != 30; ++level)
        deep.WrapBy(ZBase::MESSAGE_DOMAIN_SERVER, level, "The object %1 can't be opened.") << level;
    const std::string document = ToXML(deep);
    Measure("message made", [] { bench::Use(MakeMessage().GetTemplate()); });
    Measure("message copied", [&] {
        const Message copy(message);
        bench::Use(&copy);
    });
    Measure("message made and wrapped twice", [] {
        const Message made = MakeWrapped();
        bench::Use(&made);
    });
    Measure("three levels formatted", [&] { bench::Use(ZBase::FormatMessage(wrapped, 0).c_str()); });
    Measure("thirty levels to XML", [&] { bench::Use(ToXML(deep).data()); });
    Measure("thirty levels from XML", [&] {
        Message read;
        FromXML(document, read);
        bench::Use(&read);
    });
}

/// A second thread that does the same piece of work at the same time, from one barrier to the next.
class Companion {
public:
    Companion() : mThread([this] { Run(); }) {}
    ~Companion() {
        mEnds = true;
        Begin();
        mThread.join();
    }

    void Together(const std::function<void()>& work) {
        mpWork = &work;
        Begin();
        work();
        while (mDone != mBegun) std::this_thread::yield();
    }

private:
    // Waits for both to be there, so that neither works alone while the other is woken.
    void Begin() {
        ++mBegun;
        while (mThere != mBegun) std::this_thread::yield();
    }
    void Run() {
        for (int turn = 1; !mEnds; ++turn) {
            while (mBegun != turn) std::this_thread::yield();
            mThere = turn;
            if (!mEnds) (*mpWork)();
            mDone = turn;
        }
    }

    const std::function<void()>* mpWork = nullptr;  // held, not owned
    std::atomic<bool> mEnds = false;
    std::atomic<int> mBegun = 0;
    std::atomic<int> mThere = 0;
    std::atomic<int> mDone = 0;
    std::thread mThread;
};

constexpr int kPieces = 4000;

void MeasureBuffer() {
    const auto made = [] {
        return std::unique_ptr<ZBase::Buffer, void (*)(ZBase::Buffer*)>(
            ZBase::CreateBufferThreadSafe(1, 1, nullptr, 4096, false),
            [](ZBase::Buffer* buffer) { buffer->Delete(); });
    };
    alignas(64) std::atomic<std::uint64_t> counter = 0;
    ZBase::Buffer* shared = nullptr;
    const std::function<void()> pieces = [&shared] {
        for (int i = 0; i != kPieces; ++i) *static_cast<volatile std::uint64_t*>(shared->Allocate(16)) = 1;
    };
    const std::function<void()> bare = [&counter] {
        for (int i = 0; i != kPieces; ++i) counter.fetch_add(16);
    };
    const auto ofBuffer = [&](const auto& run) {
        const auto buffer = made();
        shared = buffer.get();
        run(pieces);
    };
    const auto alone = [](const std::function<void()>& work) { work(); };
    Tell("buffer, one thread, beside fetch_add", bench::Compare([&] { ofBuffer(alone); }, bare, kRounds));
    Companion companion;
    const auto together = [&companion](const std::function<void()>& work) { companion.Together(work); };
    Tell("buffer, two threads, beside fetch_add",
         bench::Compare([&] { ofBuffer(together); }, [&] { together(bare); }, kRounds));
}

void MeasureHeap() {
    const struct {
        const char* name;
        std::size_t octets;
    } sizes[] = {{"heap block of 80 octets", 80},
                 {"heap block of 4 KiB", 4096},
                 {"heap block of 1 MiB, written", std::size_t{1} << 20}};
    for (const auto& [name, octets] : sizes)
        Measure(name, [size = octets] {
            char* const block = new char[size];
            bench::Use(size < 8192 ? block : std::memset(block, 1, size));
            delete[] block;
        });
}

}  // namespace

void* operator new(std::size_t size) {
    return Allocate(size);
}
void* operator new[](std::size_t size) {
    return Allocate(size);
}
void operator delete(void* block) noexcept {
    Free(block);
}
void operator delete[](void* block) noexcept {
    Free(block);
}
void operator delete(void* block, std::size_t) noexcept {
    Free(block);
}
void operator delete[](void* block, std::size_t) noexcept {
    Free(block);
}

int main(int count, char** arguments) {
    const std::string_view heap = count == 2 ? arguments[1] : "";
    if (heap != "pool" && heap != "system") {
        std::fprintf(stderr, "Pace pool | system\n");
        return 2;
    }
    sUsesPool = heap == "pool";
    try {
        // As in a server there is a second thread all the time: heaps are faster in a process that never had
        // one.
        std::atomic<bool> ends = false;
        std::thread other([&ends] { ends.wait(false); });
        MeasureConversions();
        MeasureRecords();
        MeasureHeap();
        ends = true;
        ends.notify_one();
        other.join();
        MeasureBuffer();
        return 0;
    } catch (const std::exception& failure) {
        std::fprintf(stderr, "%s\n", failure.what());
    } catch (const Message& failure) {
        std::fprintf(stderr, "%s\n", ZBase::FormatMessage(failure, 0).c_str());
    }
    return 1;
}
