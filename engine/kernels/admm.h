// The filter of one block of channels, by the alternating direction method of multipliers: a filter that answers the
// features with the labels, and one that is zero outside the mask, are brought together in a few rounds.
//
// The mask covers little of the plane, and outside it the second filter is zero. So each transform is done directly,
// and only for the mask's rows and columns, around the mask's centre: there cosines serve the sums and sines the
// differences of opposite elements, which leaves a quarter of the work. One column of the spectrum at a time goes
// through all of a round: forward transform, new multiplier, next first filter, inverse transform.
#pragma once

#include "planes.h"

/// The column's elements as sums and differences of opposite frequencies, to `pairs` (even and odd parts in turn).
CSRT_INLINE void foldFrequencies(const float* column, int n, int lane, float* pairs) {
  for (int k = 0; k <= n / 2; ++k) {
    const float* a = column + kComplex * k + lane;
    const bool alone = k == 0 || 2 * k == n;
    const float* b = column + kComplex * (alone ? k : n - k) + lane;
    float* out = pairs + 2L * kComplex * k;
    const Vec ar = load(a), ai = load(a + kBlock), br = load(b), bi = load(b + kBlock);
    store(out, alone ? ar : ar + br);
    store(out + kBlock, alone ? ai : ai + bi);
    store(out + kComplex, alone ? ar : ar - br);
    store(out + kComplex + kBlock, alone ? ai : ai - bi);
  }
}

/// From one column of the spectrum to the mask's rows v: `out` has mv complex elements, `stride` floats apart.
CSRT_INLINE void columnToMask(const AdmmInput& in, const float* column, float* pairs, float* out, long stride) {
  const DirectTable& table = in.tableV;
  const int mv = in.mv, middle = mv / 2;  // element `middle` lies at the centre (mv odd) or half a step after it
  CSRT_FOR_LANES(lane) {
    foldFrequencies(column, table.n, lane, pairs);
    for (int d = 0; middle + d < mv; ++d) {
      const float* c = table.cosine + static_cast<long>(d) * table.columns;
      const float* s = table.sine + static_cast<long>(d) * table.columns;
      Cpx even = {load(pairs), load(pairs + kBlock)}, odd = {Vec{}, Vec{}};
      for (int k = 1; k < table.columns; ++k) {
        const float* p = pairs + 2L * kComplex * k;
        even = add(even, scaled({load(p), load(p + kBlock)}, c[k]));
        odd = add(odd, scaled({load(p + kComplex), load(p + kComplex + kBlock)}, s[k]));
      }
      float* after = out + stride * (middle + d) + lane;
      float* before = out + stride * (mv - 1 - middle - d) + lane;
      store(before, even.re + odd.im);
      store(before + kBlock, even.im - odd.re);
      store(after, even.re - odd.im);
      store(after + kBlock, even.im + odd.re);
    }
  }
}

/// From the mask's rows back to one column of the spectrum; the reverse of columnToMask().
CSRT_INLINE void maskToColumn(const AdmmInput& in, const float* rows, long stride, float* pairs, float* column) {
  const DirectTable& table = in.tableV;
  const int mv = in.mv, middle = mv / 2, count = mv - middle, n = table.n;
  CSRT_FOR_LANES(lane) {
    for (int d = 0; d < count; ++d) {
      const float* a = rows + stride * (middle + d) + lane;
      const float* b = rows + stride * (mv - 1 - middle - d) + lane;
      float* out = pairs + 2L * kComplex * d;
      const Vec ar = load(a), ai = load(a + kBlock), br = load(b), bi = load(b + kBlock);
      const bool alone = a == b;
      store(out, alone ? ar : ar + br);
      store(out + kBlock, alone ? ai : ai + bi);
      store(out + kComplex, ar - br);
      store(out + kComplex + kBlock, ai - bi);
    }
    for (int k = 0; k < table.columns; ++k) {
      Cpx even = {Vec{}, Vec{}}, odd = {Vec{}, Vec{}};
      for (int d = 0; d < count; ++d) {
        const float* p = pairs + 2L * kComplex * d;
        const long where = static_cast<long>(d) * table.columns + k;
        even = add(even, scaled({load(p), load(p + kBlock)}, table.cosine[where]));
        odd = add(odd, scaled({load(p + kComplex), load(p + kComplex + kBlock)}, table.sine[where]));
      }
      const Cpx plus = add(even, turned(odd)), minus = sub(even, turned(odd));
      float* front = column + kComplex * k + lane;
      store(front, plus.re);
      store(front + kBlock, plus.im);
      if (k == 0 || 2 * k == n) continue;
      float* back = column + kComplex * (n - k) + lane;
      store(back, minus.re);
      store(back + kBlock, minus.im);
    }
  }
}

