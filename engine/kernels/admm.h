// The filter of one block of channels, by the alternating direction method of multipliers: a filter that answers the
// features with the labels, and one that is zero outside the mask, are brought together in a few rounds.
//
// The mask covers little of the plane, and outside it the second filter is zero. So each transform is done directly,
// and only for the mask's rows and columns, around an origin in the mask's middle: there cosines serve the sums and
// sines the differences of opposite elements. Frequencies k and n / 2 - k have the same cosines and sines but for
// signs, which change with the distance from the origin being even or odd: so where n is even, two classes of
// distances need only the first quarter of the frequencies. One column of the spectrum at a time goes through all of a
// round: forward transform, new multiplier, next first filter, inverse transform.
#pragma once

#include "planes.h"

/// Frequencies that a direct transform of length n multiplies with, and classes of distances; see above.
template <bool EVEN>
CSRT_INLINE int frequenciesOf(int n) {
  return EVEN ? n / 4 + 1 : n / 2 + 1;
}
template <bool EVEN>
constexpr int kClasses = EVEN ? 2 : 1;

CSRT_INLINE Cpx loadElement(const float* p) {
  return {load(p), load(p + kBlock)};
}
CSRT_INLINE void storeElement(float* p, Cpx a) {
  store(p, a.re);
  store(p + kBlock, a.im);
}

/// Elements k and n - k of a column: their sum and their difference.
CSRT_INLINE Cpx evenPart(const float* column, int k, int n) {
  const Cpx a = loadElement(column + kComplex * k);
  return k == 0 || 2 * k == n ? a : add(a, loadElement(column + kComplex * (n - k)));
}
CSRT_INLINE Cpx oddPart(const float* column, int k, int n) {
  return sub(loadElement(column + kComplex * k), loadElement(column + kComplex * (k == 0 ? 0 : n - k)));
}

/// The column's sums and differences for the first class of distances (in turn), and those for the second behind them.
template <bool EVEN>
CSRT_INLINE void foldFrequencies(const float* column, int n, float* pairs) {
  float* const second = pairs + 2L * kComplex * frequenciesOf<EVEN>(n);
  for (int k = 0; k < frequenciesOf<EVEN>(n); ++k) {
    const long at = 2L * kComplex * k;
    const Cpx e = evenPart(column, k, n), o = oddPart(column, k, n);
    const bool alone = !EVEN || 4 * k == n;
    const Cpx zero = {Vec{}, Vec{}};
    const Cpx f = alone ? zero : evenPart(column, n / 2 - k, n), p = alone ? zero : oddPart(column, n / 2 - k, n);
    storeElement(pairs + at, add(e, f));
    storeElement(pairs + at + kComplex, sub(o, p));
    if (!EVEN) continue;
    storeElement(second + at, sub(e, f));
    storeElement(second + at + kComplex, add(o, p));
  }
}

/// A number of a direct transform's table for all lanes: it stands there four times.
CSRT_INLINE Vec tableValue(const float* p) {
#if defined(__AVX2__)
  return splat(*p);
#else
  return load(p);
#endif
}

/// Whether of `left` sums three are formed at a time, or two: SSE2's registers hold no more than two.
CSRT_INLINE bool takesThree(int left) {
#if defined(__SSE2__) && !defined(__AVX2__)
  (void)left;
  return false;
#else
  return left > 4 || left == 3;
#endif
}

/// COUNT distances from the mask's origin, `first` and on, of one class, of columnToMask().
template <int COUNT, bool EVEN>
CSRT_INLINE void columnToRows(const AdmmInput& in, const float* pairs, int first, float* out, long stride) {
  constexpr int kStep = kClasses<EVEN>;
  const DirectTable& table = in.tableV;
  const int frequencies = frequenciesOf<EVEN>(table.n);
  const long line = kTableWidth * static_cast<long>(table.columns);
  const float* c = table.cosine + line * first;
  const float* s = table.sine + line * first;
  Cpx even[COUNT], odd[COUNT];
  for (int i = 0; i < COUNT; ++i) {
    even[i] = loadElement(pairs);
    odd[i] = {Vec{}, Vec{}};
  }
  for (int k = 1; k < frequencies; ++k) {
    const float* p = pairs + 2L * kComplex * k;
    const Cpx e = loadElement(p), d = loadElement(p + kComplex);
    for (int i = 0; i < COUNT; ++i) {
      const long where = line * kStep * i + kTableWidth * k;
      const Vec cosine = tableValue(c + where), sine = tableValue(s + where);
      even[i].re += e.re * cosine;
      even[i].im += e.im * cosine;
      odd[i].re += d.re * sine;
      odd[i].im += d.im * sine;
    }
  }
  for (int i = 0; i < COUNT; ++i) {
    const int after = (in.twiceV + 1) / 2 + first + kStep * i, before = in.twiceV - after;
    storeElement(out + stride * before, add(even[i], turned(odd[i])));
    if (after < in.mv) storeElement(out + stride * after, sub(even[i], turned(odd[i])));
  }
}

