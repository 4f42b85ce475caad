// A property that every input must keep; the fuzzer reports the input that breaks it.
#pragma once

#include <cstdio>
#include <cstdlib>

#define REQUIRE(condition)                                                           \
  do {                                                                               \
    if (!(condition)) {                                                              \
      std::fprintf(stderr, "%s:%d: not kept: %s\n", __FILE__, __LINE__, #condition); \
      std::abort();                                                                  \
    }                                                                                \
  } while (false)