/// One mask row: from half a spectrum to real values, masked and scaled, and forward again, in place.
CSRT_INLINE void maskRow(const AdmmInput& in, float* row, const float* mask, float scale, float* pairs) {
  const DirectTable& table = in.tableU;
  const int mu = in.mu, middle = mu / 2, count = mu - middle, n = table.n;
  CSRT_FOR_LANES(lane) {
    for (int d = 0; d < count; ++d) {
      const float* c = table.cosine + static_cast<long>(d) * table.columns;
      const float* s = table.sine + static_cast<long>(d) * table.columns;
      Vec even = Vec{}, odd = Vec{};
      for (int k = 1; 2 * k < n; ++k) {
        even += load(row + kComplex * k + lane) * c[k];
        odd += load(row + kComplex * k + kBlock + lane) * s[k];
      }
      even = (even + even) + load(row + lane);
      odd = odd + odd;
      if (n % 2 == 0) {
        even += load(row + kComplex * (n / 2) + lane) * c[n / 2];
        odd += load(row + kComplex * (n / 2) + kBlock + lane) * s[n / 2];
      }
      const int after = middle + d, before = mu - 1 - after;
      const Vec a = (even - odd) * (mask[after] * scale), b = (even + odd) * (mask[before] * scale);
      float* out = pairs + static_cast<long>(kComplex) * d + lane;
      store(out, after == before ? a : a + b);
      store(out + kBlock, a - b);
      if (after == before) store(out + kBlock, Vec{});
    }
    for (int k = 0; k < table.columns; ++k) {
      Vec re = Vec{}, im = Vec{};
      for (int d = 0; d < count; ++d) {
        const long where = static_cast<long>(d) * table.columns + k;
        re += load(pairs + static_cast<long>(kComplex) * d + lane) * table.cosine[where];
        im -= load(pairs + static_cast<long>(kComplex) * d + kBlock + lane) * table.sine[where];
      }
      store(row + kComplex * k + lane, re);
      store(row + kComplex * k + kBlock + lane, im);
    }
  }
}

/// Cross spectrum of features and labels.
CSRT_INLINE Cpx crossSpectrum(const float* f, const float* label) {
  const Vec fr = load(f), fi = load(f + kBlock);
  return {fr * label[0] - fi * label[1], fi * label[0] + fr * label[1]};
}

CSRT_INLINE Vec energy(const float* f) {
  const Vec fr = load(f), fi = load(f + kBlock);
  return fr * fr + fi * fi;
}

/// The first guess: labels divided by features.
CSRT_INLINE void startColumn(const AdmmInput& in, int u, float lambda, float* sum) {
  const Grid& grid = *in.grid;
  for (int v = 0; v < grid.nv; ++v)
    CSRT_FOR_LANES(lane) {
      const float* f = in.features + at(grid, u, v) + lane;
      const Cpx cross = crossSpectrum(f, in.labels + 2L * (static_cast<long>(u) * grid.nv + v));
      const Vec factor = 1.0f / (energy(f) + lambda);
      store(sum + kComplex * v + lane, cross.re * factor);
      store(sum + kComplex * v + kBlock + lane, cross.im * factor);
    }
}

