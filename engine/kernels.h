// The inner loops of the engine, compiled once for every instruction set from the files in kernels/.
// Plain pointers and sizes only: a function of a library header, compiled for AVX2 here, could otherwise be the one
// that the linker keeps for everybody.
//
// Channels travel in blocks of eight: one element of a block is eight floats, one per channel; one complex element is
// eight real parts followed by eight imaginary parts. Each lane of the processor's vectors is another channel, so the
// transforms need no shuffles, and every processor does the same sums in the same order.
#pragma once

#include <cstdint>

namespace csrt_engine {

constexpr int kBlock = 8;             ///< channels per block
constexpr int kComplex = 2 * kBlock;  ///< floats of one complex element of a block

/// One step of a mixed-radix transform: `radix` inputs, `m` butterflies with their twiddles, each on `s` elements.
struct FftStage {
  int radix, m, s;
  const float* twiddles;  ///< m x (radix - 1) pairs (cos, sin)
  const float* roots;     ///< radix pairs (cos, sin) of the radix's own roots of unity
};

/// Transform of length n; see fft_plan.h.
struct FftPlan {
  int n = 0, stages = 0;
  const FftStage* stage = nullptr;
};

/// The planes that are transformed: nu x nv real elements. The spectrum is kept for u = 0 .. nu/2 only, because the
/// other half is its conjugate: element (u, v) of it lies at u * nv + v.
struct Grid {
  int nu = 0, nv = 0;
  int half() const { return nu / 2 + 1; }
  FftPlan planU, planV;
};

constexpr int kTableWidth = 4;  ///< each number of a direct transform's table stands there four times

/// Where a direct transform of length n has its origin inside a window of `width` elements, doubled: in the middle,
/// between two elements if need be. An even n wants whole distances, because then frequencies k and n / 2 - k share
/// their products; so the origin of an even window is the element after its middle.
inline int twiceOrigin(int n, int width) {
  return n % 2 == 0 ? width / 2 * 2 : width - 1;
}

/// Cosines and sines of a direct transform around its origin: row d, column k holds the value for
/// 2 pi k (d + offset) / n, offset 0 or 0.5, kTableWidth times.
struct DirectTable {
  int n = 0, columns = 0;  ///< columns: n / 2 + 1
  const float* cosine = nullptr;
  const float* sine = nullptr;
};

/// What one block's filter is computed from; see kernels/admm.h.
struct AdmmInput {
  const Grid* grid;
  const float* features;  ///< spectrum of a block: half() x nv complex elements
  const float* labels;    ///< (cos, sin)-like pairs per spectrum element: conjugated labels, moved to the mask's origin
  const float* back;      ///< pairs per spectrum element: moves a filter back from the mask's origin
  const float* mask;      ///< mv x mu: the mask inside its bounding box, v outermost
  int mu, mv;             ///< size of the mask's bounding box
  int twiceU, twiceV;     ///< twice the origin's place in that box; see twiceOrigin()
  DirectTable tableU, tableV;
  int iterations;
  float* filter;  ///< result: half() x nv complex elements
  float* work;    ///< at least admmWorkFloats()
};

/// Floats of work space for AdmmInput::work.
inline long admmWorkFloats(int nu, int nv, int mu, int mv) {
  const long half = nu / 2 + 1;
  return kComplex * (half * nv + half * (mv + 1L) + 4L * nv + 4L * nu + 64) +
         kBlock * (static_cast<long>(mu) * mv + 64);
}

/// One sample of a row: two neighbouring pixels, as byte offsets into the picture's row, and their weights. Four bytes
/// are read at each offset; `skip` says how many bits come before the pixel's own three bytes.
struct PixelTap {
  int first, firstSkip, second, secondSkip;
  float firstWeight, secondWeight;
};

/// Everything that is compiled per instruction set. Each function: pure but for its outputs, any thread.
struct Kernels {
  const char* name;

  /// Spectrum (half() x nv complex elements) of a block of real planes (nv rows of nu elements).
  void (*forward)(const Grid& grid, const float* planes, float* spectrum, float* work);
  /// Largest value of the inverse transform of features times conjugated filter, for each channel of a block.
  void (*responsePeaks)(const Grid& grid, const float* features, const float* filter, float* work, float* peaks);
  /// The filter of one block, see AdmmInput.
  void (*admm)(const AdmmInput& in);
  /// filter = (1 - rate) * filter + rate * update, for n floats.
  void (*blend)(float* filter, const float* update, float rate, long n);
  /// Weighted sum over all channels of features times conjugated filter, turned back into a plane of nv rows, nu
  /// columns.
  void (*response)(const Grid& grid, const float* features, const float* filter, const float* weights, int blocks,
                   float* work, float* plane);

