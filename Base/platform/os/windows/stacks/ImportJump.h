#pragma once

namespace ZBase::os {

/// Where a jump through an import leads, as it stands in place of a function of another module; what is no
/// such jump is given back.
const void* BehindImport(const void* function);

}  // namespace ZBase::os
