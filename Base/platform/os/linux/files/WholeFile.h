#pragma once

#include <string>

namespace ZBase::os {

/// Appends what a file of the process list holds to `content`. False with the reason as last code.
bool ReadWholeFile(const char* path, std::string& content);

}  // namespace ZBase::os
