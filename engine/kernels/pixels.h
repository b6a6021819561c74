// Loops over the pixels of the patch: cubic resize and gradients.
#pragma once

#include "kernels.h"
#include "simd.h"

/// a * b + c as the library's own vector code computes it: fused on arm64, in two steps elsewhere.
CSRT_INLINE Vec libraryMulAdd(Vec a, Vec b, Vec c) {
#if defined(__aarch64__)
  return (Vec)vfmaq_f32((float32x4_t)c, (float32x4_t)a, (float32x4_t)b);
#else
  return a * b + c;
#endif
}

static void cubicRowBytes(const uint8_t* row, const int* tap, const int16_t* alpha, int n, float* out, int stride) {
  float *blue = out, *green = out + stride, *red = out + 2L * stride;
  int i = 0;
#if defined(__SSE2__)
  const __m128i zero = _mm_setzero_si128();
  for (; i + 4 <= n; i += 4) {
    __m128i sum[4];
    for (int k = 0; k < 4; ++k) {  // pairs of neighbouring pixels, channel by channel, then products summed in pairs
      const uint8_t* p = row + tap[i + k];
      const __m128i p0 = _mm_loadl_epi64((const __m128i*)(p)), p1 = _mm_loadl_epi64((const __m128i*)(p + 3));
      const __m128i p2 = _mm_loadl_epi64((const __m128i*)(p + 6)), p3 = _mm_loadl_epi64((const __m128i*)(p + 9));
      const __m128i a = _mm_loadl_epi64((const __m128i*)(alpha + 4L * (i + k)));
      const __m128i front = _mm_unpacklo_epi8(_mm_unpacklo_epi8(p0, p1), zero);
      const __m128i back = _mm_unpacklo_epi8(_mm_unpacklo_epi8(p2, p3), zero);
      sum[k] = _mm_add_epi32(_mm_madd_epi16(front, _mm_shuffle_epi32(a, 0x00)),
                             _mm_madd_epi16(back, _mm_shuffle_epi32(a, 0x55)));
    }
    __m128 f0 = _mm_cvtepi32_ps(sum[0]), f1 = _mm_cvtepi32_ps(sum[1]);
    __m128 f2 = _mm_cvtepi32_ps(sum[2]), f3 = _mm_cvtepi32_ps(sum[3]);
    _MM_TRANSPOSE4_PS(f0, f1, f2, f3);
    _mm_storeu_ps(blue + i, f0);
    _mm_storeu_ps(green + i, f1);
    _mm_storeu_ps(red + i, f2);
  }
#endif
  for (; i < n; ++i) {
    const uint8_t* p = row + tap[i];
    const int16_t* a = alpha + 4L * i;
    blue[i] = (float)(p[0] * a[0] + p[3] * a[1] + p[6] * a[2] + p[9] * a[3]);
    green[i] = (float)(p[1] * a[0] + p[4] * a[1] + p[7] * a[2] + p[10] * a[3]);
    red[i] = (float)(p[2] * a[0] + p[5] * a[1] + p[8] * a[2] + p[11] * a[3]);
  }
}

/// Nearest whole number, ties to even.
CSRT_INLINE VecInt nearest(Vec a) {
#if defined(__AVX2__)
  return (VecInt)_mm256_cvtps_epi32((__m256)a);
#elif defined(__SSE2__)
  return (VecInt)_mm_cvtps_epi32((__m128)a);
#elif defined(__aarch64__)
  return (VecInt)vcvtnq_s32_f32((float32x4_t)a);
#else
  VecInt r;
  for (int i = 0; i < kLanes; ++i) r[i] = (int)__builtin_rintf(a[i]);
  return r;
#endif
}

