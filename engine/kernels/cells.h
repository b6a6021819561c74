// From histograms of gradients to the channels of one cell.
#pragma once

#include "kernels.h"
#include "simd.h"

/// The 32 values of a cell: 18 signed directions, 9 unsigned ones, 4 sums (texture), and one that is 0 here.
/// histogram: 18 floats followed by at least 6 zeros.
static void hogOfCell(const float* histogram, const float* factors, float* out) {
  constexpr int kSigned = 18, kUnsigned = 9;
  alignas(32) float sums[kBlock * 2] = {};
  alignas(32) float texture[4][kBlock] = {};
  for (int i = 0; i < kUnsigned; ++i) sums[i] = histogram[i] + histogram[i + kUnsigned];
  const Vec limit = splat(0.2f);
  for (int i = 0; i < kBlock * 3; i += kLanes) {
    const Vec h = load(histogram + i);
    Vec total = Vec{};
    for (int k = 0; k < 4; ++k) {
      const Vec part = smaller(h * factors[k], limit);
      total += part;
      float* t = texture[k] + i % kBlock;
      store(t, load(t) + part);
    }
    store(out + i, total * 0.5f);
  }
  alignas(32) float unsignedPart[kBlock * 2];
  for (int i = 0; i < kBlock * 2; i += kLanes) {
    const Vec h = load(sums + i);
    Vec total = Vec{};
    for (int k = 0; k < 4; ++k) total += smaller(h * factors[k], limit);
    store(unsignedPart + i, total * 0.5f);
  }
  for (int i = 0; i < kUnsigned; ++i) out[kSigned + i] = unsignedPart[i];
  for (int k = 0; k < 4; ++k) {
    const float* t = texture[k];
    out[kSigned + kUnsigned + k] = 0.2357f * (((t[0] + t[4]) + (t[1] + t[5])) + ((t[2] + t[6]) + (t[3] + t[7])));
  }
  out[31] = 0;
}

static void storeCellBlocks(const float* in, float window, int blocks, long stride, float* out) {
  for (int b = 0; b < blocks; ++b)
    CSRT_FOR_LANES(lane) store(out + stride * b + lane, load(in + kBlock * b + lane) * window);
}
