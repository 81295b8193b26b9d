#include <Base/frame/Exceptions.h>
#include <Base/frame/WideLiteral.h>
#include <Base/frame/detail/LibraryState.h>
#include <Base/switches/AppGlobalEventReporter.h>
#include <Base/switches/detail/AppGlobalEventReporterImpl.h>

namespace ZBase {

void AppGlobalEventReporterImpl::RegisterCallback(AppGlobalEventCallback* callback) {
    if (gAppGlobalEventCallback != nullptr) {
        ExceptionImpl<AppGlobalEventReporterException> failure;
        failure.SetDomainAndID(MESSAGE_DOMAIN_UNKNOWN, -1);
        failure.SetMessage("Callback method is already registered"_w);
        throw failure;
    }
    gAppGlobalEventCallback = callback;
}

void AppGlobalEventReporterImpl::Report(AppGlobalEvent& event) {
    if (gAppGlobalEventCallback != nullptr) gAppGlobalEventCallback->OnEvent(event);
}

AppGlobalEventCallback* AppGlobalEventReporterImpl::GetCallback() {
    return gAppGlobalEventCallback;
}

AppGlobalEventReporter::AppGlobalEventReporter() = default;
AppGlobalEventReporter::AppGlobalEventReporter(const AppGlobalEventReporter&) = default;
AppGlobalEventReporter& AppGlobalEventReporter::operator=(const AppGlobalEventReporter&) = default;
AppGlobalEventReporter::~AppGlobalEventReporter() = default;

void AppGlobalEventReporter::RegisterCallback(AppGlobalEventCallback* callback) {
    AppGlobalEventReporterImpl::RegisterCallback(callback);
}

void AppGlobalEventReporter::Report(AppGlobalEvent& event) {
    AppGlobalEventReporterImpl::Report(event);
}

AppGlobalEventCallback* AppGlobalEventReporter::GetCallback() {
    return nullptr;
}

}  // namespace ZBase