CSRT_INLINE void storeBytes(uint8_t* out, VecInt v) {
#if defined(__AVX2__)
  const __m128i words = _mm_packs_epi32(_mm256_castsi256_si128((__m256i)v), _mm256_extracti128_si256((__m256i)v, 1));
  _mm_storel_epi64((__m128i*)out, _mm_packus_epi16(words, words));
#elif defined(__SSE2__)
  const __m128i words = _mm_packs_epi32((__m128i)v, (__m128i)v);
  const int bytes = _mm_cvtsi128_si32(_mm_packus_epi16(words, words));
  std::memcpy(out, &bytes, sizeof bytes);
#else
  for (int i = 0; i < kLanes; ++i) out[i] = (uint8_t)(v[i] < 0 ? 0 : v[i] > 255 ? 255 : v[i]);
#endif
}

/// Writes whole vectors: up to kBlock - 1 bytes after the n-th, and reads as many floats of the rows.
static void cubicColumnBytes(const float* const* rows, const int16_t* beta, int n, uint8_t* out) {
  const float scale = 1.0f / (2048.0f * 2048.0f);  // two factors in units of 1/2048
  const Vec b0 = splat((float)beta[0] * scale), b1 = splat((float)beta[1] * scale);
  const Vec b2 = splat((float)beta[2] * scale), b3 = splat((float)beta[3] * scale);
  for (int i = 0; i < n; i += kLanes) {
    const Vec sum = libraryMulAdd(
        load(rows[0] + i), b0,
        libraryMulAdd(load(rows[1] + i), b1, libraryMulAdd(load(rows[2] + i), b2, load(rows[3] + i) * b3)));
    storeBytes(out + i, nearest(sum));
  }
}

struct Gradient {
  int dx, dy;
};

/// The choice between channels of equal strength as the library makes it: in doubles, on pixels divided by 255, where
/// rounding decides.
static Gradient strongestInDoubles(const uint8_t* const* above, const uint8_t* const* row, const uint8_t* const* below,
                                   int x) {
  constexpr double kUnit = 1.0 / 255.0;
  double most = 0;
  Gradient best = {0, 0};
  for (int c = 2; c >= 0; --c) {
    const double dy = below[c][x] * kUnit - above[c][x] * kUnit, dx = row[c][x + 1] * kUnit - row[c][x - 1] * kUnit;
#if defined(__aarch64__) && defined(CSRT_ENGINE_FUSED_ENERGY)
    const double v = __builtin_fma(dx, dx, dy * dy);
#else
    const double v = dx * dx + dy * dy;
#endif
    if (c < 2 && !(v > most)) continue;
    most = v;
    best = {row[c][x + 1] - row[c][x - 1], below[c][x] - above[c][x]};
  }
  return best;
}

