// Memory for floats and the like on a cache line's boundary; grows, never shrinks, keeps nothing when it grows.
#pragma once

#include <cstddef>
#include <cstdlib>
#include <memory>
#include <new>

namespace csrt_engine {

template <typename T>
class AlignedArray {
 public:
  /// Room for n elements; their values are what they happen to be. Throws std::bad_alloc.
  T* reserve(std::size_t n) {
    if (n > room_) {
      room_ = 0;
      memory_.reset();
      constexpr std::size_t kLine = 64;
      const std::size_t bytes = (n * sizeof(T) + kLine - 1) / kLine * kLine;
      memory_.reset(static_cast<T*>(std::aligned_alloc(kLine, bytes)));
      if (!memory_) throw std::bad_alloc();
      room_ = n;
    }
    return memory_.get();
  }
  T* data() const { return memory_.get(); }

 private:
  struct Free {
    void operator()(T* p) const { std::free(p); }
  };
  std::unique_ptr<T, Free> memory_;
  std::size_t room_ = 0;
};

}  // namespace csrt_engine
