// The processor's vectors of floats by one name: four or eight lanes. Only plain IEEE operations, no fused ones: what
// a lane computes is the same on every processor.
#pragma once

#include "intrinsics.h"

#define CSRT_INLINE static inline __attribute__((always_inline))

#if defined(__AVX2__)
constexpr int kLanes = 8;
typedef float Vec __attribute__((vector_size(32)));
typedef int32_t VecInt __attribute__((vector_size(32)));
#else
constexpr int kLanes = 4;
typedef float Vec __attribute__((vector_size(16)));
typedef int32_t VecInt __attribute__((vector_size(16)));
#endif

CSRT_INLINE Vec load(const float* p) {
  Vec v;
  std::memcpy(&v, p, sizeof v);
  return v;
}
CSRT_INLINE void store(float* p, Vec v) {
  std::memcpy(p, &v, sizeof v);
}
CSRT_INLINE Vec splat(float x) {
  return x - Vec{};
}  // x - 0 is x for every x, and -0 stays -0
CSRT_INLINE Vec pick(VecInt mask, Vec a, Vec b) {
  return (Vec)(((VecInt)a & mask) | ((VecInt)b & ~mask));
}
/// b where it is smaller (larger), else a: also where either is not a number, and for zeros of either sign.
CSRT_INLINE Vec smaller(Vec a, Vec b) {
#if defined(__AVX2__)
  return (Vec)_mm256_min_ps((__m256)b, (__m256)a);
#elif defined(__SSE2__)
  return (Vec)_mm_min_ps((__m128)b, (__m128)a);
#else
  return pick(b < a, b, a);
#endif
}
CSRT_INLINE Vec larger(Vec a, Vec b) {
#if defined(__AVX2__)
  return (Vec)_mm256_max_ps((__m256)b, (__m256)a);
#elif defined(__SSE2__)
  return (Vec)_mm_max_ps((__m128)b, (__m128)a);
#else
  return pick(a < b, b, a);
#endif
}

CSRT_INLINE Vec root(Vec a) {
#if defined(__AVX2__)
  return (Vec)_mm256_sqrt_ps((__m256)a);
#elif defined(__SSE2__)
  return (Vec)_mm_sqrt_ps((__m128)a);
#elif defined(__aarch64__)
  return (Vec)vsqrtq_f32((float32x4_t)a);
#else
  for (int i = 0; i < kLanes; ++i) a[i] = __builtin_sqrtf(a[i]);
  return a;
#endif
}

/// Runs `body` for every part of an element that the processor's vectors need: once with eight lanes, twice with four.
#define CSRT_FOR_LANES(lane) for (int lane = 0; lane < kBlock; lane += kLanes)
