#include <Base/frame/ReturnString.h>
#include <Base/frame/detail/ReturnStringMembers.h>

namespace ZBase {

ZBASE_RETURN_STRING_MEMBERS(ReturnString, char)

}  // namespace ZBase
