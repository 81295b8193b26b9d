// Two budgets over the buffers of a server: a ceiling for the whole process, and a contract for each request.
// Three requests, each on two threads: one stays within its contract, one exhausts it, one has enough but
// meets the ceiling. The program prints what each was granted and refused.

#include <Base/ZBase.h>

#include <cstdio>
#include <mutex>
#include <string>
#include <thread>
#include <utility>
#include <vector>

namespace {

// The work of one request: pieces of 1,000 bytes into one buffer, until all are allocated or a budget
// refuses.
class ServerRequest {
public:
    ServerRequest(std::string name, std::size_t contractBytes, int pieces)
        : mName(std::move(name)),
          mContract(ZBase::MemoryBudget::Create(contractBytes)),
          mBuffer(ZBase::CreateBufferThreadSafe(0, 1, mContract.Get(), 0, false)),
          mPieces(pieces) {}

    void Run() {
        std::vector<std::jthread> threads;
        for (int i = 0; i != 2; ++i) threads.emplace_back([this] { RunOnThread(); });
    }

    // Whether all pieces were allocated.
    bool Report() const {
        std::printf("%-8s granted %7zu  refused %7zu  settled %7zu  used %7zu  %s\n", mName.c_str(),
                    mContract->GetGranted(), mContract->GetRefused(), mContract->GetSettled(),
                    mBuffer->GetUsedBytes(), mRefusal.empty() ? "done" : mRefusal.c_str());
        return mRefusal.empty();
    }

private:
    void RunOnThread() {
        try {
            for (int i = 0; i != mPieces / 2; ++i) *static_cast<char*>(mBuffer->Allocate(1000)) = 'x';
        } catch (const ZBase::ContractManagerAllocException& refusal) {
            SetRefusal("refused by its contract, code " + std::to_string(refusal.GetID()));
        } catch (const ZBase::MemGoverningException& refusal) {
            SetRefusal(refusal.GetTemplate());
        }
    }

    void SetRefusal(const std::string& text) {
        const std::lock_guard lock(mLock);
        mRefusal = text;
    }

    const std::string mName;
    ZBase::SmartPtrI<ZBase::MemoryBudget> mContract;
    ZBase::BufferPtr mBuffer;
    const int mPieces;
    std::mutex mLock;
    std::string mRefusal;
};

}  // namespace

int main() {
    const ZBase::MemoryCeiling ceiling(2'000'000);
    bool modestDone = false;
    bool greedyDone = false;
    bool richDone = false;
    {
        ServerRequest modest("modest", 400'000, 100);
        ServerRequest greedy("greedy", 100'000, 1'000);
        ServerRequest rich("rich", 50'000'000, 10'000);
        modest.Run();
        greedy.Run();
        rich.Run();
        modestDone = modest.Report();
        greedyDone = greedy.Report();
        richDone = rich.Report();
        std::printf("the process holds %zu bytes after %zu refusals\n", ceiling.GetHeld(),
                    ceiling.GetRefusals());
    }
    std::printf("and %zu when all requests have ended\n", ceiling.GetHeld());
    const bool asMeant =
        modestDone && !greedyDone && !richDone && ceiling.GetRefusals() != 0 && ceiling.GetHeld() == 0;
    return asMeant ? 0 : 1;
}
