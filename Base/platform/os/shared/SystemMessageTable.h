#pragma once

namespace ZBase::os {

/// The English text of a Win32 code, one sentence or more without a line end; null if there is none.
const char* FindSystemMessage(unsigned int code);

}  // namespace ZBase::os
