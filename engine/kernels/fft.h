// Mixed-radix transform of complex elements (Stockham's self-sorting form): any length, any prime factors. The inverse
// is the forward transform with real and imaginary parts exchanged.
#pragma once

#include "kernels.h"
#include "simd.h"

struct Cpx {
  Vec re, im;
};

CSRT_INLINE Cpx add(Cpx a, Cpx b) {
  return {a.re + b.re, a.im + b.im};
}
CSRT_INLINE Cpx sub(Cpx a, Cpx b) {
  return {a.re - b.re, a.im - b.im};
}
CSRT_INLINE Cpx scaled(Cpx a, float s) {
  return {a.re * s, a.im * s};
}
/// -i * a
CSRT_INLINE Cpx turned(Cpx a) {
  return {a.im, -a.re};
}
/// a * conj(w)
CSRT_INLINE Cpx rotated(Cpx a, Cpx w) {
  return {a.re * w.re + a.im * w.im, a.im * w.re - a.re * w.im};
}

template <int R>
struct Butterfly;

template <>
struct Butterfly<2> {
  CSRT_INLINE void run(Cpx* a) {
    const Cpx t = a[0];
    a[0] = add(t, a[1]);
    a[1] = sub(t, a[1]);
  }
};

template <>
struct Butterfly<3> {
  CSRT_INLINE void run(Cpx* a) {
    constexpr float kSin = 0.866025403784438647f;
    const Cpx t = add(a[1], a[2]), d = scaled(turned(sub(a[1], a[2])), kSin);
    const Cpx m = sub(a[0], scaled(t, 0.5f));
    a[0] = add(a[0], t);
    a[1] = add(m, d);
    a[2] = sub(m, d);
  }
};

template <>
struct Butterfly<4> {
  CSRT_INLINE void run(Cpx* a) {
    const Cpx p = add(a[0], a[2]), q = sub(a[0], a[2]), r = add(a[1], a[3]), t = turned(sub(a[1], a[3]));
    a[0] = add(p, r);
    a[2] = sub(p, r);
    a[1] = add(q, t);
    a[3] = sub(q, t);
  }
};

template <>
struct Butterfly<5> {
  CSRT_INLINE void run(Cpx* a) {
    constexpr float kCos1 = 0.309016994374947424f, kCos2 = -0.809016994374947424f;
    constexpr float kSin1 = 0.951056516295153572f, kSin2 = 0.587785252292473129f;
    const Cpx s1 = add(a[1], a[4]), s2 = add(a[2], a[3]);
    const Cpx d1 = turned(sub(a[1], a[4])), d2 = turned(sub(a[2], a[3]));
    const Cpx m1 = add(a[0], add(scaled(s1, kCos1), scaled(s2, kCos2)));
    const Cpx m2 = add(a[0], add(scaled(s1, kCos2), scaled(s2, kCos1)));
    const Cpx t1 = add(scaled(d1, kSin1), scaled(d2, kSin2));
    const Cpx t2 = sub(scaled(d1, kSin2), scaled(d2, kSin1));
    a[0] = add(a[0], add(s1, s2));
    a[1] = add(m1, t1);
    a[4] = sub(m1, t1);
    a[2] = add(m2, t2);
    a[3] = sub(m2, t2);
  }
};

enum class Direction { Forward, Inverse };

/// Where real and imaginary parts of an element lie: exchanged for the inverse.
template <Direction D>
constexpr int kRe = D == Direction::Forward ? 0 : kBlock;
template <Direction D>
constexpr int kIm = kBlock - kRe<D>;

template <int R, Direction D>
CSRT_INLINE void stageOf(const FftStage& stage, const float* in, float* out) {
  constexpr int re = kRe<D>, im = kIm<D>;
  const long across = static_cast<long>(kComplex) * stage.s * stage.m, step = static_cast<long>(kComplex) * stage.s;
  for (int p = 0; p < stage.m; ++p) {
    const float* w = stage.twiddles + 2L * (R - 1) * p;
    Cpx twiddle[R];  // for all lanes, once for all q
    for (int t = 1; t < R; ++t) twiddle[t] = {splat(w[2 * t - 2]), splat(w[2 * t - 1])};
    for (int q = 0; q < stage.s; ++q) {
      const float* x = in + step * p + kComplex * q;
      float* y = out + step * R * p + kComplex * q;
      Cpx a[R];
      for (int t = 0; t < R; ++t) a[t] = {load(x + across * t + re), load(x + across * t + im)};
      Butterfly<R>::run(a);
      if (p > 0)
        for (int t = 1; t < R; ++t) a[t] = rotated(a[t], twiddle[t]);
      for (int t = 0; t < R; ++t) {
        store(y + step * t + re, a[t].re);
        store(y + step * t + im, a[t].im);
      }
    }
  }
}

