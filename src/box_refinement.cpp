#include "box_refinement.h"

#include <algorithm>
#include <climits>
#include <cmath>
#include <opencv2/imgproc.hpp>
#include <opencv2/ximgproc/segmentation.hpp>
#include <unordered_map>
#include <unordered_set>
#include <vector>

#include "window_geometry.h"

namespace {

constexpr int kMinSearchSide = 64;
constexpr int kMinShrinkSide = 120;  // a smaller working side would lose the object
constexpr std::size_t kExpectedSegments = 2048;

/// What is known of one segment.
struct Stats {
  int count = 0;
  int minX = INT_MAX;
  int minY = INT_MAX;
  int maxX = -1;
  int maxY = -1;
  double sumL = 0.0;
  double sumA = 0.0;
  double sumB = 0.0;
};

using StatsByLabel = std::unordered_map<int, Stats>;
using Neighbours = std::unordered_map<int, std::vector<int>>;

/// Limits of the growth.
struct GrowthLimits {
  int steps;
  double maxColorDist;
  double minAreaRatio;
  double maxAreaRatio;
  double boxArea;

  bool admitArea(double area) const {
    const double ratio = area / boxArea;
    return ratio >= minAreaRatio && ratio <= maxAreaRatio;
  }
};

void sortUnique(std::vector<int>& labels) {
  std::sort(labels.begin(), labels.end());
  labels.erase(std::unique(labels.begin(), labels.end()), labels.end());
}

cv::Vec3d meanColour(const Stats& s) {
  const double n = std::max(s.count, 1);
  return {s.sumL / n, s.sumA / n, s.sumB / n};
}

StatsByLabel collectStats(const cv::Mat& labels, const cv::Mat& lab) {
  StatsByLabel stats;
  stats.reserve(kExpectedSegments);
  for (int y = 0; y < labels.rows; ++y) {
    const int* label = labels.ptr<int>(y);
    const auto* colour = lab.ptr<cv::Vec3b>(y);
    for (int x = 0; x < labels.cols; ++x) {
      Stats& s = stats[label[x]];
      ++s.count;
      s.minX = std::min(s.minX, x);
      s.maxX = std::max(s.maxX, x);
      s.minY = std::min(s.minY, y);
      s.maxY = std::max(s.maxY, y);
      s.sumL += colour[x][0];
      s.sumA += colour[x][1];
      s.sumB += colour[x][2];
    }
  }
  return stats;
}

void connect(Neighbours& neighbours, int a, int b) {
  if (a == b) return;
  neighbours[a].push_back(b);
  neighbours[b].push_back(a);
}

Neighbours findNeighbours(const cv::Mat& labels, std::size_t labelCount) {
  Neighbours neighbours;
  neighbours.reserve(2 * labelCount);
  for (int y = 0; y < labels.rows; ++y) {
    const int* row = labels.ptr<int>(y);
    const int* below = y + 1 < labels.rows ? labels.ptr<int>(y + 1) : nullptr;
    for (int x = 0; x < labels.cols; ++x) {
      if (x + 1 < labels.cols) connect(neighbours, row[x], row[x + 1]);
      if (below != nullptr) connect(neighbours, row[x], below[x]);
    }
  }
  for (auto& entry : neighbours) sortUnique(entry.second);
  return neighbours;
}

/// Segments taken for the object so far.
class Region {
 public:
  Region(int label, const Stats& s) : extent_(s), mean_(meanColour(s)) { labels_.insert(label); }

  bool contains(int label) const { return labels_.count(label) != 0; }
  double areaWith(const Stats& s) const { return static_cast<double>(extent_.count) + s.count; }
  double colourDistance(const Stats& s) const { return cv::norm(meanColour(s) - mean_); }
  cv::Rect box() const {
    return {extent_.minX, extent_.minY, extent_.maxX - extent_.minX + 1, extent_.maxY - extent_.minY + 1};
  }

  /// The mean moves with every segment taken, so the order of taking matters.
  void take(int label, const Stats& s) {
    labels_.insert(label);
    const double before = extent_.count;
    extent_.count += s.count;
    mean_ = (mean_ * before + meanColour(s) * static_cast<double>(s.count)) / static_cast<double>(extent_.count);
    extent_.minX = std::min(extent_.minX, s.minX);
    extent_.minY = std::min(extent_.minY, s.minY);
    extent_.maxX = std::max(extent_.maxX, s.maxX);
    extent_.maxY = std::max(extent_.maxY, s.maxY);
  }

  /// Labels next to the region, ascending.
  std::vector<int> candidates(const Neighbours& neighbours) const {
    std::vector<int> found;
    for (const int label : labels_) {
      const auto entry = neighbours.find(label);
      if (entry == neighbours.end()) continue;
      for (const int next : entry->second) {
        if (!contains(next)) found.push_back(next);
      }
    }
    sortUnique(found);
    return found;
  }

