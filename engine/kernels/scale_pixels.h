// Loops over the pixels of the scale search: linear sampling of the picture, and gradients of the samples.
#pragma once

#include "pixels.h"

#if defined(__SSE2__)
typedef __m128 Quad;  // one pixel: blue, green, red, and what is not looked at
CSRT_INLINE Quad loadPixel(const uint8_t* p, int skip) {
  int bytes;
  std::memcpy(&bytes, p, sizeof bytes);
  const __m128i zero = _mm_setzero_si128(), four = _mm_srl_epi32(_mm_cvtsi32_si128(bytes), _mm_cvtsi32_si128(skip));
  return _mm_cvtepi32_ps(_mm_unpacklo_epi16(_mm_unpacklo_epi8(four, zero), zero));
}
CSRT_INLINE Quad quadOf(float v) { return _mm_set1_ps(v); }
CSRT_INLINE void storeTransposed(Quad a, Quad b, Quad c, Quad d, float* blue, float* green, float* red) {
  _MM_TRANSPOSE4_PS(a, b, c, d);
  _mm_storeu_ps(blue, a);
  _mm_storeu_ps(green, b);
  _mm_storeu_ps(red, c);
}
/// a * b + c as the library's vector code computes it.
CSRT_INLINE Quad quadMulAdd(Quad a, Quad b, Quad c) { return _mm_add_ps(_mm_mul_ps(a, b), c); }
CSRT_INLINE Quad quadMul(Quad a, Quad b) { return _mm_mul_ps(a, b); }
#elif defined(__aarch64__)
typedef float32x4_t Quad;
CSRT_INLINE Quad loadPixel(const uint8_t* p, int skip) {
  uint32_t bytes;
  std::memcpy(&bytes, p, sizeof bytes);
  const uint16x8_t wide = vmovl_u8(vreinterpret_u8_u32(vdup_n_u32(bytes >> skip)));
  return vcvtq_f32_u32(vmovl_u16(vget_low_u16(wide)));
}
CSRT_INLINE Quad quadOf(float v) { return vdupq_n_f32(v); }
CSRT_INLINE void storeTransposed(Quad a, Quad b, Quad c, Quad d, float* blue, float* green, float* red) {
  const float32x4x2_t ac = vzipq_f32(a, c), bd = vzipq_f32(b, d);
  const float32x4x2_t low = vzipq_f32(ac.val[0], bd.val[0]), high = vzipq_f32(ac.val[1], bd.val[1]);
  vst1q_f32(blue, low.val[0]);
  vst1q_f32(green, low.val[1]);
  vst1q_f32(red, high.val[0]);
}
CSRT_INLINE Quad quadMulAdd(Quad a, Quad b, Quad c) { return vfmaq_f32(c, a, b); }
CSRT_INLINE Quad quadMul(Quad a, Quad b) { return vmulq_f32(a, b); }
#endif

/// One row of samples, each from two neighbours on two rows. n is rounded up to a multiple of four: the taps too.
static void sampleRowOfPixels(const uint8_t* upper, const uint8_t* lower, const PixelTap* taps, int n, float upperWeight,
                              float lowerWeight, float* out, int stride) {
  const Quad wu = quadOf(upperWeight), wl = quadOf(lowerWeight);
  for (int x = 0; x < n; x += 4) {
    Quad four[4];
    for (int k = 0; k < 4; ++k) {
      const PixelTap& t = taps[x + k];
      const Quad w0 = quadOf(t.firstWeight), w1 = quadOf(t.secondWeight);
      const Quad u = quadMulAdd(loadPixel(upper + t.first, t.firstSkip), w0,
                                quadMul(loadPixel(upper + t.second, t.secondSkip), w1));
      const Quad l = quadMulAdd(loadPixel(lower + t.first, t.firstSkip), w0,
                                quadMul(loadPixel(lower + t.second, t.secondSkip), w1));
      four[k] = quadMulAdd(u, wu, quadMul(l, wl));
    }
    storeTransposed(four[0], four[1], four[2], four[3], out + x, out + stride + x, out + 2L * stride + x);
  }
}

