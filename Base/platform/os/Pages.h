#pragma once

#include <cstddef>

namespace ZBase::os {

/// The system's page size in bytes.
std::size_t PageSize();

}  // namespace ZBase::os
