#include <Base/ZBase.h>

#include <gtest/gtest.h>

#include <sys/mman.h>
#include <unistd.h>

#include <vector>

#include "tests/support/Budgets.h"

namespace {

using namespace ZBase;
using test::BudgetCalls;

// A gigabyte of text in two megabytes of memory, one behind the other again and again.
class RepeatedText {
public:
    static constexpr std::size_t kUnits = std::size_t{1} << 29;

    RepeatedText() {
        const std::vector<char> letters(kPiece, 'a');
        const int file = memfd_create("text", MFD_CLOEXEC);
        if (file < 0) return;
        mIsWhole = Fill(file, letters) && Map(file);
        close(file);
    }
    ~RepeatedText() {
        if (mStart != nullptr) munmap(mStart, kBytes);
    }
    RepeatedText(const RepeatedText&) = delete;
    RepeatedText& operator=(const RepeatedText&) = delete;

    bool IsWhole() const { return mIsWhole; }
    const unsigned short* Start() const {
        return static_cast<const unsigned short*>(static_cast<const void*>(mStart));
    }

private:
    static constexpr std::size_t kBytes = 2 * kUnits;
    static constexpr std::size_t kPiece = 2 << 20;

    static bool Fill(int file, const std::vector<char>& letters) {
        return ftruncate(file, kPiece) == 0 &&
               pwrite(file, letters.data(), kPiece, 0) == static_cast<ssize_t>(kPiece);
    }
    bool Map(int file) {
        void* const all =
            mmap(nullptr, kBytes, PROT_READ, MAP_PRIVATE | MAP_ANONYMOUS | MAP_NORESERVE, -1, 0);
        if (all == MAP_FAILED) return false;
        mStart = static_cast<char*>(all);
        for (std::size_t i = 0; i != kBytes / kPiece; ++i)
            if (mmap(mStart + i * kPiece, kPiece, PROT_READ, MAP_SHARED | MAP_FIXED, file, 0) == MAP_FAILED)
                return false;
        return true;
    }

    char* mStart = nullptr;
    bool mIsWhole = false;
};

// A contract is asked in 32 bits: 2^29 units would come to 2 bytes there.
TEST(GovernedLargeText, RequestBeyondThirtyTwoBitsIsTheLargest) {
    test::RecordingContract contract;
    SmartPtrI<MemoryContract> holder{&contract};
    const RepeatedText text;
    ASSERT_TRUE(text.IsWhole());
    contract.code = 8;
    EXPECT_THROW(WideCharToUTF8UsingLengthGoverned(text.Start(), RepeatedText::kUnits, holder, false),
                 ContractManagerAllocException);
    EXPECT_THROW(WideCharToUTF8UsingLengthGoverned(text.Start(), RepeatedText::kUnits - 1, holder, false),
                 ContractManagerAllocException);
    EXPECT_EQ(*contract.calls, (BudgetCalls{{"Request", 0xFFFFFFFF}, {"Request", 0xFFFFFFFA}}));
}

}  // namespace