template <bool EVEN>
CSRT_INLINE void columnToMask(const AdmmInput& in, const float* column, float* pairs, float* out, long stride) {
  constexpr int kStep = kClasses<EVEN>;
  const int n = in.tableV.n, count = in.twiceV / 2 + 1;
  CSRT_FOR_LANES(lane) {
    foldFrequencies<EVEN>(column + lane, n, pairs);
    for (int which = 0; which < kStep; ++which) {
      const float* p = pairs + 2L * kComplex * frequenciesOf<EVEN>(n) * which;
      int d = which, left = (count - which + kStep - 1) / kStep;
      for (; takesThree(left); left -= 3, d += 3 * kStep) columnToRows<3, EVEN>(in, p, d, out + lane, stride);
      for (; left > 1; left -= 2, d += 2 * kStep) columnToRows<2, EVEN>(in, p, d, out + lane, stride);
      if (left > 0) columnToRows<1, EVEN>(in, p, d, out + lane, stride);
    }
  }
}

/// From one column of the spectrum to the mask's rows v: `out` has mv complex elements, `stride` floats apart.
CSRT_INLINE void columnToMask(const AdmmInput& in, const float* column, float* pairs, float* out, long stride) {
  if (in.tableV.n % 2 == 0) return columnToMask<true>(in, column, pairs, out, stride);
  columnToMask<false>(in, column, pairs, out, stride);
}

/// Sums over one class of distances for COUNT frequencies, `first` and on, of maskToColumn().
template <int COUNT, bool EVEN>
CSRT_INLINE void sumDistances(const DirectTable& table, const float* pairs, int start, int count, int first, Cpx* even,
                              Cpx* odd) {
  const long line = kTableWidth * static_cast<long>(table.columns);
  for (int i = 0; i < COUNT; ++i) even[i] = odd[i] = {Vec{}, Vec{}};
  for (int d = start; d < count; d += kClasses<EVEN>) {
    const float* p = pairs + 2L * kComplex * d;
    const Cpx e = loadElement(p), o = loadElement(p + kComplex);
    const float* c = table.cosine + line * d + kTableWidth * first;
    const float* s = table.sine + line * d + kTableWidth * first;
    for (int i = 0; i < COUNT; ++i) {
      const Vec cosine = tableValue(c + kTableWidth * i), sine = tableValue(s + kTableWidth * i);
      even[i].re += e.re * cosine;
      even[i].im += e.im * cosine;
      odd[i].re += o.re * sine;
      odd[i].im += o.im * sine;
    }
  }
}

/// Frequency k and its opposite from their even and odd parts.
CSRT_INLINE void storeFrequency(Cpx even, Cpx odd, int k, int n, float* column) {
  storeElement(column + kComplex * k, add(even, turned(odd)));
  if (k != 0 && 2 * k != n) storeElement(column + kComplex * (n - k), sub(even, turned(odd)));
}

/// COUNT frequencies, `first` and on, of maskToColumn(), and those that share their products.
template <int COUNT, bool EVEN>
CSRT_INLINE void rowsToColumn(const DirectTable& table, const float* pairs, int count, int first, float* column) {
  const int n = table.n;
  Cpx even[COUNT], odd[COUNT], evenToo[COUNT], oddToo[COUNT];
  sumDistances<COUNT, EVEN>(table, pairs, 0, count, first, even, odd);
  if (EVEN) sumDistances<COUNT, EVEN>(table, pairs, 1, count, first, evenToo, oddToo);
  for (int i = 0; i < COUNT; ++i) {
    const int k = first + i;
    if (!EVEN) {
      storeFrequency(even[i], odd[i], k, n, column);
      continue;
    }
    storeFrequency(add(even[i], evenToo[i]), add(odd[i], oddToo[i]), k, n, column);
    if (4 * k != n) storeFrequency(sub(even[i], evenToo[i]), sub(oddToo[i], odd[i]), n / 2 - k, n, column);
  }
}