/// With H the masked filter of the last round, T = mu G + L what it came from and mu the old penalty, the multiplier is
/// L = T - mu H; the next G = (S + mu' H - L) / (energy + mu'), and T' = mu' G + L replaces T.
CSRT_INLINE void nextColumn(const AdmmInput& in, int u, bool first, float mu, float next, const float* masked, float* sum) {
  const Grid& grid = *in.grid;
  for (int v = 0; v < grid.nv; ++v)
    CSRT_FOR_LANES(lane) {
      const float* f = in.features + at(grid, u, v) + lane;
      const Cpx cross = crossSpectrum(f, in.labels + 2L * (static_cast<long>(u) * grid.nv + v));
      const Vec factor = next / (energy(f) + next);
      float* t = sum + kComplex * v + lane;
      const Vec hr = load(masked + kComplex * v + lane), hi = load(masked + kComplex * v + kBlock + lane);
      const Vec lr = first ? Vec{} : load(t) - hr * mu, li = first ? Vec{} : load(t + kBlock) - hi * mu;
      store(t, (cross.re + hr * next - lr) * factor + lr);
      store(t + kBlock, (cross.im + hi * next - li) * factor + li);
    }
}

/// The filter of the last round, moved back from the mask's centre.
CSRT_INLINE void finishColumn(const AdmmInput& in, int u, const float* masked) {
  const Grid& grid = *in.grid;
  for (int v = 0; v < grid.nv; ++v)
    CSRT_FOR_LANES(lane) {
      const float* b = in.back + 2L * (static_cast<long>(u) * grid.nv + v);
      const Vec hr = load(masked + kComplex * v + lane), hi = load(masked + kComplex * v + kBlock + lane);
      float* out = in.filter + at(grid, u, v) + lane;
      store(out, hr * b[0] - hi * b[1]);
      store(out + kBlock, hi * b[0] + hr * b[1]);
    }
}

static void admmFilter(const AdmmInput& in) {
  const Grid& grid = *in.grid;
  const int half = grid.half();
  const long rowStride = static_cast<long>(kComplex) * half;
  float* const sums = in.work;                                                       // T: half x nv
  float* const rows = sums + static_cast<long>(kComplex) * half * grid.nv;           // mask rows: mv x half
  float* const pairs = rows + rowStride * (in.mv + 1);                               // scratch of the direct transforms
  float* const masked = pairs + 2L * kComplex * ((grid.nv > grid.nu ? grid.nv : grid.nu) / 2 + 2);  // one column of H
  const float lambda = 5.0f / 100.0f, most = 20.0f, growth = 3.0f;
  const float whole = 1.0f / (static_cast<float>(grid.nu) * static_cast<float>(grid.nv));
  if (in.mu == 0 || in.mv == 0) {
    for (long i = 0; i < static_cast<long>(kComplex) * half * grid.nv; ++i) in.filter[i] = 0;
    return;
  }
  for (int u = 0; u < half; ++u) {
    float* sum = sums + at(grid, u, 0);
    startColumn(in, u, lambda, sum);
    columnToMask(in, sum, pairs, rows + kComplex * u, rowStride);
  }
  float mu = 5.0f, scale = whole, before = 0;
  for (int round = 0;; ++round) {
    for (int v = 0; v < in.mv; ++v) maskRow(in, rows + rowStride * v, in.mask + static_cast<long>(v) * in.mu, scale, pairs);
    const bool last = round >= in.iterations;
    for (int u = 0; u < half; ++u) {
      float* sum = sums + at(grid, u, 0);
      maskToColumn(in, rows + kComplex * u, rowStride, pairs, masked);
      if (last) {
        finishColumn(in, u, masked);
        continue;
      }
      nextColumn(in, u, round == 0, before, mu, masked, sum);
      columnToMask(in, sum, pairs, rows + kComplex * u, rowStride);
    }
    if (last) return;
    scale = whole * (1.0f / (lambda + mu));
    before = mu;
    mu = growth * mu < most ? growth * mu : most;
  }
}

static void blendFloats(float* filter, const float* update, float rate, long n) {
  const float keep = 1.0f - rate;
  for (long i = 0; i < n; i += kLanes) store(filter + i, load(filter + i) * keep + load(update + i) * rate);
}
