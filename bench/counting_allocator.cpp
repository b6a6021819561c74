#include "counting_allocator.h"

#include <cerrno>
#include <cstddef>

// The C library's own functions under the names that stay when the usual ones are replaced.
extern "C" {
void* __libc_malloc(std::size_t size);
void* __libc_calloc(std::size_t count, std::size_t size);
void* __libc_realloc(void* memory, std::size_t size);
void* __libc_memalign(std::size_t alignment, std::size_t size);
}

namespace {

thread_local bench::Allocations counted;

void* noted(std::size_t size, void* memory) {
  ++counted.count;
  counted.bytes += static_cast<std::int64_t>(size);
  return memory;
}

}  // namespace

extern "C" {

__attribute__((visibility("default"))) void* malloc(std::size_t size) {
  return noted(size, __libc_malloc(size));
}

__attribute__((visibility("default"))) void* calloc(std::size_t count, std::size_t size) {
  return noted(count * size, __libc_calloc(count, size));
}

__attribute__((visibility("default"))) void* realloc(void* memory, std::size_t size) {
  return noted(size, __libc_realloc(memory, size));
}

__attribute__((visibility("default"))) void* memalign(std::size_t alignment, std::size_t size) {
  return noted(size, __libc_memalign(alignment, size));
}

__attribute__((visibility("default"))) void* aligned_alloc(std::size_t alignment, std::size_t size) {
  return noted(size, __libc_memalign(alignment, size));
}

__attribute__((visibility("default"))) int posix_memalign(void** memory, std::size_t alignment, std::size_t size) {
  *memory = noted(size, __libc_memalign(alignment, size));
  return *memory != nullptr ? 0 : ENOMEM;
}

}  // extern "C"

bench::Allocations bench::allocations() {
  return counted;
}