template <bool EVEN>
CSRT_INLINE void maskToColumn(const AdmmInput& in, const float* rows, long stride, float* pairs, float* column) {
  const int count = in.twiceV / 2 + 1, frequencies = frequenciesOf<EVEN>(in.tableV.n);
  CSRT_FOR_LANES(lane) {
    for (int d = 0; d < count; ++d) {
      const int after = (in.twiceV + 1) / 2 + d, before = in.twiceV - after;
      const Cpx a = loadElement(rows + stride * after + lane), b = loadElement(rows + stride * before + lane);
      storeElement(pairs + 2L * kComplex * d, after == before ? a : add(a, b));
      storeElement(pairs + 2L * kComplex * d + kComplex, sub(a, b));
    }
    int k = 0;
    for (; takesThree(frequencies - k); k += 3) rowsToColumn<3, EVEN>(in.tableV, pairs, count, k, column + lane);
    for (; k + 2 <= frequencies; k += 2) rowsToColumn<2, EVEN>(in.tableV, pairs, count, k, column + lane);
    if (k < frequencies) rowsToColumn<1, EVEN>(in.tableV, pairs, count, k, column + lane);
  }
}

/// From the mask's rows back to one column of the spectrum; the reverse of columnToMask(). Row mv is zero.
CSRT_INLINE void maskToColumn(const AdmmInput& in, const float* rows, long stride, float* pairs, float* column) {
  if (in.tableV.n % 2 == 0) return maskToColumn<true>(in, rows, stride, pairs, column);
  maskToColumn<false>(in, rows, stride, pairs, column);
}

/// As foldFrequencies(), for the half spectrum of a real row: real and imaginary parts.
template <bool EVEN>
CSRT_INLINE void foldRow(const float* row, int n, float* folded) {
  float* const second = folded + static_cast<long>(kComplex) * frequenciesOf<EVEN>(n);
  for (int k = 0; k < frequenciesOf<EVEN>(n); ++k) {
    const long at = static_cast<long>(kComplex) * k;
    const Cpx a = loadElement(row + at);
    const Cpx b = 4 * k == n ? Cpx{Vec{}, Vec{}} : loadElement(row + kComplex * (n / 2 - k));
    storeElement(folded + at, {a.re + b.re, a.im - b.im});
    storeElement(second + at, {a.re - b.re, a.im + b.im});
  }
}

/// COUNT distances of a mask row's real values, masked and scaled: sums and differences of opposite ones to `pairs`.
template <int COUNT, bool EVEN>
CSRT_INLINE void rowToMask(const AdmmInput& in, const float* folded, const float* mask, float scale, int first,
                           float* pairs) {
  constexpr int kStep = kClasses<EVEN>;
  const DirectTable& table = in.tableU;
  const int frequencies = frequenciesOf<EVEN>(table.n);
  const long line = kTableWidth * static_cast<long>(table.columns);
  const float* c = table.cosine + line * first;
  const float* s = table.sine + line * first;
  Vec even[COUNT], odd[COUNT];
  for (int i = 0; i < COUNT; ++i) even[i] = odd[i] = Vec{};
  for (int k = 1; k < frequencies; ++k) {
    const Cpx x = loadElement(folded + kComplex * k);
    for (int i = 0; i < COUNT; ++i) {
      const long where = line * kStep * i + kTableWidth * k;
      even[i] += x.re * tableValue(c + where);
      odd[i] += x.im * tableValue(s + where);
    }
  }
  for (int i = 0; i < COUNT; ++i) {
    const int d = first + kStep * i, after = (in.twiceU + 1) / 2 + d, before = in.twiceU - after;
    const Vec e = (even[i] + even[i]) + load(folded), o = odd[i] + odd[i];
    const Vec a = after < in.mu ? (e - o) * (mask[after] * scale) : Vec{}, b = (e + o) * (mask[before] * scale);
    storeElement(pairs + static_cast<long>(kComplex) * d,
                 {after == before ? a : a + b, after == before ? Vec{} : a - b});
  }
}

