#pragma once

#include <Base/frame/Api.h>

namespace ZBase {

/// An event of the application, which defines what it holds.
class AppGlobalEvent;

/// Is told of the application's events. The application may derive what it likes from it; the library calls
/// this operation only.
class AppGlobalEventCallback {
public:
    virtual void OnEvent(AppGlobalEvent& event) = 0;

protected:
    ~AppGlobalEventCallback() = default;
};

/// The one channel for the application's events in a process: one party registers a callback, and any part of
/// the process reports to it without knowing who listens. There is no lock: the registration must be over
/// before the first report that is to arrive.
class ZBASE_API AppGlobalEventReporter {
public:
    AppGlobalEventReporter(const AppGlobalEventReporter&);
    AppGlobalEventReporter& operator=(const AppGlobalEventReporter&);

    /// Registers the callback for the life of the process; null does nothing. `callback` must outlive every
    /// `Report`. Throws `AppGlobalEventReporterException` when there is one already, which then stays.
    static void RegisterCallback(AppGlobalEventCallback* callback);

    /// Hands the event to the callback, on this thread; what that throws passes through. Does nothing when
    /// there is none.
    static void Report(AppGlobalEvent& event);

    /// Always null: a registered callback can't be read back, and that is meant.
    static AppGlobalEventCallback* GetCallback();

private:
    AppGlobalEventReporter();
    virtual ~AppGlobalEventReporter();
};

}  // namespace ZBase
