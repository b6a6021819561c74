#include "coded_view.h"

#include <algorithm>
#include <cmath>
#include <opencv2/imgproc.hpp>

namespace csrt_guard {
namespace {

constexpr float kLightWeight = 0.6F;  // light and shadow change more than hue does
constexpr float kKinshipReach = 3.0F; // distance in CIE Lab at which colours begin to count as each other
constexpr int kRounds = 12;
constexpr int kTargetCounts = 3;

/// CIE Lab of every entry of a table of 32 x 32 x 32 colours, lightness weighed.
std::vector<cv::Vec3f> colourTable() {
  cv::Mat bgr(32 * 32 * 32, 1, CV_32FC3);
  int i = 0;
  for (int b = 0; b < 32; ++b) {
    for (int g = 0; g < 32; ++g) {
      for (int r = 0; r < 32; ++r) {
        const auto level = [](int v) { return (static_cast<float>(v) + 0.5F) / 32.0F; };
        bgr.at<cv::Vec3f>(i++) = cv::Vec3f(level(b), level(g), level(r));
      }
    }
  }
  cv::Mat lab;
  cv::cvtColor(bgr, lab, cv::COLOR_BGR2Lab);
  std::vector<cv::Vec3f> table(lab.begin<cv::Vec3f>(), lab.end<cv::Vec3f>());
  for (cv::Vec3f& colour : table) colour[0] *= kLightWeight;
  return table;
}

const std::vector<cv::Vec3f>& sharedColourTable() {
  static const std::vector<cv::Vec3f> table = colourTable();
  return table;
}

float distance2(const cv::Vec3f& a, const cv::Vec3f& b) {
  const cv::Vec3f d = a - b;
  return d.dot(d);
}

std::size_t nearest(const std::vector<cv::Vec3f>& centres, const cv::Vec3f& colour) {
  std::size_t best = 0;
  for (std::size_t k = 1; k < centres.size(); ++k) {
    if (distance2(centres[k], colour) < distance2(centres[best], colour)) best = k;
  }
  return best;
}

/// Lloyd's algorithm from centres drawn far apart (k-means++, Arthur and Vassilvitskii 2007), seeded.
std::vector<cv::Vec3f> clustered(const std::vector<cv::Vec3f>& colours) {
  cv::RNG random(20011);
  std::vector<cv::Vec3f> centres = {colours[static_cast<std::size_t>(random.uniform(0, static_cast<int>(colours.size())))]};
  std::vector<float> far(colours.size());
  while (centres.size() < kColours) {
    double total = 0.0;
    for (std::size_t i = 0; i < colours.size(); ++i) {
      const float d = distance2(colours[i], centres.back());
      far[i] = centres.size() == 1 ? d : std::min(far[i], d);
      total += static_cast<double>(far[i]);
    }
    double left = random.uniform(0.0, 1.0) * total;
    std::size_t chosen = 0;
    while (chosen + 1 < colours.size() && (left -= static_cast<double>(far[chosen])) > 0.0) ++chosen;
    centres.push_back(colours[chosen]);
  }
  for (int round = 0; round < kRounds; ++round) {
    std::vector<cv::Vec3f> sums(kColours, cv::Vec3f(0, 0, 0));
    std::vector<int> counts(kColours, 0);
    for (const cv::Vec3f& colour : colours) {
      const std::size_t k = nearest(centres, colour);
      sums[k] += colour;
      ++counts[k];
    }
    for (std::size_t k = 0; k < kColours; ++k) {
      if (counts[k] > 0) centres[k] = sums[k] * (1.0F / static_cast<float>(counts[k]));
    }
  }
  return centres;
}

std::size_t tableIndex(const cv::Vec3b& bgr) {
  return static_cast<std::size_t>(((bgr[0] >> 3) << 10) | ((bgr[1] >> 3) << 5) | (bgr[2] >> 3));
}

cv::Mat asBgr(const cv::Mat& picture) {
  cv::Mat bgr;
  if (picture.channels() == 1) {
    cv::cvtColor(picture, bgr, cv::COLOR_GRAY2BGR);
  } else if (picture.channels() == 4) {
    cv::cvtColor(picture, bgr, cv::COLOR_BGRA2BGR);
  } else {
    bgr = picture;
  }
  return bgr;
}

}  // namespace

void Palette::learn(const cv::Mat& picture, const cv::Rect& target) {
  const std::vector<cv::Vec3f>& lab = sharedColourTable();
  std::vector<cv::Vec3f> colours;
  for (int y = 0; y < picture.rows; ++y) {
    for (int x = 0; x < picture.cols; ++x) {
      const cv::Vec3f& colour = lab[tableIndex(picture.at<cv::Vec3b>(y, x))];
      colours.insert(colours.end(), target.contains({x, y}) ? kTargetCounts : 1, colour);
    }
  }
  const std::vector<cv::Vec3f> centres = clustered(colours);
  table_.resize(lab.size());
  for (std::size_t i = 0; i < lab.size(); ++i) table_[i] = static_cast<std::uint8_t>(nearest(centres, lab[i]));
  for (std::size_t i = 0; i < kColours; ++i) {
    float sum = 0.0F;
    for (std::size_t j = 0; j < kColours; ++j) {
      kinship_[i][j] = std::exp(-distance2(centres[i], centres[j]) / (2.0F * kKinshipReach * kKinshipReach));
      sum += kinship_[i][j];
    }
    for (float& share : kinship_[i]) share /= sum;
  }
}

double workScale(const cv::Size2d& box) {
  return std::min(1.0, kWorkSide / std::sqrt(std::max(1.0, box.width * box.height)));
}

cv::Mat shrunkenBgr(const cv::Mat& frame, const cv::Rect& part, double scale) {
  const auto side = [scale](int pixels, double more) { return std::max(1, cvRound(pixels * scale * more)); };
  const cv::Size size(side(part.width, 1.0), side(part.height, 1.0));
  cv::Mat picture = frame(part);
  constexpr double kAhead = 3.0;  // every so many pixels are enough to average over, however large the part is
  if (scale * kAhead < 1.0) {
    cv::Mat thinned;
    cv::resize(picture, thinned, {side(part.width, kAhead), side(part.height, kAhead)}, 0.0, 0.0, cv::INTER_NEAREST);
    picture = thinned;
  }
  cv::Mat shrunken;
  cv::resize(picture, shrunken, size, 0.0, 0.0, cv::INTER_AREA);
  return asBgr(shrunken);
}

CodedView viewOf(const cv::Mat& frame, const cv::Rect& part, double scale, const Palette& palette) {
  CodedView view;
  view.part = part & cv::Rect({}, frame.size());
  if (view.part.empty()) return view;
  const cv::Mat bgr = shrunkenBgr(frame, view.part, scale);
  view.scaleX = static_cast<double>(bgr.cols) / view.part.width;
  view.scaleY = static_cast<double>(bgr.rows) / view.part.height;
  view.codes.create(bgr.size(), CV_8U);
  for (int y = 0; y < bgr.rows; ++y) {
    const auto* in = bgr.ptr<cv::Vec3b>(y);
    std::uint8_t* out = view.codes.ptr<std::uint8_t>(y);
    for (int x = 0; x < bgr.cols; ++x) out[x] = palette.codeOf(in[x]);
  }
  return view;
}

}  // namespace csrt_guard
