#pragma once

#include <Base/frame/Api.h>
#include <Base/frame/WideString.h>

#include <atomic>
#include <map>
#include <mutex>
#include <string_view>

namespace ZBase {

/// The process-wide table of named on/off switches. The server sets its switches and then declares the table
/// ready; from then on any code may query. A name that the library knows is off unless it was turned on; any
/// other name that was not set is on. Names are case-sensitive. Every member may be called on any thread.
class ZBASE_API FeatureFlagMgr {
public:
    /// The one instance, usable from load to unload.
    static FeatureFlagMgr mFeatureFlagMgrInst;
    static FeatureFlagMgr& GetInstance() { return mFeatureFlagMgrInst; }

    ~FeatureFlagMgr();
    FeatureFlagMgr(const FeatureFlagMgr&) = delete;
    FeatureFlagMgr& operator=(const FeatureFlagMgr&) = delete;

    /// Whether a feature is on; true for a null name. Throws `Message` before `NotifyInitialized`, and
    /// `std::bad_alloc`.
    bool IsFeatureEnabled(const unsigned short* name);

    /// Turns a feature on or off, at any time; a null name does nothing. Throws `std::bad_alloc` with nothing
    /// changed; if the table itself found no memory, it stays locked to the calling thread.
    void SetFeatureEnabled(const unsigned short* name, bool enabled);

    /// Declares the table ready: turns off the known names that were not set. Throws as `SetFeatureEnabled`
    /// does.
    void NotifyInitialized();

    bool IsInitialized() const { return mIsInitialized; }

private:
    FeatureFlagMgr();

    // By units, so that a name can be looked up without a string of its own.
    struct Less {
        using is_transparent = void;
        using View = std::basic_string_view<unsigned short>;
        bool operator()(View one, View other) const { return one < other; }
    };

    std::recursive_mutex mLock;  // over each access to the map
    std::map<WideString, bool, Less> mFlags;
    std::atomic<bool> mIsInitialized{false};
};

/// The same on the one instance.
ZBASE_API bool IsFeatureEnabled(const unsigned short* name);
ZBASE_API void SetFeatureEnabled(const unsigned short* name, bool enabled);
ZBASE_API void NotifyFeatureFlagMgrInitialized();
ZBASE_API bool IsFeatureFlagManagerInitialized();

}  // namespace ZBase
