#pragma once

#include <Base/frame/Api.h>

namespace ZBase {

/// An event of the application, which defines its content.
class AppGlobalEvent;

/// Receives the application's events. The application may derive from it freely; the library calls this
/// operation only.
class AppGlobalEventCallback {
public:
    virtual void OnEvent(AppGlobalEvent& event) = 0;

protected:
    ~AppGlobalEventCallback() = default;
};

/// The one channel for the application's events in a process: one party registers a callback, and any part of
/// the process reports to it without knowing the receiver. There is no lock: the registration must be
/// complete before the first report that is to arrive.
class ZBASE_API AppGlobalEventReporter {
public:
    AppGlobalEventReporter(const AppGlobalEventReporter&);
    AppGlobalEventReporter& operator=(const AppGlobalEventReporter&);

    /// Registers the callback for the life of the process; null does nothing. `callback` must outlive every
    /// `Report`. Throws `AppGlobalEventReporterException` when there is one already, which then stays.
    static void RegisterCallback(AppGlobalEventCallback* callback);

    /// Passes the event to the callback, on this thread; its exceptions pass through. No effect without a
    /// callback.
    static void Report(AppGlobalEvent& event);

    /// Always null: a registered callback can't be read back; kept for callers of the name.
    static AppGlobalEventCallback* GetCallback();

private:
    AppGlobalEventReporter();
    virtual ~AppGlobalEventReporter();
};

}  // namespace ZBase
