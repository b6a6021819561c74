// Counts what the process asks of its heap, OpenCV's images included. For programs of this folder only: it takes the
// place of the C library's allocator in the program that links it.
#pragma once

#include <cstdint>

namespace bench {

struct Allocations {
  std::int64_t count = 0;
  std::int64_t bytes = 0;
};

/// Since the start, of the calling thread.
Allocations allocations();

inline Allocations operator-(const Allocations& a, const Allocations& b) {
  return {a.count - b.count, a.bytes - b.bytes};
}

}  // namespace bench
