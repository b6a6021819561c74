#include "correlation_filter.h"

#include <algorithm>

namespace csrt_engine {
namespace {

std::size_t index(int i) {
  return static_cast<std::size_t>(i);
}

}  // namespace

void CorrelationFilter::setup(const Kernels& kernels, const cv::Mat& labels, const Settings& settings) {
  kernels_ = &kernels;
  settings_ = settings;
  blocks_ = (settings.channels + kBlock - 1) / kBlock;
  const int nu = settings.columnsFirst ? labels.rows : labels.cols,
            nv = settings.columnsFirst ? labels.cols : labels.rows;
  if (nu != grid_.nu || nv != grid_.nv) {
    tablesU_ = FftTables(nu);
    tablesV_ = FftTables(nv);
    directU_ = DirectTables(nu);
    directV_ = DirectTables(nv);
    rootsU_ = unitRoots(2 * nu);
    rootsV_ = unitRoots(2 * nv);
    grid_ = {nu, nv, tablesU_.plan(), tablesV_.plan()};
  }
  const std::size_t pairs = index(grid_.half()) * index(nv);
  labels_.resize(2 * pairs);
  for (int u = 0; u < grid_.half(); ++u)
    for (int v = 0; v < nv; ++v) {
      const cv::Vec2f y = settings.columnsFirst ? labels.at<cv::Vec2f>(u, v) : labels.at<cv::Vec2f>(v, u);
      float* out = &labels_[2 * (index(u) * index(nv) + index(v))];
      out[0] = y[0];
      out[1] = -y[1];
    }
  centered_.resize(2 * pairs);
  back_.resize(2 * pairs);
  twiceU_ = twiceV_ = -1;
  const auto floats = static_cast<std::size_t>(blockFloats() * blocks_);
  features_.reserve(floats);
  filter_.reserve(floats);
  next_.reserve(floats);
  maskBox_.resize(index(nu) * index(nv));
  plane_.resize(maskBox_.size());
  weights_.assign(index(blocks_) * kBlock, 1.f);
  nextWeights_.assign(weights_.size(), 0.f);
  const long groups = (grid_.half() + kBlock - 1) / kBlock;
  const long planes = std::max<long>(grid_.half(), groups) * nv + 4L * std::max(nu, nv);
  work_.reserve(static_cast<std::size_t>(std::max(kComplex * planes, admmWorkFloats(nu, nv, nu, nv))));
  answer_.create(labels.size(), CV_32FC1);
}

void CorrelationFilter::transform(const float* planes) {
  const long plane = static_cast<long>(kBlock) * grid_.nu * grid_.nv;
  for (int b = 0; b < blocks_; ++b)
    kernels_->forward(grid_, planes + plane * b, features_.data() + blockFloats() * b, work_.data());
}

/// The labels, conjugated and moved to the mask's origin; twiceU, twiceV: twice its place.
void CorrelationFilter::centerLabels(int twiceU, int twiceV) {
  if (twiceU == twiceU_ && twiceV == twiceV_) return;
  twiceU_ = twiceU;
  twiceV_ = twiceV;
  const auto rootAt = [](const std::vector<float>& roots, int frequency, int twice, int n) {
    const long long step = static_cast<long long>(frequency) * twice % (2LL * n);
    return &roots[2 * static_cast<std::size_t>(step < 0 ? step + 2LL * n : step)];
  };
  for (int u = 0; u < grid_.half(); ++u)
    for (int v = 0; v < grid_.nv; ++v) {
      const float* a = rootAt(rootsU_, u, twiceU, grid_.nu);
      const float* b = rootAt(rootsV_, 2 * v <= grid_.nv ? v : v - grid_.nv, twiceV, grid_.nv);
      const float re = a[0] * b[0] - a[1] * b[1], im = a[0] * b[1] + a[1] * b[0];
      const std::size_t at = 2 * (index(u) * index(grid_.nv) + index(v));
      centered_[at] = labels_[at] * re - labels_[at + 1] * im;
      centered_[at + 1] = labels_[at] * im + labels_[at + 1] * re;
      back_[at] = re;
      back_[at + 1] = -im;
    }
}

void CorrelationFilter::setMask(const cv::Mat& mask) {
  const bool turned = settings_.columnsFirst;
  const auto value = [&](int u, int v) { return turned ? mask.at<float>(u, v) : mask.at<float>(v, u); };
  int firstU = grid_.nu, lastU = -1, firstV = grid_.nv, lastV = -1;
  for (int v = 0; v < grid_.nv; ++v)
    for (int u = 0; u < grid_.nu; ++u)
      if (value(u, v) != 0) {
        firstU = std::min(firstU, u);
        lastU = std::max(lastU, u);
        firstV = std::min(firstV, v);
        lastV = v;
      }
  maskU_ = std::max(lastU - firstU + 1, 0);
  maskV_ = std::max(lastV - firstV + 1, 0);
  for (int v = 0; v < maskV_; ++v)
    for (int u = 0; u < maskU_; ++u) maskBox_[index(v) * index(maskU_) + index(u)] = value(firstU + u, firstV + v);
  if (maskU_ > 0) centerLabels(2 * firstU + twiceOrigin(grid_.nu, maskU_), 2 * firstV + twiceOrigin(grid_.nv, maskV_));
}

void CorrelationFilter::solve(const cv::Mat& mask) {
  setMask(mask);
  AdmmInput in{};
  in.grid = &grid_;
  in.labels = centered_.data();
  in.back = back_.data();
  in.mask = maskBox_.data();
  in.mu = maskU_;
  in.mv = maskV_;
  if (maskU_ > 0) {
    in.twiceU = twiceOrigin(grid_.nu, maskU_);
    in.twiceV = twiceOrigin(grid_.nv, maskV_);
    in.tableU = directU_.forWidth(maskU_);
    in.tableV = directV_.forWidth(maskV_);
  }
  in.iterations = settings_.iterations;
  in.work = work_.data();
  for (int b = 0; b < blocks_; ++b) {
    in.features = features_.data() + blockFloats() * b;
    in.filter = next_.data() + blockFloats() * b;
    kernels_->admm(in);
  }
}

/// How well each channel answers by itself: its largest response, not yet scaled to a sum of 1.
void CorrelationFilter::newWeights(std::vector<float>& weights) {
  for (int b = 0; b < blocks_; ++b)
    kernels_->responsePeaks(grid_, features_.data() + blockFloats() * b, next_.data() + blockFloats() * b, work_.data(),
                            &weights[index(b) * kBlock]);
}

void CorrelationFilter::learnFirst(const float* planes, const cv::Mat& mask) {
  transform(planes);
  solve(mask);
  std::copy_n(next_.data(), blockFloats() * blocks_, filter_.data());
  if (!settings_.weighted) return;
  newWeights(weights_);
  float sum = 0;
  for (int c = 0; c < settings_.channels; ++c) sum += weights_[index(c)];
  for (int c = 0; c < settings_.channels; ++c) weights_[index(c)] /= sum;
  std::fill(weights_.begin() + settings_.channels, weights_.end(), 0.f);
}

void CorrelationFilter::learn(const float* planes, const cv::Mat& mask) {
  transform(planes);
  solve(mask);
  if (settings_.weighted) {
    newWeights(nextWeights_);
    float newSum = 0, sum = 0;
    for (int c = 0; c < settings_.channels; ++c) newSum += nextWeights_[index(c)];
    for (int c = 0; c < settings_.channels; ++c) {
      float& weight = weights_[index(c)];
      weight = weight * (1.0f - settings_.weightRate) + settings_.weightRate * (nextWeights_[index(c)] / newSum);
      sum += weight;
    }
    for (int c = 0; c < settings_.channels; ++c) weights_[index(c)] /= sum;
  }
  kernels_->blend(filter_.data(), next_.data(), settings_.filterRate, blockFloats() * blocks_);
}

const cv::Mat& CorrelationFilter::respond(const float* planes) {
  transform(planes);
  kernels_->response(grid_, features_.data(), filter_.data(), weights_.data(), blocks_, work_.data(), plane_.data());
  for (int v = 0; v < grid_.nv; ++v)
    for (int u = 0; u < grid_.nu; ++u) {
      const float value = plane_[index(v) * index(grid_.nu) + index(u)];
      (settings_.columnsFirst ? answer_.at<float>(u, v) : answer_.at<float>(v, u)) = value;
    }
  return answer_;
}

}  // namespace csrt_engine
