#pragma once

#include <cstdio>
#include <cstdlib>

/// Ends the run as a finding when something that must always hold does not.
inline void fuzzCheck(bool holds, const char* what) {
  if (holds) return;
  std::fprintf(stderr, "does not hold: %s\n", what);
  std::abort();
}
