// The scale filter: one transform per feature over the sizes, eight features at a time.
#pragma once

#include "planes.h"

static void packedRowSpectra(const FftPlan& plan, const float* rows, float* spectra, float* work) {
  const int half = plan.n / 2 + 1;
  float* const z = work;
  fft<Direction::Forward>(plan, rows, z, work + static_cast<long>(kComplex) * plan.n);
  for (int u = 0; u < half; ++u) {
    const float* front = z + kComplex * u;
    const float* back = z + kComplex * (u == 0 ? 0 : plan.n - u);
    float* first = spectra + kComplex * u;
    float* second = spectra + static_cast<long>(kComplex) * (half + u);
    CSRT_FOR_LANES(lane) {
      const Vec fr = load(front + lane), fi = load(front + kBlock + lane);
      const Vec br = load(back + lane), bi = load(back + kBlock + lane);
      store(first + lane, (fr + br) * 0.5f);
      store(first + kBlock + lane, (fi - bi) * 0.5f);
      store(second + lane, (fi + bi) * 0.5f);
      store(second + kBlock + lane, (br - fr) * 0.5f);
    }
  }
}

CSRT_INLINE float sumOfLanes(const float* t) {
  return ((t[0] + t[4]) + (t[1] + t[5])) + ((t[2] + t[6]) + (t[3] + t[7]));
}

static void scaleSums(const float* spectra, const float* numerator, int half, int pairs, float* answer) {
  for (int k = 0; k < half; ++k) {
    float total[kComplex];
    CSRT_FOR_LANES(lane) {
      Vec re = Vec{}, im = Vec{};
      for (int b = 0; b < 2 * pairs; ++b) {
        const long where = static_cast<long>(kComplex) * (static_cast<long>(b) * half + k) + lane;
        const Vec fr = load(spectra + where), fi = load(spectra + where + kBlock);
        const Vec nr = load(numerator + where), ni = load(numerator + where + kBlock);
        re += fr * nr - fi * ni;
        im += fr * ni + fi * nr;
      }
      store(total + lane, re);
      store(total + kBlock + lane, im);
    }
    answer[2 * k] = sumOfLanes(total);
    answer[2 * k + 1] = sumOfLanes(total + kBlock);
  }
}

static void scaleUpdate(const float* spectra, const float* labels, float rate, int half, int pairs, float* numerator,
                        float* energySums) {
  const float keep = 1 - rate;
  for (int k = 0; k < half; ++k) {
    float total[kBlock];
    const float lr = labels[2 * k], li = labels[2 * k + 1];
    CSRT_FOR_LANES(lane) {
      Vec sum = Vec{};
      for (int b = 0; b < 2 * pairs; ++b) {
        const long where = static_cast<long>(kComplex) * (static_cast<long>(b) * half + k) + lane;
        const Vec fr = load(spectra + where), fi = load(spectra + where + kBlock);
        float* n = numerator + where;
        store(n, load(n) * keep + (fr * lr + fi * li) * rate);
        store(n + kBlock, load(n + kBlock) * keep + (fr * li - fi * lr) * rate);
        sum += fr * fr + fi * fi;
      }
      store(total + lane, sum);
    }
    energySums[k] = sumOfLanes(total);
  }
}