/// A radix without a butterfly of its own: the sums and differences of opposite inputs, then a direct sum.
template <Direction D>
static void anyRadixStage(const FftStage& stage, const float* in, float* out) {
  constexpr int re = kRe<D>, im = kIm<D>;
  const int radix = stage.radix, pairs = (radix - 1) / 2;
  const long across = static_cast<long>(kComplex) * stage.s * stage.m, step = static_cast<long>(kComplex) * stage.s;
  for (int p = 0; p < stage.m; ++p) {
    const float* w = stage.twiddles + 2L * (radix - 1) * p;
    for (int q = 0; q < stage.s; ++q) {
      const float* x = in + step * p + kComplex * q;
      float* y = out + step * radix * p + kComplex * q;
      const Cpx first = {load(x + re), load(x + im)};
      for (int u = 0; u <= pairs; ++u) {
        Cpx even = first, odd = {Vec{}, Vec{}};
        for (int t = 1; t <= pairs; ++t) {
          const float* front = x + across * t;
          const float* back = x + across * (radix - t);
          const Cpx a = {load(front + re), load(front + im)}, b = {load(back + re), load(back + im)};
          const int angle = static_cast<int>(static_cast<long>(t) * u % radix);
          even = add(even, scaled(add(a, b), stage.roots[2 * angle]));
          odd = add(odd, scaled(turned(sub(a, b)), stage.roots[2 * angle + 1]));
        }
        for (int side = 0; side < (u == 0 ? 1 : 2); ++side) {
          const int t = side == 0 ? u : radix - u;
          Cpx r = u == 0 ? even : side == 0 ? add(even, odd) : sub(even, odd);
          if (t > 0 && p > 0) r = rotated(r, {splat(w[2 * t - 2]), splat(w[2 * t - 1])});
          store(y + step * t + re, r.re);
          store(y + step * t + im, r.im);
        }
      }
    }
  }
}

/// Transforms one vector's lanes of n complex elements from `in` to `out` by way of `work` (2 n elements, neither in
/// nor out); in may be out.
template <Direction D>
static void fftLanes(const FftPlan& plan, const float* in, float* out, float* work) {
  const auto copy = [&](const float* from) {
    for (int i = 0; i < plan.n; ++i) {
      store(out + kComplex * i, load(from + kComplex * i));
      store(out + kComplex * i + kBlock, load(from + kComplex * i + kBlock));
    }
  };
  if (plan.stages == 0) return copy(in);
  float* const buffer[2] = {work, work + static_cast<long>(kComplex) * plan.n};
  const float* from = in;
  for (int i = 0; i < plan.stages; ++i) {
    // A single step of a radix without a butterfly of its own would overwrite what it still reads.
    const bool last = i + 1 == plan.stages && (plan.stages > 1 || in != out);
    float* const to = last ? out : buffer[i % 2];
    switch (plan.stage[i].radix) {
      case 2:
        stageOf<2, D>(plan.stage[i], from, to);
        break;
      case 3:
        stageOf<3, D>(plan.stage[i], from, to);
        break;
      case 4:
        stageOf<4, D>(plan.stage[i], from, to);
        break;
      case 5:
        stageOf<5, D>(plan.stage[i], from, to);
        break;
      default:
        anyRadixStage<D>(plan.stage[i], from, to);
        break;
    }
    from = to;
  }
  if (from != out) copy(from);
}

template <Direction D>
CSRT_INLINE void fft(const FftPlan& plan, const float* in, float* out, float* work) {
  CSRT_FOR_LANES(lane) fftLanes<D>(plan, in + lane, out + lane, work + lane);
}
