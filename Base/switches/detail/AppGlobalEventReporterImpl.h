#pragma once

#include <Base/switches/AppGlobalEventReporter.h>

namespace ZBase {

/// What `AppGlobalEventReporter` does.
class AppGlobalEventReporterImpl {
public:
    virtual ~AppGlobalEventReporterImpl() = default;

    static void RegisterCallback(AppGlobalEventCallback* callback);
    static void Report(AppGlobalEvent& event);

    /// The registered callback.
    static AppGlobalEventCallback* GetCallback();
};

}  // namespace ZBase
