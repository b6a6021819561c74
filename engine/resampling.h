// Where the pixels of a resized picture come from: OpenCV's rules for cubic and linear resizing.
#pragma once

#include <cstdint>
#include <vector>

namespace csrt_engine {

/// One output position: the input position before it and how far it lies beyond.
struct SamplePoint {
  int before;
  float fraction;
};

/// Position of output element i when `from` elements become `to`; not clamped to the input. `from`, `to` >= 1.
SamplePoint samplePoint(int i, int from, int to);

/// Weights of the four inputs around a position, in units of 1/2048, as OpenCV rounds them.
void cubicWeights(float fraction, int16_t* weights);

/// Linear resizing along one axis; the two inputs are clamped to the picture.
struct LinearTap {
  int first, second;
  float weightFirst, weightSecond;
};

/// Taps along a row: positions outside the picture take the edge's pixel alone.
void linearTapsAlongRow(int from, int to, std::vector<LinearTap>& taps);
/// Taps along a column: there OpenCV keeps both weights and repeats the edge's row.
void linearTapsAlongColumn(int from, int to, std::vector<LinearTap>& taps);

}  // namespace csrt_engine
