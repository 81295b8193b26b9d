#pragma once

#include <Base/switches/AppGlobalEventReporter.h>

namespace ZBase {

/// The implementation of `AppGlobalEventReporter`.
class AppGlobalEventReporterImpl {
public:
    virtual ~AppGlobalEventReporterImpl() = default;

    static void RegisterCallback(AppGlobalEventCallback* callback);
    static void Report(AppGlobalEvent& event);

    /// The registered callback.
    static AppGlobalEventCallback* GetCallback();
};

}  // namespace ZBase