/// Sums over one class of distances for COUNT frequencies of a mask row.
template <int COUNT, bool EVEN>
CSRT_INLINE void sumRow(const DirectTable& table, const float* pairs, int start, int count, int first, Cpx* out) {
  const long line = kTableWidth * static_cast<long>(table.columns);
  for (int i = 0; i < COUNT; ++i) out[i] = {Vec{}, Vec{}};
  for (int d = start; d < count; d += kClasses<EVEN>) {
    const Cpx p = loadElement(pairs + static_cast<long>(kComplex) * d);
    const float* c = table.cosine + line * d + kTableWidth * first;
    const float* s = table.sine + line * d + kTableWidth * first;
    for (int i = 0; i < COUNT; ++i) {
      out[i].re += p.re * tableValue(c + kTableWidth * i);
      out[i].im -= p.im * tableValue(s + kTableWidth * i);
    }
  }
}

/// COUNT frequencies of a mask row from its sums and differences, and those that share their products.
template <int COUNT, bool EVEN>
CSRT_INLINE void maskToRow(const DirectTable& table, const float* pairs, int count, int first, float* row) {
  const int n = table.n;
  Cpx x[COUNT], y[COUNT];
  sumRow<COUNT, EVEN>(table, pairs, 0, count, first, x);
  if (EVEN) sumRow<COUNT, EVEN>(table, pairs, 1, count, first, y);
  for (int i = 0; i < COUNT; ++i) {
    if (EVEN) storeElement(row + kComplex * (n / 2 - first - i), {x[i].re - y[i].re, y[i].im - x[i].im});
    storeElement(row + kComplex * (first + i), EVEN ? add(x[i], y[i]) : x[i]);
  }
}

template <bool EVEN>
CSRT_INLINE void maskRow(const AdmmInput& in, float* row, const float* mask, float scale, float* scratch) {
  constexpr int kStep = kClasses<EVEN>;
  const int n = in.tableU.n, count = in.twiceU / 2 + 1, frequencies = frequenciesOf<EVEN>(n);
  float* const pairs = scratch + static_cast<long>(kComplex) * frequencies * kStep;
  CSRT_FOR_LANES(lane) {
    if (EVEN) foldRow<EVEN>(row + lane, n, scratch);
    for (int which = 0; which < kStep; ++which) {
      const float* folded = EVEN ? scratch + static_cast<long>(kComplex) * frequencies * which : row + lane;
      int d = which;
      for (; d + 3 * kStep < count; d += 4 * kStep) rowToMask<4, EVEN>(in, folded, mask, scale, d, pairs);
      for (; d < count; d += kStep) rowToMask<1, EVEN>(in, folded, mask, scale, d, pairs);
    }
    int k = 0;
    for (; k + 4 <= frequencies; k += 4) maskToRow<4, EVEN>(in.tableU, pairs, count, k, row + lane);
    for (; k < frequencies; ++k) maskToRow<1, EVEN>(in.tableU, pairs, count, k, row + lane);
  }
}

/// One mask row: from half a spectrum to real values, masked and scaled, and forward again, in place.
CSRT_INLINE void maskRow(const AdmmInput& in, float* row, const float* mask, float scale, float* scratch) {
  if (in.tableU.n % 2 == 0) return maskRow<true>(in, row, mask, scale, scratch);
  maskRow<false>(in, row, mask, scale, scratch);
}

/// Cross spectrum of features and labels.
CSRT_INLINE Cpx crossSpectrum(Cpx f, Cpx label) {
  return {f.re * label.re - f.im * label.im, f.im * label.re + f.re * label.im};
}

/// A pair of numbers for all lanes. Taken before a loop over lanes that stores: the compiler could not keep them there.
CSRT_INLINE Cpx splatPair(const float* p) {
  return {splat(p[0]), splat(p[1])};
}

CSRT_INLINE Vec energy(Cpx f) {
  return f.re * f.re + f.im * f.im;
}

