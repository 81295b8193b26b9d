// Entry points return failures only as results, so code shared with the library sets no last code here.

#include <Base/platform/os/linux/errors/ErrorCodes.h>

namespace ZBase::os {

void SetLastCodeFromErrno() {}

}  // namespace ZBase::os
