#include <Base/memory/detail/MemoryFailures.h>

#include <Base/frame/Exceptions.h>
#include <Base/frame/WideLiteral.h>
#include <Base/frame/WideString.h>
#include <Base/messages/SystemErrors.h>

namespace ZBase {

void ThrowBufferException(const unsigned short* text) {
    ExceptionImpl<BufferException> failure;
    failure.SetDomainAndID(MESSAGE_DOMAIN_UNKNOWN, -1);
    failure.SetMessage(text);
    throw failure;
}

void CheckContractAnswer(unsigned int code) {
    if (code == 0) return;
    WideString text("No memory to be contracted. Contract request rejected.\n"_w);
    text += GetSystemErrorDescription(code).c_str();
    ExceptionImpl<ContractManagerAllocException> failure;
    failure.SetDomainAndID(MESSAGE_DOMAIN_UNKNOWN, static_cast<int>(code));
    failure.SetMessage(text.c_str());
    throw failure;
}

}  // namespace ZBase
