#include "colour_model.h"

#include <algorithm>
#include <cmath>
#include <vector>

namespace csrt_guard {
namespace {

constexpr float kRare = 0.01F;  // a share that noise can make

Colours spread(const Colours& counts, const Palette& palette) {
  Colours colours{};
  for (std::size_t i = 0; i < kColours; ++i) {
    if (counts[i] <= 0.0F) continue;
    for (std::size_t j = 0; j < kColours; ++j) colours[j] += counts[i] * palette.kinship()[i][j];
  }
  return colours;
}

void normalise(Colours& colours) {
  float sum = 0.0F;
  for (const float share : colours) sum += share;
  if (sum <= 0.0F) return;
  for (float& share : colours) share /= sum;
}

HalfColours weighedRoots(HalfColours colours, const HalfColours& weights) {
  for (std::size_t half = 0; half < kHalves; ++half) {
    for (std::size_t k = 0; k < kColours; ++k) colours[half][k] *= weights[half][k];
    normalise(colours[half]);
    for (float& share : colours[half]) share = std::sqrt(share);
  }
  return colours;
}

/// What is around a box: all of the view but the box.
Colours coloursAround(const CodedView& view, const cv::Rect2d& box, const Palette& palette) {
  Colours counts{};
  for (int y = 0; y < view.codes.rows; ++y) {
    const std::uint8_t* row = view.codes.ptr<std::uint8_t>(y);
    for (int x = 0; x < view.codes.cols; ++x) {
      if (!box.contains({x + 0.5, y + 0.5})) counts[row[x]] += 1.0F;
    }
  }
  Colours colours = spread(counts, palette);
  normalise(colours);
  return colours;
}

}  // namespace

std::optional<HalfColours> coloursIn(const CodedView& view, const cv::Rect2d& box, const Palette& palette) {
  const int left = std::max(0, cvRound(box.x));
  const int top = std::max(0, cvRound(box.y));
  const int right = std::min(view.codes.cols, std::max(left + 1, cvRound(box.x + box.width)));
  const int bottom = std::min(view.codes.rows, std::max(top + 1, cvRound(box.y + box.height)));
  const double seen = std::max(0, right - left) * static_cast<double>(std::max(0, bottom - top));
  if (seen < 4.0 || seen < box.area() / 3.0) return std::nullopt;

  std::vector<float> across(static_cast<std::size_t>(right - left));
  for (int x = left; x < right; ++x) {
    const double d = 2.0 * (x + 0.5 - box.x) / box.width - 1.0;
    across[static_cast<std::size_t>(x - left)] = static_cast<float>(std::max(0.0, 1.0 - d * d));
  }
  HalfColours counts{};
  for (int y = top; y < bottom; ++y) {
    const double d = 2.0 * (y + 0.5 - box.y) / box.height - 1.0;
    const auto down = static_cast<float>(std::max(0.0, 1.0 - 0.5 * d * d));
    Colours& half = counts[d < 0.0 ? 0 : 1];
    const std::uint8_t* row = view.codes.ptr<std::uint8_t>(y);
    for (int x = left; x < right; ++x) half[row[x]] += down * across[static_cast<std::size_t>(x - left)];
  }
  for (Colours& half : counts) {
    half = spread(half, palette);
    normalise(half);
  }
  return counts;
}

double sameness(const HalfColours& a, const HalfColours& b) {
  float sum = 0.0F;
  for (std::size_t half = 0; half < kHalves; ++half) {
    for (std::size_t k = 0; k < kColours; ++k) sum += std::sqrt(a[half][k] * b[half][k]);
  }
  return static_cast<double>(sum) / kHalves;
}

void blend(HalfColours& into, const HalfColours& seen, float share) {
  for (std::size_t half = 0; half < kHalves; ++half) {
    for (std::size_t k = 0; k < kColours; ++k) into[half][k] += share * (seen[half][k] - into[half][k]);
  }
}

bool ColourModel::learn(const CodedView& view, const cv::Rect2d& box, const Palette& palette) {
  const std::optional<HalfColours> colours = coloursIn(view, box, palette);
  if (!colours) return false;
  mean_ = *colours;
  const Colours around = coloursAround(view, box, palette);
  for (std::size_t half = 0; half < kHalves; ++half) {
    for (std::size_t k = 0; k < kColours; ++k) {
      const float own = mean_[half][k] + kRare;
      weights_[half][k] = own / (own + around[k] + kRare);
    }
  }
  roots_ = weighedRoots(mean_, weights_);
  return true;
}

void ColourModel::learnMore(const HalfColours& colours, float share) {
  blend(mean_, colours, share);
  roots_ = weighedRoots(mean_, weights_);
}

double ColourModel::likeness(const HalfColours& colours) const {
  const HalfColours roots = weighedRoots(colours, weights_);
  float sum = 0.0F;
  for (std::size_t half = 0; half < kHalves; ++half) {
    for (std::size_t k = 0; k < kColours; ++k) sum += roots[half][k] * roots_[half][k];
  }
  return static_cast<double>(sum) / kHalves;
}

std::optional<double> ColourModel::likenessAt(const CodedView& view, const cv::Rect2d& box,
                                              const Palette& palette) const {
  const std::optional<HalfColours> colours = coloursIn(view, box, palette);
  if (!colours) return std::nullopt;
  return likeness(*colours);
}

HalfColours ColourModel::logRatio(const Colours& surroundings) const {
  HalfColours ratio{};
  for (std::size_t half = 0; half < kHalves; ++half) {
    for (std::size_t k = 0; k < kColours; ++k) {
      ratio[half][k] = std::clamp(std::log((mean_[half][k] + kRare) / (surroundings[k] + kRare)), -2.0F, 2.0F);
    }
  }
  return ratio;
}

Colours coloursOf(const CodedView& view, const Palette& palette) {
  return coloursAround(view, cv::Rect2d(), palette);
}

}  // namespace csrt_guard
