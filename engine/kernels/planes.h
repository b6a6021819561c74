// Two-dimensional transforms of a block of real planes. Two rows share one complex transform: one is the real part,
// the other the imaginary part, and they are told apart by symmetry afterwards.
#pragma once

#include "fft.h"

CSRT_INLINE long at(const Grid& grid, int u, int v) {
  return static_cast<long>(kComplex) * (static_cast<long>(u) * grid.nv + v);
}

/// Splits the transform z of two rows packed as one into columns v and v + 1 of the spectrum.
CSRT_INLINE void unpackRows(const Grid& grid, const float* z, int v, bool both, float* spectrum) {
  for (int u = 0; u < grid.half(); ++u) {
    const float* front = z + kComplex * u;
    const float* back = z + kComplex * (u == 0 ? 0 : grid.nu - u);
    float* out = spectrum + at(grid, u, v);
    CSRT_FOR_LANES(lane) {
      const Vec fr = load(front + lane), fi = load(front + kBlock + lane);
      const Vec br = load(back + lane), bi = load(back + kBlock + lane);
      store(out + lane, (fr + br) * 0.5f);
      store(out + kBlock + lane, (fi - bi) * 0.5f);
      if (!both) continue;
      store(out + kComplex + lane, (fi + bi) * 0.5f);
      store(out + kComplex + kBlock + lane, (br - fr) * 0.5f);
    }
  }
}

/// Packs columns v and v + 1 of a spectrum into the transform of two rows.
CSRT_INLINE void packRows(const Grid& grid, const float* spectrum, int v, bool both, float* z) {
  for (int u = 0; u < grid.half(); ++u) {
    const float* in = spectrum + at(grid, u, v);
    float* front = z + kComplex * u;
    float* back = z + kComplex * (u == 0 ? 0 : grid.nu - u);
    CSRT_FOR_LANES(lane) {
      const Vec ar = load(in + lane), ai = load(in + kBlock + lane);
      const Vec br = both ? load(in + kComplex + lane) : Vec{}, bi = both ? load(in + kComplex + kBlock + lane) : Vec{};
      // The back half first: for the element that is its own mirror image the front half is what counts.
      store(back + lane, ar + bi);
      store(back + kBlock + lane, br - ai);
      if (u == 0 || 2 * u == grid.nu) {  // real by nature: what rounding left as imaginary part is not looked at
        store(front + lane, ar);
        store(front + kBlock + lane, br);
      } else {
        store(front + lane, ar - bi);
        store(front + kBlock + lane, ai + br);
      }
    }
  }
}

/// Work space: 3 * max(nu, nv) complex elements.
static void forwardPlanes(const Grid& grid, const float* planes, float* spectrum, float* work) {
  float* const z = work;
  float* const rest = work + static_cast<long>(kComplex) * grid.nu;
  for (int v = 0; v < grid.nv; v += 2) {
    const bool both = v + 1 < grid.nv;
    const float* first = planes + static_cast<long>(kBlock) * v * grid.nu;
    const float* second = first + static_cast<long>(kBlock) * grid.nu;
    for (int u = 0; u < grid.nu; ++u) CSRT_FOR_LANES(lane) {
        store(z + kComplex * u + lane, load(first + kBlock * u + lane));
        store(z + kComplex * u + kBlock + lane, both ? load(second + kBlock * u + lane) : Vec{});
      }
    fft<Direction::Forward>(grid.planU, z, z, rest);
    unpackRows(grid, z, v, both, spectrum);
  }
  for (int u = 0; u < grid.half(); ++u) {
    float* column = spectrum + at(grid, u, 0);
    fft<Direction::Forward>(grid.planV, column, column, work);
  }
}

/// Work space: half() * nv + 3 * max(nu, nv) complex elements.
static void peaksOfResponse(const Grid& grid, const float* features, const float* filter, float* work, float* peaks) {
  float* const spectrum = work;
  float* const z = work + static_cast<long>(kComplex) * grid.half() * grid.nv;
  float* const rest = z + static_cast<long>(kComplex) * grid.nu;
  for (int u = 0; u < grid.half(); ++u) {
    float* column = spectrum + at(grid, u, 0);
    for (long i = at(grid, u, 0), end = at(grid, u + 1, 0); i < end; i += kComplex) CSRT_FOR_LANES(lane) {
        const Vec fr = load(features + i + lane), fi = load(features + i + kBlock + lane);
        const Vec hr = load(filter + i + lane), hi = load(filter + i + kBlock + lane);
        store(spectrum + i + lane, fr * hr + fi * hi);
        store(spectrum + i + kBlock + lane, fi * hr - fr * hi);
      }
    fft<Direction::Inverse>(grid.planV, column, column, z);
  }
  const float scale = 1.0f / (static_cast<float>(grid.nu) * static_cast<float>(grid.nv));
  for (int i = 0; i < kBlock; ++i) peaks[i] = -__FLT_MAX__;
  for (int v = 0; v < grid.nv; v += 2) {
    const bool both = v + 1 < grid.nv;
    packRows(grid, spectrum, v, both, z);
    fft<Direction::Inverse>(grid.planU, z, z, rest);
    CSRT_FOR_LANES(lane) {
      Vec most = load(peaks + lane);
      for (int u = 0; u < grid.nu; ++u) {
        most = larger(most, load(z + kComplex * u + lane));
        if (both) most = larger(most, load(z + kComplex * u + kBlock + lane));
      }
      store(peaks + lane, most);
    }
  }
  for (int i = 0; i < kBlock; ++i) peaks[i] *= scale;
}