/// Direction of the strongest gradient as the library finds it, in doubles; p: three planes `plane` floats apart.
static int directionInDoubles(const float* p, long plane, long down) {
  constexpr double kUnitX[9] = {1.000, 0.9397, 0.7660, 0.5000, 0.1736, -0.1736, -0.5000, -0.7660, -0.9397};
  constexpr double kUnitY[9] = {0.000, 0.3420, 0.6428, 0.8660, 0.9848, 0.9848, 0.8660, 0.6428, 0.3420};
  constexpr double kUnit = 1.0 / 255.0;
  double most = 0, bestX = 0, bestY = 0;
  for (int c = 2; c >= 0; --c) {
    const float* q = p + plane * c;
    const double dy = q[down] * kUnit - q[-down] * kUnit, dx = q[1] * kUnit - q[-1] * kUnit;
    const double v = dx * dx + dy * dy;
    if (c < 2 && !(v > most)) continue;
    most = v;
    bestX = dx;
    bestY = dy;
  }
  double largest = 0;
  int best = 0;
  for (int o = 0; o < 9; ++o) {
    const double dot = kUnitX[o] * bestX + kUnitY[o] * bestY;
    if (dot > largest) {
      largest = dot;
      best = o;
    } else if (-dot > largest) {
      largest = -dot;
      best = o + 9;
    }
  }
  return best;
}

/// Strongest gradient of samples 1 .. n-2 of a row. Floats decide but where channels or directions come within a
/// millionth of one another. Writes whole vectors; the planes' rows have room for them.
static void gradientsOfSamples(const float* row, long plane, long down, int n, float* length, int32_t* direction) {
  constexpr float kClose = 1e-6f;
  constexpr float kRises[4] = {0.3420f, 0.3008f, 0.2232f, 0.1188f}, kRuns[4] = {0.0603f, 0.1737f, 0.2660f, 0.3264f};
  const Vec zero = Vec{};
  const VecInt sign = ~(VecInt{} + 0x7fffffff);
  for (int x = 1; x < n - 1; x += kLanes) {
    const float* p = row + x;
    Vec dx = zero, dy = zero, v = zero;
    VecInt doubtful = {};
    for (int c = 2; c >= 0; --c) {
      const float* q = p + plane * c;
      const Vec cx = load(q + 1) - load(q - 1), cy = load(q + down) - load(q - down), e = cx * cx + cy * cy;
      if (c == 2) {
        dx = cx, dy = cy, v = e;
        continue;
      }
      const VecInt stronger = e > v;
      const Vec gap = pick(stronger, e - v, v - e), most = pick(stronger, e, v);
      doubtful |= (gap < most * kClose) & ((cx != dx) | (cy != dy));
      dx = pick(stronger, cx, dx);
      dy = pick(stronger, cy, dy);
      v = most;
    }
    store(length + x, root(v) * (1.0f / 255.0f));
    const VecInt down9 = (dy < zero) | ((dy == zero) & (dx < zero));
    const VecInt left = ((dx < zero) ^ down9) & (dx != zero);
    const Vec ax = (Vec)((VecInt)dx & ~sign), ay = (Vec)((VecInt)dy & ~sign);
    VecInt steps = {};
    for (int j = 0; j < 4; ++j) {
      const Vec rise = ay * kRises[j], run = ax * kRuns[j], gap = rise - run;
      steps -= rise > run;
      doubtful |= (Vec)((VecInt)gap & ~sign) < (rise + run) * kClose;
    }
    VecInt o = (((9 - steps) & left) | (steps & ~left)) + (down9 & 9);
    o -= (o > 17) & 18;
    std::memcpy(direction + x, &o, sizeof o);
    for (int i = 0; i < kLanes; ++i)
      if (__builtin_expect(doubtful[i] != 0, 0) && x + i < n - 1)
        direction[x + i] = directionInDoubles(p + i, plane, down);
  }
}
