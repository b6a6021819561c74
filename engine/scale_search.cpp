#include "scale_search.h"

#include <algorithm>
#include <cmath>

namespace csrt_engine {
namespace {

std::size_t index(int i) { return static_cast<std::size_t>(i); }

std::vector<float> hann(int n) {
  std::vector<float> window(index(n), 1.f);
  if (n > 1)
    for (int i = 0; i < n; ++i) window[index(i)] = static_cast<float>(0.5 * (1.0 - std::cos(2 * CV_PI * i / (n - 1))));
  return window;
}

}  // namespace

cv::Size ScaleSearch::modelSize(const cv::Size2f& t, float maxArea) {
  float factor = 1.0f;
  if (static_cast<double>(t.width * t.height) * 1.0 > static_cast<double>(maxArea))
    factor = std::sqrt(maxArea / (t.width * t.height));
  return {cvFloor(t.width * factor), cvFloor(t.height * factor)};
}

void ScaleSearch::init(const Kernels& kernels, const cv::Mat& image, const cv::Rect2f& box, const cv::Size2f& templateSize,
                       const cv::tracking::TrackerCSRT::Params& params) {
  target_ = box.size();
  count_ = params.number_of_scales % 2 == 0 ? params.number_of_scales + 1 : params.number_of_scales;
  half_ = count_ / 2 + 1;
  current_ = 1;
  rate_ = params.scale_lr;
  const float step = params.scale_step;
  const float sigma = static_cast<float>(std::sqrt(count_) * params.scale_sigma_factor);
  smallest_ = static_cast<float>(
      std::pow(step, cvCeil(std::log(std::max(5.0 / templateSize.width, 5.0 / templateSize.height)) / std::log(step))));
  largest_ = static_cast<float>(
      std::pow(step, cvFloor(std::log(std::min(static_cast<float>(image.rows) / box.width,
                                               static_cast<float>(image.cols) / box.height)) / std::log(step))));
  const int middle = cvCeil(static_cast<float>(count_) / 2.0f);
  factors_.resize(index(count_));
  roots_ = unitRoots(count_);
  std::vector<double> wanted(index(count_));
  for (int i = 0; i < count_; ++i) {
    const float distance = static_cast<float>(i + 1) - static_cast<float>(middle);
    wanted[index(i)] = static_cast<float>(std::exp(-0.5 * std::pow(distance, 2) / std::pow(sigma, 2)));
    factors_[index(i)] = static_cast<float>(std::pow(step, static_cast<float>(middle) - static_cast<float>(i + 1)));
  }
  labels_.resize(2 * index(half_));
  for (int k = 0; k < half_; ++k) {
    double re = 0, im = 0;
    for (int i = 0; i < count_; ++i) {
      const std::size_t root = 2 * static_cast<std::size_t>(static_cast<long long>(k) * i % count_);
      re += wanted[index(i)] * roots_[root];
      im -= wanted[index(i)] * roots_[root + 1];
    }
    labels_[2 * index(k)] = static_cast<float>(re);
    labels_[2 * index(k) + 1] = static_cast<float>(im);
  }
  window_ = hann(count_);
  tables_ = FftTables(count_);
  cells_.setup(modelSize(templateSize, params.scale_model_max_area));
  padded_ = (cells_.values() + 1 + 2 * kBlock - 1) / (2 * kBlock) * 2 * kBlock;
  pairs_ = padded_ / (2 * kBlock);
  newPicture();
  // Half the size in whole pixels: half a pixel beside the tracker's own centre when the size is odd.
  computeSpectra(kernels, image, {box.x + static_cast<float>(target_.width / 2), box.y + static_cast<float>(target_.height / 2)});

  const std::size_t floats = index(pairs_) * 2 * kComplex * index(half_);
  float* numerator = numerator_.reserve(floats);
  std::fill_n(numerator, floats, 0.f);
  denominator_.assign(index(half_), 0.f);
  blend(kernels, 1);
}

const float* ScaleSearch::valuesAt(const Kernels& kernels, const cv::Mat& image, const cv::Point2f& center, cv::Size size) {
  for (const Known& k : known_)
    if (k.size == size) return slots_.data() + index(k.slot) * index(padded_);
  const int slot = static_cast<int>(known_.size());
  float* out = slots_.data() + index(slot) * index(padded_);
  cells_.compute(kernels, subwindowAround(image, center, size.width, size.height), out);
  // The border cells all say the same at every size; one value stands for their sum.
  std::fill(out + cells_.values(), out + padded_, 0.f);
  out[cells_.values()] = std::sqrt(static_cast<float>(cells_.borderCells()));
  known_.push_back({size, slot});
  return out;
}

void ScaleSearch::computeSpectra(const Kernels& kernels, const cv::Mat& image, const cv::Point2f& center) {
  known_.reserve(2 * index(count_));
  slots_.reserve(2 * index(count_) * index(padded_));
  if (center != knownCenter_) known_.clear();
  knownCenter_ = center;
  const std::size_t rowFloats = index(kComplex);
  float* rows = rows_.reserve(index(pairs_) * index(count_) * rowFloats);  // pair, size, 16 values
  for (int s = 0; s < count_; ++s) {
    const cv::Size size(static_cast<int>(current_ * factors_[index(s)] * static_cast<float>(target_.width)),
                        static_cast<int>(current_ * factors_[index(s)] * static_cast<float>(target_.height)));
    const float* values = valuesAt(kernels, image, center, size);
    for (int p = 0; p < pairs_; ++p) {
      float* out = rows + (index(p) * index(count_) + index(s)) * rowFloats;
      for (int i = 0; i < kComplex; ++i) out[i] = values[p * kComplex + i] * window_[index(s)];
    }
  }
  float* work = work_.reserve(index(3 * count_) * rowFloats);
  float* spectra = spectra_.reserve(index(pairs_) * 2 * rowFloats * index(half_));
  for (int p = 0; p < pairs_; ++p)
    kernels.packedRow(tables_.plan(), rows + index(p) * index(count_) * rowFloats, spectra + index(p) * 2 * rowFloats * index(half_),
                      work);
}

float ScaleSearch::estimate(const Kernels& kernels, const cv::Mat& image, const cv::Point2f& center) {
  computeSpectra(kernels, image, center);
  response_.resize(2 * index(half_));
  kernels.scaleAnswer(spectra_.data(), numerator_.data(), half_, pairs_, response_.data());
  for (int k = 0; k < half_; ++k) {
    const float d = denominator_[index(k)] + 0.01f;
    response_[2 * index(k)] /= d;
    response_[2 * index(k) + 1] /= d;
  }
  int best = 0;
  float most = 0;
  for (int i = 0; i < count_; ++i) {
    float sum = 0;
    for (int k = 1; 2 * k < count_; ++k) {
      const std::size_t root = 2 * static_cast<std::size_t>(static_cast<long long>(k) * i % count_);
      sum += response_[2 * index(k)] * roots_[root] - response_[2 * index(k) + 1] * roots_[root + 1];
    }
    sum = response_[0] + 2 * sum;
    if (i == 0 || sum > most) {
      most = sum;
      best = i;
    }
  }
  current_ *= factors_[index(best)];
  if (current_ < smallest_)
    current_ = smallest_;
  else if (current_ > largest_)
    current_ = largest_;
  return current_;
}

void ScaleSearch::learn(const Kernels& kernels, const cv::Mat& image, const cv::Point2f& center) {
  computeSpectra(kernels, image, center);
  blend(kernels, rate_);
}

void ScaleSearch::blend(const Kernels& kernels, float rate) {
  std::vector<float>& energy = response_;
  energy.resize(2 * index(half_));
  kernels.scaleLearn(spectra_.data(), labels_.data(), rate, half_, pairs_, numerator_.data(), energy.data());
  for (int k = 0; k < half_; ++k)
    denominator_[index(k)] = (1 - rate) * denominator_[index(k)] + rate * energy[index(k)];
}

}  // namespace csrt_engine
