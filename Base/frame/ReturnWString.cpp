#include <Base/frame/ReturnWString.h>
#include <Base/frame/detail/ReturnStringMembers.h>

namespace ZBase {

ZBASE_RETURN_STRING_MEMBERS(ReturnWString, unsigned short)

}  // namespace ZBase