 private:
  std::unordered_set<int> labels_;
  Stats extent_;
  cv::Vec3d mean_;
};

bool growOnce(Region& region, const Neighbours& neighbours, const StatsByLabel& stats, const GrowthLimits& limits) {
  bool grown = false;
  for (const int label : region.candidates(neighbours)) {
    const Stats& s = stats.at(label);
    if (region.colourDistance(s) > limits.maxColorDist || !limits.admitArea(region.areaWith(s))) continue;
    region.take(label, s);
    grown = true;
  }
  return grown;
}

cv::Rect grownRegionBox(const cv::Mat& labels, const cv::Mat& lab, const cv::Point& seed, const GrowthLimits& limits) {
  const StatsByLabel stats = collectStats(labels, lab);
  const auto seedStats = stats.find(labels.at<int>(seed));
  if (seedStats == stats.end()) return {};
  const Neighbours neighbours = findNeighbours(labels, stats.size());
  Region region(seedStats->first, seedStats->second);
  for (int pass = 0; pass < limits.steps; ++pass) {
    if (!growOnce(region, neighbours, stats, limits)) break;
  }
  return region.box();
}

/// The part of the image that is segmented, shrunk where it is large.
struct WorkImage {
  cv::Rect window;  ///< Image pixels.
  double scale = 1.0;
  cv::Mat pixels;

  cv::Point toWork(const cv::Point& p) const {
    cv::Point q(p.x - window.x, p.y - window.y);
    if (scale < 1.0) q = {roundToInt(q.x * scale), roundToInt(q.y * scale)};
    return {std::clamp(q.x, 0, pixels.cols - 1), std::clamp(q.y, 0, pixels.rows - 1)};
  }

  cv::Rect toImage(cv::Rect r) const {
    if (scale < 1.0) {
      r = {roundToInt(r.x / scale), roundToInt(r.y / scale), std::max(roundToInt(r.width / scale), 1),
           std::max(roundToInt(r.height / scale), 1)};
    }
    return r + window.tl();
  }
};

WorkImage makeWorkImage(const cv::Mat& image, const cv::Rect& window, int maxSide) {
  WorkImage work{window, 1.0, image(window)};
  const int shorter = std::min(window.width, window.height);
  if (maxSide < kMinShrinkSide || shorter <= maxSide) return work;
  work.scale = static_cast<double>(maxSide) / shorter;
  cv::resize(image(window), work.pixels, cv::Size(), work.scale, work.scale, cv::INTER_AREA);
  return work;
}

cv::Rect pad(const cv::Rect& r, int padPx, const cv::Size& image) {
  const int x = std::max(r.x - padPx, 0);
  const int y = std::max(r.y - padPx, 0);
  return {x, y, std::min(image.width - x, r.width + 2 * padPx), std::min(image.height - y, r.height + 2 * padPx)};
}

// A box of the size of `box`, never larger than `region`, centred on it.
cv::Rect centreOn(const cv::Rect& region, const cv::Rect& box) {
  const int width = std::min(std::max(box.width, 1), region.width);
  const int height = std::min(std::max(box.height, 1), region.height);
  const auto origin = [](int start, int outer, int inner) {
    return roundToInt(
        std::round(static_cast<float>(start) + 0.5F * static_cast<float>(outer) - 0.5F * static_cast<float>(inner)));
  };
  return {origin(region.x, region.width, width), origin(region.y, region.height, height), width, height};
}

}  // namespace

cv::Rect makeSearchWinAroundSeed(const cv::Rect& box, const cv::Point& seed, double scale, const cv::Size& imageSize) {
  if (imageSize.width < 1 || imageSize.height < 1) return {};
  const int w = std::min(std::max(roundToInt(box.width * scale), kMinSearchSide), imageSize.width);
  const int h = std::min(std::max(roundToInt(box.height * scale), kMinSearchSide), imageSize.height);
  return clipToFrame(shiftRect({seed.x, seed.y, w, h}, -w / 2, -h / 2), imageSize);
}

cv::Rect refineInit_GraphSegNearSeed(const cv::Mat& image, const cv::Rect& box, const cv::Point& seed,
                                     double searchScale, int maxSide, double sigma, float k, int minSize, int growSteps,
                                     double maxColorDist, double minAreaRatio, double maxAreaRatio, int padPx) {
  if (image.empty() || areaOf(box) < 1) return box;
  const cv::Rect window = makeSearchWinAroundSeed(box, seed, searchScale, image.size());
  if (!hasArea(window)) return box;

  const WorkImage work = makeWorkImage(image, window, maxSide);
  cv::Mat labels;
  cv::ximgproc::segmentation::createGraphSegmentation(sigma, k, minSize)->processImage(work.pixels, labels);
  if (labels.empty()) return box;
  cv::Mat lab;
  cv::cvtColor(work.pixels, lab, cv::COLOR_BGR2Lab);

  // Segment areas are work pixels, the box area image pixels: a shrunken search favours larger regions, as intended.
  const GrowthLimits limits{growSteps, maxColorDist, minAreaRatio, maxAreaRatio,
                            std::max(static_cast<double>(areaOf(box)), 1.0)};
  const cv::Rect grown = grownRegionBox(labels, lab, work.toWork(seed), limits);
  if (!hasArea(grown)) return box;

  const cv::Rect padded = pad(clipToFrame(work.toImage(grown), image.size()), padPx, image.size());
  if (!limits.admitArea(static_cast<double>(padded.width) * padded.height)) return box;
  return clipToFrame(centreOn(padded, box), image.size());
}
