#pragma once

#include <string>

namespace ZBase::os {

/// Appends the content of a /proc file to `content`. False with the reason as last code.
bool ReadWholeFile(const char* path, std::string& content);

}  // namespace ZBase::os
