// REQUIRE ends the program if a condition is false; the fuzzer then reports the input.
#pragma once

#include <cstdio>
#include <cstdlib>

#define REQUIRE(condition)                                                           \
  do {                                                                               \
    if (!(condition)) {                                                              \
      std::fprintf(stderr, "%s:%d: required: %s\n", __FILE__, __LINE__, #condition); \
      std::abort();                                                                  \
    }                                                                                \
  } while (false)