/// One plane is turned back with the lanes running over neighbouring columns, then over neighbouring pairs of rows.
/// Work space: (half() / 8 + 1) * nv + 4 * max(nu, nv) complex elements.
static void responsePlane(const Grid& grid, const float* features, const float* filter, const float* weights,
                          int blocks, float* work, float* plane) {
  const int nu = grid.nu, nv = grid.nv, half = grid.half(), groups = (half + kBlock - 1) / kBlock;
  const long blockFloats = static_cast<long>(kComplex) * half * nv;
  float* const sums = work;  // groups x nv elements; lane: u within the group
  float* const z = work + static_cast<long>(kComplex) * groups * nv;
  float* const rest = z + static_cast<long>(kComplex) * nu;
  for (long i = 0; i < static_cast<long>(kComplex) * groups * nv; ++i) sums[i] = 0;
  for (int u = 0; u < half; ++u)
    for (int v = 0; v < nv; ++v) {
      float total[kComplex];
      const long where = at(grid, u, v);
      CSRT_FOR_LANES(lane) {
        Vec sr = Vec{}, si = Vec{};
        for (int b = 0; b < blocks; ++b) {
          const float* f = features + blockFloats * b + where + lane;
          const float* h = filter + blockFloats * b + where + lane;
          const Vec fr = load(f), fi = load(f + kBlock), hr = load(h), hi = load(h + kBlock);
          const Vec w = load(weights + kBlock * b + lane);
          sr += (fr * hr + fi * hi) * w;
          si += (fi * hr - fr * hi) * w;
        }
        store(total + lane, sr);
        store(total + kBlock + lane, si);
      }
      float* out = sums + static_cast<long>(kComplex) * (static_cast<long>(u / kBlock) * nv + v) + u % kBlock;
      for (int part = 0; part < 2; ++part) {
        const float* t = total + kBlock * part;
        out[kBlock * part] = ((t[0] + t[4]) + (t[1] + t[5])) + ((t[2] + t[6]) + (t[3] + t[7]));
      }
    }
  for (int g = 0; g < groups; ++g) {
    float* column = sums + static_cast<long>(kComplex) * g * nv;
    fft<Direction::Inverse>(grid.planV, column, column, z);
  }
  const float scale = 1.0f / (static_cast<float>(nu) * static_cast<float>(nv));
  for (int first = 0; first < nv; first += 2 * kBlock) {
    for (int lane = 0; lane < kBlock; ++lane) {
      const int v = first + 2 * lane;
      for (int u = 0; u < half; ++u) {
        const float* in = sums + static_cast<long>(kComplex) * (static_cast<long>(u / kBlock) * nv + v) + u % kBlock;
        const bool some = v < nv, both = v + 1 < nv;
        const float ar = some ? in[0] : 0, ai = some ? in[kBlock] : 0;
        const float br = both ? in[kComplex] : 0, bi = both ? in[kComplex + kBlock] : 0;
        float* front = z + kComplex * u + lane;
        float* back = z + kComplex * (u == 0 ? 0 : nu - u) + lane;
        back[0] = ar + bi;
        back[kBlock] = br - ai;
        const bool real = u == 0 || 2 * u == nu;
        front[0] = real ? ar : ar - bi;
        front[kBlock] = real ? br : ai + br;
      }
    }
    fft<Direction::Inverse>(grid.planU, z, z, rest);
    for (int lane = 0; lane < kBlock; ++lane)
      for (int row = 0; row < 2; ++row) {
        const int v = first + 2 * lane + row;
        if (v >= nv) break;
        for (int u = 0; u < nu; ++u)
          plane[static_cast<long>(v) * nu + u] = z[kComplex * u + kBlock * row + lane] * scale;
      }
  }
}
