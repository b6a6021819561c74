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

static void gradientsOfRow(const uint8_t* const* above, const uint8_t* const* row, const uint8_t* const* below, int n,
                           const uint8_t* directions, float* length, uint8_t* direction, int16_t* scratch) {
  int16_t* const xs = scratch;
  int16_t* const ys = scratch + n;
  int16_t* const tie = scratch + 2L * n;
  const uint8_t *b = row[0], *g = row[1], *r = row[2];
  const uint8_t *b0 = above[0], *g0 = above[1], *r0 = above[2];
  const uint8_t *b1 = below[0], *g1 = below[1], *r1 = below[2];
  for (int x = 1; x < n - 1; ++x) {
    const int16_t dxr = (int16_t)(r[x + 1] - r[x - 1]), dyr = (int16_t)(r1[x] - r0[x]);
    const int16_t dxg = (int16_t)(g[x + 1] - g[x - 1]), dyg = (int16_t)(g1[x] - g0[x]);
    const int16_t dxb = (int16_t)(b[x + 1] - b[x - 1]), dyb = (int16_t)(b1[x] - b0[x]);
    const float vr = (float)(dxr * dxr + dyr * dyr);
    const float vg = (float)(dxg * dxg + dyg * dyg);
    const float vb = (float)(dxb * dxb + dyb * dyb);
    const bool green = vg > vr;
    const float v1 = green ? vg : vr;
    const int16_t dx1 = green ? dxg : dxr, dy1 = green ? dyg : dyr;
    const bool blue = vb > v1;
    const float v = blue ? vb : v1;
    const int16_t dx = blue ? dxb : dx1, dy = blue ? dyb : dy1;
    xs[x] = dx;
    ys[x] = dy;
    // Equal strength with another gradient: only the library's own arithmetic knows which one it takes.
    const bool doubtful = ((vg == vr) & ((dxg != dxr) | (dyg != dyr)) & (vr == v)) |
                          ((vb == v1) & ((dxb != dx1) | (dyb != dy1)));
    tie[x] = (int16_t)doubtful;
    length[x] = __builtin_sqrtf(v) * (1.0f / 255.0f);
  }
  for (int x = 1; x < n - 1; ++x) {
    Gradient best = {xs[x], ys[x]};
    if (__builtin_expect(tie[x] != 0, 0)) best = strongestInDoubles(above, row, below, x);
    direction[x] = directions[(best.dy + 255) * 511 + best.dx + 255];
  }
}