#if defined(__SSE2__)
typedef __m128i Shorts;  // eight of them
typedef __m128i Words;   // four of them
CSRT_INLINE Shorts loadBytes(const uint8_t* p) {
  return _mm_unpacklo_epi8(_mm_loadl_epi64((const __m128i*)p), _mm_setzero_si128());
}
CSRT_INLINE void storeLow(uint8_t* p, Shorts v) { _mm_storel_epi64((__m128i*)p, _mm_packus_epi16(v, v)); }
CSRT_INLINE void storeShorts(int16_t* p, Shorts v) { _mm_storeu_si128((__m128i*)p, v); }
CSRT_INLINE Shorts minus(Shorts a, Shorts b) { return _mm_sub_epi16(a, b); }
CSRT_INLINE Shorts plus(Shorts a, Shorts b) { return _mm_add_epi16(a, b); }
CSRT_INLINE Shorts both(Shorts a, Shorts b) { return _mm_and_si128(a, b); }
CSRT_INLINE Shorts either(Shorts a, Shorts b) { return _mm_or_si128(a, b); }
CSRT_INLINE Shorts butNot(Shorts a, Shorts b) { return _mm_andnot_si128(b, a); }
CSRT_INLINE Shorts equal(Shorts a, Shorts b) { return _mm_cmpeq_epi16(a, b); }
CSRT_INLINE Shorts greater(Shorts a, Shorts b) { return _mm_cmpgt_epi16(a, b); }
CSRT_INLINE Shorts shorts(int v) { return _mm_set1_epi16((int16_t)v); }
CSRT_INLINE Words equalWords(Words a, Words b) { return _mm_cmpeq_epi32(a, b); }
CSRT_INLINE Words greaterWords(Words a, Words b) { return _mm_cmpgt_epi32(a, b); }
CSRT_INLINE Words pickWords(Words mask, Words a, Words b) {
  return _mm_or_si128(_mm_and_si128(mask, a), _mm_andnot_si128(mask, b));
}
CSRT_INLINE Shorts narrow(Words low, Words high) { return _mm_packs_epi32(low, high); }
CSRT_INLINE bool any(Shorts v) { return _mm_movemask_epi8(v) != 0; }
/// a * p + b * q of each lane, in 32 bits.
CSRT_INLINE void sumOfProducts(Shorts a, Shorts p, Shorts b, Shorts q, Words& low, Words& high) {
  low = _mm_madd_epi16(_mm_unpacklo_epi16(a, b), _mm_unpacklo_epi16(p, q));
  high = _mm_madd_epi16(_mm_unpackhi_epi16(a, b), _mm_unpackhi_epi16(p, q));
}
CSRT_INLINE void storeLength(float* out, Words v, float unit) {
  _mm_storeu_ps(out, _mm_mul_ps(_mm_sqrt_ps(_mm_cvtepi32_ps(v)), _mm_set1_ps(unit)));
}
#elif defined(__aarch64__)
typedef int16x8_t Shorts;
typedef int32x4_t Words;
CSRT_INLINE Shorts loadBytes(const uint8_t* p) { return vreinterpretq_s16_u16(vmovl_u8(vld1_u8(p))); }
CSRT_INLINE void storeLow(uint8_t* p, Shorts v) { vst1_u8(p, vqmovun_s16(v)); }
CSRT_INLINE void storeShorts(int16_t* p, Shorts v) { vst1q_s16(p, v); }
CSRT_INLINE Shorts minus(Shorts a, Shorts b) { return vsubq_s16(a, b); }
CSRT_INLINE Shorts plus(Shorts a, Shorts b) { return vaddq_s16(a, b); }
CSRT_INLINE Shorts both(Shorts a, Shorts b) { return vandq_s16(a, b); }
CSRT_INLINE Shorts either(Shorts a, Shorts b) { return vorrq_s16(a, b); }
CSRT_INLINE Shorts butNot(Shorts a, Shorts b) { return vbicq_s16(a, b); }
CSRT_INLINE Shorts equal(Shorts a, Shorts b) { return vreinterpretq_s16_u16(vceqq_s16(a, b)); }
CSRT_INLINE Shorts greater(Shorts a, Shorts b) { return vreinterpretq_s16_u16(vcgtq_s16(a, b)); }
CSRT_INLINE Shorts shorts(int v) { return vdupq_n_s16((int16_t)v); }
CSRT_INLINE Words equalWords(Words a, Words b) { return vreinterpretq_s32_u32(vceqq_s32(a, b)); }
CSRT_INLINE Words greaterWords(Words a, Words b) { return vreinterpretq_s32_u32(vcgtq_s32(a, b)); }
CSRT_INLINE Words pickWords(Words mask, Words a, Words b) { return vbslq_s32(vreinterpretq_u32_s32(mask), a, b); }
CSRT_INLINE Shorts narrow(Words low, Words high) { return vcombine_s16(vqmovn_s32(low), vqmovn_s32(high)); }
CSRT_INLINE bool any(Shorts v) { return vmaxvq_u16(vreinterpretq_u16_s16(v)) != 0; }
CSRT_INLINE void sumOfProducts(Shorts a, Shorts p, Shorts b, Shorts q, Words& low, Words& high) {
  low = vmlal_s16(vmull_s16(vget_low_s16(a), vget_low_s16(p)), vget_low_s16(b), vget_low_s16(q));
  high = vmlal_s16(vmull_s16(vget_high_s16(a), vget_high_s16(p)), vget_high_s16(b), vget_high_s16(q));
}
CSRT_INLINE void storeLength(float* out, Words v, float unit) {
  vst1q_f32(out, vmulq_n_f32(vsqrtq_f32(vcvtq_f32_s32(v)), unit));
}
#endif

