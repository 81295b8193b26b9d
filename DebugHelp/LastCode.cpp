// Entry points tell of failures by their results alone, so what is shared with the library sets no last code
// here.

#include <Base/platform/os/linux/errors/ErrorCodes.h>

namespace ZBase::os {

void SetLastCodeFromErrno() {}

}  // namespace ZBase::os
