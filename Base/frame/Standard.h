#pragma once

// A compiler with an older standard shows this error only.
#if (defined(_MSVC_LANG) && _MSVC_LANG < 202002L) || (!defined(_MSVC_LANG) && __cplusplus < 202002L)
#error "ZBase needs C++20: compile with -std=c++20 or later (MSVC: /std:c++20 or later)"
#include <ZBase-needs-C++20>  // ends the compilation, which an error alone does not
#endif
