// Loops over colours: histogram bins, brightness, colour names.
#pragma once

#include "scale_pixels.h"

CSRT_INLINE VecInt pickInt(VecInt mask, VecInt a, VecInt b) {
  return (a & mask) | (b & ~mask);
}

/// Histogram bins of colours given as planes of whole floats: hue (stretched to 0 .. 255), saturation and value, each
/// in `bins` steps. The library divides with tables in units of 1/4096; a float's quotient rounds to the same entries.
CSRT_INLINE VecInt binOfColors(Vec blue, Vec green, Vec red, int bins) {
  const VecInt b = nearest(blue), g = nearest(green), r = nearest(red);
  const Vec most = larger(blue, larger(green, red)), least = smaller(blue, smaller(green, red));
  const Vec spread = most - least;
  const VecInt v = nearest(most), d = nearest(spread);
  const VecInt perValue = nearest((255 << 12) / most) & (v != 0);
  const VecInt perSpread = nearest(((180 << 12) / 6) / spread) & (d != 0);
  const VecInt s = (d * perValue + 2048) >> 12;
  VecInt h = pickInt(v == r, g - b, pickInt(v == g, b - r + 2 * d, r - g + 4 * d));
  h = (h * perSpread + 2048) >> 12;
  h += (h < 0) & 180;
  const VecInt hue = nearest(__builtin_convertvector(h, Vec) * (float)(255.0 / 180.0));
  return (((hue * bins) >> 8) * bins + ((s * bins) >> 8)) * bins + ((v * bins) >> 8);
}

static void binsOfRow(const uint8_t* row, int n, int bins, int32_t* out) {
  alignas(32) float planes[3][kBlock];
  for (int x = 0; x < n; x += kBlock) {
    for (int part = 0; part < kBlock; part += 4) {
      Quad q[4];
      for (int k = 0; k < 4; ++k) q[k] = loadPixel(row + 3L * (x + part + k), 0);
      storeTransposed(q[0], q[1], q[2], q[3], planes[0] + part, planes[1] + part, planes[2] + part);
    }
    CSRT_FOR_LANES(lane) {
      const VecInt bin = binOfColors(load(planes[0] + lane), load(planes[1] + lane), load(planes[2] + lane), bins);
      std::memcpy(out + x + lane, &bin, sizeof bin);
    }
  }
}

/// Brightness of a row of pixels as the library computes it, in units of 1/32768.
static void brightnessOfRow(const uint8_t* blue, const uint8_t* green, const uint8_t* red, int n, uint8_t* out) {
  for (int x = 0; x < n; x += 8) {
    Words low1, high1, low2, high2;
    sumOfProducts(loadBytes(blue + x), shorts(3735), loadBytes(green + x), shorts(19235), low1, high1);
    sumOfProducts(loadBytes(red + x), shorts(9798), shorts(1 << 13), shorts(2), low2, high2);
    storeLow(out + x, narrow(shiftRight15(low1, low2), shiftRight15(high1, high2)));
  }
}

/// A row of brightness resized cubically: sums of four neighbours, tap[i] the first.
static void cubicRowOfOne(const uint8_t* row, const int* tap, const int16_t* alpha, int n, int32_t* out) {
  for (int i = 0; i < n; ++i) {
    const uint8_t* p = row + tap[i];
    const int16_t* a = alpha + 4L * i;
    out[i] = p[0] * a[0] + p[1] * a[1] + p[2] * a[2] + p[3] * a[3];
  }
}

/// Ten figures mixed from four rows of the table of colour names.
static void mixNames(const float* const* rows, float left, float right, float upper, float lower, float* out) {
#if defined(__SSE2__)
  const __m128 x0 = _mm_set1_ps(left), x1 = _mm_set1_ps(right), y0 = _mm_set1_ps(upper), y1 = _mm_set1_ps(lower);
  const int at[3] = {0, 4, 6};  // the last two overlap: rows have ten figures
  for (int k = 0; k < 3; ++k) {
    const int i = at[k];
    const __m128 u = _mm_add_ps(_mm_mul_ps(_mm_loadu_ps(rows[0] + i), x0), _mm_mul_ps(_mm_loadu_ps(rows[1] + i), x1));
    const __m128 l = _mm_add_ps(_mm_mul_ps(_mm_loadu_ps(rows[2] + i), x0), _mm_mul_ps(_mm_loadu_ps(rows[3] + i), x1));
    _mm_storeu_ps(out + i, _mm_add_ps(_mm_mul_ps(u, y0), _mm_mul_ps(l, y1)));
  }
#else
  for (int i = 0; i < 10; ++i)
    out[i] = (rows[0][i] * left + rows[1][i] * right) * upper + (rows[2][i] * left + rows[3][i] * right) * lower;
#endif
}