  /// Spectra of two blocks of real rows of plan.n elements, packed as real and imaginary parts: n / 2 + 1 complex
  /// elements for the first block, as many for the second.
  void (*packedRow)(const FftPlan& plan, const float* rows, float* spectra, float* work);
  /// For each of `half` frequencies the sum over all values of spectrum times numerator, as pairs. spectra, numerator:
  /// 2 * pairs blocks of `half` complex elements.
  void (*scaleAnswer)(const float* spectra, const float* numerator, int half, int pairs, float* answer);
  /// numerator = (1 - rate) * numerator + rate * labels * conjugated spectrum; energy: sum of squares per frequency.
  void (*scaleLearn)(const float* spectra, const float* labels, float rate, int half, int pairs, float* numerator,
                     float* energy);

  /// One row of a cubic resize, three channels: n results each from four BGR pixels, the first at byte tap[i] of `row`,
  /// weighted with alpha[4 i ..]. Whole numbers, kept as floats; plane c of the result starts at out + c * stride.
  /// Reads up to 8 bytes after the last pixel.
  void (*cubicRow)(const uint8_t* row, const int* tap, const int16_t* alpha, int n, float* out, int stride);
  /// Four such rows, weighted with beta[0..3], into bytes.
  void (*cubicColumn)(const float* const* rows, const int16_t* beta, int n, uint8_t* out);

  /// Strongest gradient of each pixel 1 .. n-2 of a row among the three channels: length (0 .. 1.42) and one of 18
  /// directions. above, row, below: three plane pointers each. Reads and writes up to seven elements after the n-th.
  void (*gradientRow)(const uint8_t* const* above, const uint8_t* const* row, const uint8_t* const* below, int n,
                      float* length, uint8_t* direction);
  /// n BGR samples (a multiple of four), linearly between two rows of the picture; plane c starts at out + c * stride.
  void (*sampleRow)(const uint8_t* upper, const uint8_t* lower, const PixelTap* taps, int n, float upperWeight,
                    float lowerWeight, float* out, int stride);
  /// As gradientRow, for samples: `row` is a row of three planes `plane` floats apart, `down` floats from row to row.
  void (*sampleGradients)(const float* row, long plane, long down, int n, float* length, int32_t* direction);

  /// Histogram bins of a row of n BGR pixels, `bins` steps of hue, saturation and value each. Reads up to 24 bytes and
  /// writes up to 7 bins after the last one.
  void (*binsOfRow)(const uint8_t* row, int n, int bins, int32_t* out);
  /// Brightness of a row of three planes. Reads and writes up to 7 elements after the n-th.
  void (*brightness)(const uint8_t* blue, const uint8_t* green, const uint8_t* red, int n, uint8_t* out);
  /// As cubicRow, for one channel; whole numbers.
  void (*cubicRowOfOne)(const uint8_t* row, const int* tap, const int16_t* alpha, int n, int32_t* out);
  /// Ten figures from four table rows: (rows[0] left + rows[1] right) upper + (rows[2] left + rows[3] right) lower.
  void (*mixNames)(const float* const* rows, float left, float right, float upper, float lower, float* out);

  /// The 32 values of one cell from its histogram (24 floats, the last 6 are 0) and its four neighbourhood factors.
  /// Only the first `count` are sure to be written; out has room for 32.
  void (*hogCell)(const float* histogram, const float* factors, int count, float* out);
  /// out[b][0..7] = in[8 b + 0..7] * window, `blocks` times; out's blocks lie `stride` floats apart.
  void (*storeCell)(const float* in, float window, int blocks, long stride, float* out);
};

const Kernels& baselineKernels();
#ifdef CSRT_ENGINE_AVX2
const Kernels& avx2Kernels();
#endif
/// The best set that this processor has; CSRT_ENGINE_ISA=baseline in the environment asks for the baseline.
const Kernels& kernels();

}  // namespace csrt_engine
