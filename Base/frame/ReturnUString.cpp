#include <Base/frame/ReturnUString.h>
#include <Base/frame/detail/ReturnStringMembers.h>

namespace ZBase {

ZBASE_RETURN_STRING_MEMBERS(ReturnUString, unsigned short)

}  // namespace ZBase
