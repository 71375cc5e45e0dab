// A check that holds in every build type: reports the failed condition and
// aborts, which libFuzzer records as a crash with its input.
#pragma once

#include <cstdio>
#include <cstdlib>

#define LARKSPIN_FUZZ_CHECK(condition)                                                                                 \
  do {                                                                                                                 \
    if (!(condition)) {                                                                                                \
      std::fprintf(stderr, "%s:%d: check failed: %s\n", __FILE__, __LINE__, #condition);                               \
      std::abort();                                                                                                    \
    }                                                                                                                  \
  } while (false)
