#include <Base/switches/FeatureFlagMgr.h>

#include <Base/frame/Exceptions.h>
#include <Base/frame/WideLiteral.h>
#include <Base/platform/os/processes/Forks.h>
#include <Base/text/UnicodeConversions.h>

#include <cstddef>
#include <new>
#include <string_view>
#include <utility>

namespace ZBase {

namespace {

// "Base/UseLockFreeBuffer" is not among them, so it is on by default; "Engine" and "ENGINE" are two prefixes.
// Kept for servers that set these names.
constexpr const unsigned short* kKnownNames[21] = {
    "COM/SampleFeature"_w,
    "FolioEA"_w,
    "DM/FROnDB"_w,
    "Engine/AJFE"_w,
    "KS/MSForStats"_w,
    "DBE/DataBlendingForFR"_w,
    "RWDEngine/OnDmdEval4GF"_w,
    "ENGINE/ParallelAE"_w,
    "ENGINE/AdvancedPU"_w,
    "Server/VerityMgrImpactDataSQLMDXCSI"_w,
    "Engine/NonAggSupportForMultiTableCube"_w,
    "AE/EarlyTempRel"_w,
    "AE/ThreadControl"_w,
    "AppSchema"_w,
    "EE/PDFEncrypt"_w,
    "OM/ElasticSearchEngine"_w,
    "DocServices/ShortcutCache"_w,
    "DocServices/SharedPageCache"_w,
    "AE/IKGovern"_w,
    "Engine/DAPushDown"_w,
    "DS/GroupRecipients"_w,
};

// Held while the map changes, inside the lock of the table. A fork waits for it, so no child finds a map that
// is half changed; nothing waits inside it, not even for the heap, whose lock the forking thread may hold. A
// fork does not wait for the table's lock, which a thread may keep for good.
std::mutex sChange;

// A copy of a name, made before the lock is taken, so that the caller's memory is not read under it. An
// ordinary name takes no heap.
class NameCopy {
public:
    explicit NameCopy(const unsigned short* name) {
        std::size_t length = 0;
        while (length != kOrdinary && name[length] != 0) {
            mUnits[length] = name[length];
            ++length;
        }
        if (length == kOrdinary) mLong = name;
        mView = length == kOrdinary ? std::basic_string_view<unsigned short>(mLong)
                                    : std::basic_string_view<unsigned short>(mUnits, length);
    }
    NameCopy(const NameCopy&) = delete;
    NameCopy& operator=(const NameCopy&) = delete;

    std::basic_string_view<unsigned short> Get() const { return mView; }

private:
    static constexpr std::size_t kOrdinary = 64;

    unsigned short mUnits[kOrdinary];
    WideString mLong;
    std::basic_string_view<unsigned short> mView;
};

// Under the lock of the table.
template <class Flags>
void Add(Flags& flags, WideString name, bool enabled) {
    Flags one;
    one.emplace(std::move(name), enabled);
    const std::lock_guard change(sChange);
    flags.insert(one.extract(one.begin()));  // takes no memory
}

[[noreturn]] void ThrowNotInitialized() {
    ExceptionImpl<Message> failure;
    failure.SetDomainAndID(MESSAGE_DOMAIN_UNKNOWN, -1);
    failure.SetMessage(
        UTF8ToWideChar("Do NOT use this function before Object Server initializing the Feature "
                       "Flag Status Map",
                       false)
            .c_str());
    throw failure;
}

}  // namespace

// In a child the lock may belong to a thread that does not exist.
FeatureFlagMgr::FeatureFlagMgr() {
    os::CallAtFork([] { sChange.lock(); }, [] { sChange.unlock(); },
                   [] {
                       sChange.unlock();
                       ::new (static_cast<void*>(&mFeatureFlagMgrInst.mLock)) std::recursive_mutex;
                   });
}
FeatureFlagMgr::~FeatureFlagMgr() = default;

bool FeatureFlagMgr::IsFeatureEnabled(const unsigned short* name) {
    if (!mIsInitialized) ThrowNotInitialized();
    if (name == nullptr) return true;
    const NameCopy copy(name);
    const std::lock_guard lock(mLock);
    const auto flag = mFlags.find(copy.Get());
    return flag == mFlags.end() || flag->second;
}

// No guard, here and below: without memory for the map the lock stays with the calling thread, which alone
// may go on, as the header says.
void FeatureFlagMgr::SetFeatureEnabled(const unsigned short* name, bool enabled) {
    if (name == nullptr) return;
    WideString key(name);
    mLock.lock();
    const auto flag = mFlags.find(key);
    if (flag != mFlags.end())
        flag->second = enabled;
    else
        Add(mFlags, std::move(key), enabled);
    mLock.unlock();
}

void FeatureFlagMgr::NotifyInitialized() {
    for (const unsigned short* name : kKnownNames) {
        mLock.lock();
        if (!mFlags.contains(name)) Add(mFlags, name, false);  // an earlier value wins
        mLock.unlock();
    }
    mIsInitialized = true;
}

bool IsFeatureEnabled(const unsigned short* name) {
    return FeatureFlagMgr::GetInstance().IsFeatureEnabled(name);
}

void SetFeatureEnabled(const unsigned short* name, bool enabled) {
    FeatureFlagMgr::GetInstance().SetFeatureEnabled(name, enabled);
}

void NotifyFeatureFlagMgrInitialized() {
    FeatureFlagMgr::GetInstance().NotifyInitialized();
}

bool IsFeatureFlagManagerInitialized() {
    return FeatureFlagMgr::GetInstance().IsInitialized();
}

}  // namespace ZBase
