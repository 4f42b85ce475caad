// <regex> without a false report: under AddressSanitizer, GCC 12 takes the state inside std::regex for
// uninitialised (GCC bug 105562).
#pragma once

#if defined(__GNUC__) && !defined(__clang__)
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wmaybe-uninitialized"
#endif
#include <regex>  // IWYU pragma: export
#if defined(__GNUC__) && !defined(__clang__)
#pragma GCC diagnostic pop
#endif