/// Between direction j and j + 1 of the first quadrant the larger projection changes where dy * kRise[j] = dx * kRun[j]:
/// differences of the library's unit vectors, in units of 1/10000. Whole gradients meet none of these exactly.
constexpr int kRise[4] = {3420, 3008, 2232, 1188}, kRun[4] = {603, 1737, 2660, 3264};

/// Direction 0 .. 17 of gradients up to 255 long each way. What lies exactly upwards or downwards counts as 4 or 13.
CSRT_INLINE Shorts directionOf(Shorts dx, Shorts dy) {
  const Shorts zero = shorts(0);
  const Shorts down = either(greater(zero, dy), both(equal(dy, zero), greater(zero, dx)));  // half turn, add 9
  const Shorts x = minus(both(dx, down), butNot(dx, down));  // minus dx after the half turn
  const Shorts left = greater(x, zero);
  const Shorts ax = either(both(dx, greater(dx, zero)), both(minus(zero, dx), greater(zero, dx)));
  const Shorts ay = either(both(dy, greater(dy, zero)), both(minus(zero, dy), greater(zero, dy)));
  Shorts steps = zero;  // minus the number of directions passed
  for (int j = 0; j < 4; ++j) {
    Words low, high;
    sumOfProducts(ay, shorts(kRise[j]), ax, shorts(-kRun[j]), low, high);
    const Words none = {};
    steps = plus(steps, narrow(greaterWords(low, none), greaterWords(high, none)));
  }
  const Shorts mirrored = plus(shorts(9), steps);
  Shorts o = either(both(mirrored, left), butNot(minus(zero, steps), left));
  o = plus(o, both(shorts(9), down));
  return minus(o, both(shorts(18), greater(o, shorts(17))));
}

/// Reads and writes whole vectors: up to seven elements after the n-th.
static void gradientsOfRow(const uint8_t* const* above, const uint8_t* const* row, const uint8_t* const* below, int n,
                           float* length, uint8_t* direction) {
  for (int x = 1; x < n - 1; x += 8) {
    Shorts dx = {}, dy = {}, doubtful = {};
    Words low = {}, high = {};
    for (int c = 2; c >= 0; --c) {
      const Shorts cx = minus(loadBytes(row[c] + x + 1), loadBytes(row[c] + x - 1));
      const Shorts cy = minus(loadBytes(below[c] + x), loadBytes(above[c] + x));
      Words l, h;
      sumOfProducts(cx, cx, cy, cy, l, h);
      if (c == 2) {
        dx = cx, dy = cy, low = l, high = h;
        continue;
      }
      // Equal strength with another gradient: only the library's own arithmetic knows which one it takes.
      const Shorts same = both(equal(cx, dx), equal(cy, dy));
      const Shorts stronger = narrow(greaterWords(l, low), greaterWords(h, high));
      const Shorts tie = butNot(narrow(equalWords(l, low), equalWords(h, high)), same);
      doubtful = either(butNot(doubtful, stronger), tie);
      dx = either(both(cx, stronger), butNot(dx, stronger));
      dy = either(both(cy, stronger), butNot(dy, stronger));
      low = pickWords(greaterWords(l, low), l, low);
      high = pickWords(greaterWords(h, high), h, high);
    }
    storeLength(length + x, low, 1.0f / 255.0f);
    storeLength(length + x + 4, high, 1.0f / 255.0f);
    if (__builtin_expect(any(doubtful), 0)) {
      int16_t flag[8], xs[8], ys[8];
      storeShorts(flag, doubtful);
      storeShorts(xs, dx);
      storeShorts(ys, dy);
      for (int i = 0; i < 8 && x + i < n - 1; ++i)
        if (flag[i]) {
          const Gradient best = strongestInDoubles(above, row, below, x + i);
          xs[i] = (int16_t)best.dx;
          ys[i] = (int16_t)best.dy;
        }
      std::memcpy(&dx, xs, sizeof dx);
      std::memcpy(&dy, ys, sizeof dy);
    }
    storeLow(direction + x, directionOf(dx, dy));
  }
}
