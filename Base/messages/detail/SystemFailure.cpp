#include <Base/frame/Exceptions.h>
#include <Base/frame/WideString.h>
#include <Base/messages/SystemErrors.h>
#include <Base/messages/detail/SystemFailure.h>
#include <Base/platform/os/errors/SystemErrors.h>

namespace ZBase::detail {

namespace {

[[noreturn]] void Throw(int id, const unsigned short* text) {
    ExceptionImpl<Message> failure;
    failure.SetDomainAndID(MESSAGE_DOMAIN_UNKNOWN, id);
    failure.SetMessage(text);
    throw failure;
}

}  // namespace

void ThrowSystemFailure(const unsigned short* what, unsigned int code) {
    WideString text(what);
    text += static_cast<unsigned short>('\n');
    text += GetSystemErrorDescription(code).c_str();
    Throw(static_cast<int>(code), text.c_str());
}

void ThrowSystemFailure(const unsigned short* what) {
    ThrowSystemFailure(what, os::GetLastCode());
}

void ThrowFailure(const unsigned short* what) {
    Throw(-1, what);
}

}  // namespace ZBase::detail