/// The first guess: labels divided by features.
CSRT_INLINE void startColumn(const AdmmInput& in, int u, float lambda, float* sum) {
  const int nv = in.grid->nv;
  const float* const features = in.features + at(*in.grid, u, 0);
  const float* const labels = in.labels + 2L * u * nv;
  for (int v = 0; v < nv; ++v) {
    const Cpx label = splatPair(labels + 2L * v);
    CSRT_FOR_LANES(lane) {
      const Cpx f = loadElement(features + kComplex * v + lane), cross = crossSpectrum(f, label);
      const Vec factor = 1.0f / (energy(f) + lambda);
      storeElement(sum + kComplex * v + lane, {cross.re * factor, cross.im * factor});
    }
  }
}

/// With H the masked filter of the last round, T = mu G + L what it came from and mu the old penalty, the multiplier is
/// L = T - mu H; the next G = (S + mu' H - L) / (energy + mu'), and T' = mu' G + L replaces T.
CSRT_INLINE void nextColumn(const AdmmInput& in, int u, bool first, float mu, float next, const float* masked,
                            float* sum) {
  const int nv = in.grid->nv;
  const float* const features = in.features + at(*in.grid, u, 0);
  const float* const labels = in.labels + 2L * u * nv;
  for (int v = 0; v < nv; ++v) {
    const Cpx label = splatPair(labels + 2L * v);
    CSRT_FOR_LANES(lane) {
      const Cpx f = loadElement(features + kComplex * v + lane), cross = crossSpectrum(f, label);
      const Vec factor = next / (energy(f) + next);
      float* t = sum + kComplex * v + lane;
      const Cpx old = loadElement(t), h = loadElement(masked + kComplex * v + lane);
      const Vec lr = first ? Vec{} : old.re - h.re * mu, li = first ? Vec{} : old.im - h.im * mu;
      storeElement(t, {(cross.re + h.re * next - lr) * factor + lr, (cross.im + h.im * next - li) * factor + li});
    }
  }
}

/// The filter of the last round, moved back from the mask's origin.
CSRT_INLINE void finishColumn(const AdmmInput& in, int u, const float* masked) {
  const int nv = in.grid->nv;
  float* const filter = in.filter + at(*in.grid, u, 0);
  const float* const moves = in.back + 2L * u * nv;
  for (int v = 0; v < nv; ++v) {
    const Cpx back = splatPair(moves + 2L * v);
    CSRT_FOR_LANES(lane) {
      const Cpx h = loadElement(masked + kComplex * v + lane);
      storeElement(filter + kComplex * v + lane, crossSpectrum(h, back));
    }
  }
}

static void admmFilter(const AdmmInput& in) {
  const Grid& grid = *in.grid;
  const int half = grid.half();
  const long rowStride = static_cast<long>(kComplex) * half;
  float* const sums = in.work;                                              // T: half x nv
  float* const rows = sums + static_cast<long>(kComplex) * half * grid.nv;  // mask rows: mv x half
  float* const pairs = rows + rowStride * (in.mv + 1);                      // scratch of the direct transforms
  float* const masked = pairs + 2L * kComplex * ((grid.nv > grid.nu ? grid.nv : grid.nu) / 2 + 2);  // one column of H
  const float lambda = 5.0f / 100.0f, most = 20.0f, growth = 3.0f;
  const float whole = 1.0f / (static_cast<float>(grid.nu) * static_cast<float>(grid.nv));
  if (in.mu == 0 || in.mv == 0) {
    for (long i = 0; i < static_cast<long>(kComplex) * half * grid.nv; ++i) in.filter[i] = 0;
    return;
  }
  for (long i = rowStride * in.mv; i < rowStride * (in.mv + 1); ++i) rows[i] = 0;
  for (int u = 0; u < half; ++u) {
    float* sum = sums + at(grid, u, 0);
    startColumn(in, u, lambda, sum);
    columnToMask(in, sum, pairs, rows + kComplex * u, rowStride);
  }
  float mu = 5.0f, scale = whole, before = 0;
  for (int round = 0;; ++round) {
    for (int v = 0; v < in.mv; ++v)
      maskRow(in, rows + rowStride * v, in.mask + static_cast<long>(v) * in.mu, scale, pairs);
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
