#include "target_search.h"

#include <algorithm>
#include <cmath>
#include <opencv2/imgproc.hpp>

#include "boxes.h"

namespace csrt_guard {
namespace {

constexpr std::array<double, 3> kSizes = {0.85, 1.0, 1.18};
constexpr std::size_t kRoughPlaces = 8;  // climbed from
constexpr int kClimbSteps = 12;
constexpr double kSides = 0.35;     // of the width: how much of what is beside a place is looked at
constexpr double kStandOut = 0.25;  // weight of contrast beside likeness
constexpr double kInner = 0.7;      // of a box's width that is rarely background

struct RoughPlace {
  cv::Rect2d box;  ///< In the view.
  double score = 0.0;
};

/// Sums of the ratio over rectangles, by two integral images.
class RatioSums {
 public:
  RatioSums(const CodedView& view, const HalfColours& ratio) {
    for (std::size_t half = 0; half < kHalves; ++half) {
      cv::Mat table(1, 256, CV_32S, cv::Scalar(0));
      std::array<int, 256> whole{};
      for (std::size_t k = 0; k < kColours; ++k) whole[k] = cvRound(ratio[half][k] * 64.0F);
      cv::Mat& sums = sums_[half];
      sums = cv::Mat::zeros(view.codes.rows + 1, view.codes.cols + 1, CV_32S);
      for (int y = 0; y < view.codes.rows; ++y) {
        const std::uint8_t* in = view.codes.ptr<std::uint8_t>(y);
        const int* above = sums.ptr<int>(y) + 1;
        int* out = sums.ptr<int>(y + 1) + 1;
        int row = 0;
        for (int x = 0; x < view.codes.cols; ++x) {
          row += whole[in[x]];
          out[x] = above[x] + row;
        }
      }
    }
  }

  /// The mean over the inner columns of a box at whole pixels.
  double at(int x, int y, int w, int h) const {
    const int inset = static_cast<int>(w * (1.0 - kInner) / 2.0);
    const int middle = y + h / 2;
    const int sum = sumOf_(0, x + inset, y, x + w - inset, middle) + sumOf_(1, x + inset, middle, x + w - inset, y + h);
    return static_cast<double>(sum) / (64.0 * h * (w - 2 * inset));
  }

  /// How much more the inside of a box is the target's than the strips at its sides.
  double contrastOf(const cv::Rect2d& box) const {
    const int w = cvRound(box.width * kSides);
    const cv::Rect inside(cvRound(box.x), cvRound(box.y), cvRound(box.width), cvRound(box.height));
    const cv::Rect left(inside.x - w, inside.y, w, inside.height);
    const cv::Rect right(inside.x + inside.width, inside.y, w, inside.height);
    const Mean in = meanOf_(inside);
    const Mean l = meanOf_(left);
    const Mean r = meanOf_(right);
    const int beside = l.pixels + r.pixels;
    return in.value() - (beside > 0 ? static_cast<double>(l.sum + r.sum) / (64.0 * beside) : 0.0);
  }

 private:
  struct Mean {
    int sum = 0;
    int pixels = 0;
    double value() const { return pixels > 0 ? static_cast<double>(sum) / (64.0 * pixels) : 0.0; }
  };
  Mean meanOf_(const cv::Rect& box) const {
    const cv::Rect r = box & cv::Rect(0, 0, sums_[0].cols - 1, sums_[0].rows - 1);
    if (r.empty()) return {};
    const int middle = std::clamp(box.y + box.height / 2, r.y, r.y + r.height);
    return {sumOf_(0, r.x, r.y, r.x + r.width, middle) + sumOf_(1, r.x, middle, r.x + r.width, r.y + r.height),
            r.area()};
  }
  int sumOf_(std::size_t half, int left, int top, int right, int bottom) const {
    const cv::Mat& s = sums_[half];
    return s.at<int>(bottom, right) - s.at<int>(top, right) - s.at<int>(bottom, left) + s.at<int>(top, left);
  }
  std::array<cv::Mat, kHalves> sums_;
};

void keep(std::vector<RoughPlace>& best, const RoughPlace& place) {
  for (RoughPlace& other : best) {
    if (overlap(other.box, place.box) < 0.4) continue;
    if (place.score > other.score) other = place;
    return;
  }
  if (best.size() < kRoughPlaces) {
    best.push_back(place);
    return;
  }
  const auto worst = std::min_element(best.begin(), best.end(),
                                      [](const RoughPlace& a, const RoughPlace& b) { return a.score < b.score; });
  if (place.score > worst->score) *worst = place;
}

std::vector<RoughPlace> roughPlaces(const CodedView& view, const cv::Size2d& expected, bool resized,
                                    const RatioSums& sums) {
  std::vector<RoughPlace> best;
  for (const double size : kSizes) {
    if (size != 1.0 && !resized) continue;
    const int w = std::max(2, cvRound(expected.width * view.scaleX * size));
    const int h = std::max(2, cvRound(expected.height * view.scaleY * size));
    const int strideX = std::max(1, w / 6);
    const int strideY = std::max(1, h / 10);
    for (int y = 0; y + h <= view.codes.rows; y += strideY) {
      for (int x = 0; x + w <= view.codes.cols; x += strideX) {
        const double score = sums.at(x, y, w, h);
        if (score > 0.0) keep(best, {cv::Rect2d(x, y, w, h), score});
      }
    }
  }
  return best;
}

/// Moves a place to where it is most like the target and stands out most.
Place climbed(cv::Rect2d box, const CodedView& view, const RatioSums& sums, const ColourModel& model,
              const Palette& palette) {
  const auto placeAt = [&](const cv::Rect2d& at) {
    const std::optional<HalfColours> look = coloursIn(view, at, palette);
    if (!look) return Place{at, 0.0, {}, sums.contrastOf(at)};
    return Place{at, model.likeness(*look), *look, sums.contrastOf(at)};
  };
  const auto worth = [](const Place& place) { return place.likeness + kStandOut * place.contrast; };
  const double dx = std::max(1.0, box.width / 8.0);
  const double dy = std::max(1.0, box.height / 16.0);
  Place here = placeAt(box);
  for (int step = 0; step < kClimbSteps; ++step) {
    Place best = here;
    for (const cv::Point2d& by : {cv::Point2d(-dx, 0), {dx, 0}, {0, -dy}, {0, dy}}) {
      const Place there = placeAt(here.box + by);
      if (worth(there) > worth(best)) best = there;
    }
    if (worth(best) <= worth(here)) break;
    here = best;
  }
  here.box = view.toFrame(here.box);
  return here;
}

}  // namespace

std::vector<Place> findPlaces(const CodedView& view, const cv::Size2d& expected, bool resized, const ColourModel& model,
                              const Palette& palette) {
  if (view.codes.empty()) return {};
  const RatioSums sums(view, model.logRatio(coloursOf(view, palette)));
  std::vector<Place> places;
  for (const RoughPlace& rough : roughPlaces(view, expected, resized, sums)) {
    places.push_back(climbed(rough.box, view, sums, model, palette));
  }
  std::sort(places.begin(), places.end(), [](const Place& a, const Place& b) {
    return a.likeness != b.likeness ? a.likeness > b.likeness : a.box.x < b.box.x;
  });
  std::vector<Place> apart;
  for (const Place& place : places) {
    const auto same = [&place](const Place& other) { return overlap(other.box, place.box) >= 0.5; };
    if (std::none_of(apart.begin(), apart.end(), same)) apart.push_back(place);
  }
  return apart;
}

}  // namespace csrt_guard
