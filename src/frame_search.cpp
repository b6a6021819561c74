#include "frame_search.h"

#include <algorithm>
#include <cmath>
#include <opencv2/imgproc.hpp>

#include "window_geometry.h"

namespace {

constexpr int kSmallestTemplate = 5;  // matching fewer pixels finds everything everywhere
constexpr int kSmallestAppearance = 7;
constexpr int kCoarseSide = 320;         // the first search never looks at more pixels on the shorter side
constexpr double kSureScale = 0.95;      // such a hit ends the search over sizes ...
constexpr double kSurePatch = 0.97;      // ... and such a one over patches
constexpr double kAppearanceCore = 0.6;  // middle part of a box that shows mostly target, box sides
constexpr double kPlausibleReach = 3.0;  // diagonals of the reference from its centre ...
constexpr double kLeastReach = 80.0;     // ... but at least so many pixels
constexpr double kNearReach = 0.25;      // share of the plausible distance within which a find is near ...
constexpr double kNearScore = 0.7;       // ... and this share of the threshold will do
constexpr double kStrongOverlap = 0.7;   // a find that overlaps the reference so much ...
constexpr double kStrongReach = 0.3;     // ... within this share of the plausible distance need not look like it

// Size that OpenCV gives a picture resized by a factor.
cv::Size scaledSize(const cv::Size& size, double factor) {
  return {cv::saturate_cast<int>(size.width * factor), cv::saturate_cast<int>(size.height * factor)};
}

bool isSmallerThan(const cv::Size& size, int side) {
  return size.width < side || size.height < side;
}

bool isLargerThan(const cv::Size& size, int side) {
  return size.width > side && size.height > side;
}

// The middle of `r`, or all of it where the middle is too small to compare.
cv::Rect appearanceCore(const cv::Rect& r) {
  const int w = std::max(roundToInt(kAppearanceCore * r.width), 4);
  const int h = std::max(roundToInt(kAppearanceCore * r.height), 4);
  const cv::Rect core = intersectRects({r.x + (r.width - w) / 2, r.y + (r.height - h) / 2, w, h}, r);
  return isLargerThan(core.size(), kSmallestAppearance) ? core : r;
}

double intersectionOverUnion(const cv::Rect& a, const cv::Rect& b) {
  const auto common = static_cast<double>(areaOf(intersectRects(a, b)));
  const double together = static_cast<double>(areaOf(a)) + static_cast<double>(areaOf(b)) - common;
  return areaOf(a) < 1 || together <= 0.0 ? 0.0 : common / together;
}

double distanceBetween(const cv::Point2f& a, const cv::Point2f& b) {
  const cv::Point2f step = a - b;
  return std::sqrt(double{step.x} * step.x + double{step.y} * step.y);
}

}  // namespace

NearMatch findNear(const GpuImage& image, const GpuImage& templ, const cv::Point2d& centre, const cv::Size2d& object,
                   int minSide, SearchMemory& memory) {
  NearMatch match;
  if (templ.empty() || image.empty()) return match;
  match.object = {std::max(roundToInt(object.width), templ.cols()), std::max(roundToInt(object.height), templ.rows())};
  match.region = clipToFrame(fineSearchRect(centre, match.object, minSide), image.size());
  if (!hasArea(match.region)) return match;
  match.tooSmall = match.region.width < templ.cols() || match.region.height < templ.rows();
  if (match.tooSmall) return match;
  gpuMatchTemplate(image.region(match.region), templ, memory.scores, cv::TM_CCOEFF_NORMED);
  const BestMatch best = bestMatch(memory.scores, memory.scoreMap);
  match.score = best.score;
  match.box = {match.region.x + best.place.x, match.region.y + best.place.y, templ.cols(), templ.rows()};
  return match;
}

double likenessAt(const GpuImage& image, const GpuImage& patch, const cv::Rect& box) {
  if (patch.empty() || image.empty()) return 0.0;
  const cv::Rect r = clipToFrame(box, image.size());
  if (!isLargerThan(r.size(), kSmallestAppearance)) return 0.0;
  const cv::Mat candidate = image.region(appearanceCore(r)).download();
  cv::Mat wanted = patch.region(appearanceCore({{}, patch.size()})).download();
  if (wanted.size() != candidate.size()) cv::resize(wanted, wanted, candidate.size(), 0.0, 0.0, cv::INTER_LINEAR);
  cv::Mat similarity;
  cv::matchTemplate(candidate, wanted, similarity, cv::TM_CCOEFF_NORMED);
  double best = 0.0;
  cv::minMaxLoc(similarity, nullptr, &best);
  return best;
}

SearchReference referenceAt(const cv::Rect& box) {
  if (!hasArea(box)) return {box, 0.0};
  const auto w = static_cast<double>(box.width);
  const auto h = static_cast<double>(box.height);
  return {box, std::max(kPlausibleReach * std::sqrt(w * w + h * h), kLeastReach)};
}

SearchVerdict judgeFind(const cv::Rect& find, double score, double likeness, const SearchReference& reference,
                        const SearchLimits& limits) {
  const bool hasReference = hasArea(reference.box);
  SearchVerdict verdict;
  if (hasReference) {
    verdict.dist = distanceBetween(centreOf(find), centreOf(reference.box));
    verdict.areaRatio = static_cast<double>(areaOf(find)) / static_cast<double>(areaOf(reference.box));
    verdict.scaleOK = limits.minAreaRatio <= verdict.areaRatio && verdict.areaRatio <= limits.maxAreaRatio &&
                      !(verdict.dist > reference.maxDist);  // the distance is part of the same test, on purpose
    verdict.near = verdict.dist < kNearReach * reference.maxDist;
  }
  verdict.overlap = intersectionOverUnion(reference.box, find);
  verdict.geomStrong =
      hasReference && verdict.overlap >= kStrongOverlap && verdict.dist <= kStrongReach * reference.maxDist;
  verdict.looksRight = verdict.geomStrong || likeness >= kMinLikeness;
  verdict.nearScore = kNearScore * limits.threshold;
  const bool scoreOK = score > limits.threshold || (hasReference && verdict.near && score > verdict.nearScore);
  verdict.accepted = verdict.looksRight && verdict.scaleOK && scoreOK;
  return verdict;
}

FrameSearch::FrameSearch(const GpuImage& frame, const std::vector<SearchPatch>& patches, const SearchLimits& limits,
                         SearchMemory& memory)
    : frame_(frame), patches_(patches), limits_(limits), memory_(memory) {
  times_.start = times_.shrunk = times_.coarse = times_.fine = cv::getTickCount();
}

bool FrameSearch::tryShrinkFrame() {
  const cv::Size full = frame_.size();
  const int shorter = std::min(full.width, full.height);
  if (shorter < 1) return false;
  factor_ = limits_.coarseFactor;
  if (shorter > kCoarseSide) factor_ = std::min(factor_, static_cast<double>(kCoarseSide) / shorter);
  if (!(factor_ > 0.0)) factor_ = 1.0;
  if (isSmallerThan(scaledSize(full, factor_), kSmallestTemplate)) return false;
  if (factor_ != 1.0) resizeImage(frame_, memory_.coarse, {}, factor_, factor_, cv::INTER_AREA);
  times_.shrunk = cv::getTickCount();
  return true;
}

bool FrameSearch::searchCoarse() {
  for (const SearchPatch& patch : patches_) {
    matchAtScales_(patch);
    if (coarseScore_ > kSurePatch) break;
  }
  times_.coarse = cv::getTickCount();
  return best_.image != nullptr;
}

void FrameSearch::matchAtScales_(const SearchPatch& patch) {
  const bool tooSmall = isSmallerThan(patch.image->size(), kSmallestTemplate) ||
                        isSmallerThan(scaledSize(patch.image->size(), factor_), kSmallestTemplate);
  if (tooSmall) {
    ++counts_.smallPatches;
    return;
  }
  if (factor_ != 1.0) resizeImage(*patch.image, memory_.patch, {}, factor_, factor_, cv::INTER_LINEAR);
  const GpuImage& coarse = factor_ != 1.0 ? memory_.coarse : frame_;
  const GpuImage& shrunken = factor_ != 1.0 ? memory_.patch : *patch.image;
  for (const double scale : *patch.scales) {
    ++counts_.scalesTested;
    const cv::Size size(std::max(roundToInt(shrunken.cols() * scale), kSmallestTemplate),
                        std::max(roundToInt(shrunken.rows() * scale), kSmallestTemplate));
    if (size.width > coarse.cols() || size.height > coarse.rows()) {
      ++counts_.scalesSkippedSize;
      continue;
    }
    if (size != shrunken.size()) resizeImage(shrunken, memory_.templ, size, 0.0, 0.0, cv::INTER_LINEAR);
    const GpuImage& templ = size != shrunken.size() ? memory_.templ : shrunken;
    if (matchBeatsBest_(patch, coarse, templ) && coarseScore_ > kSureScale) break;
  }
}

bool FrameSearch::matchBeatsBest_(const SearchPatch& patch, const GpuImage& coarse, const GpuImage& templ) {
  ++counts_.matchCalls;
  gpuMatchTemplate(coarse, templ, memory_.scores, cv::TM_CCOEFF_NORMED);
  const BestMatch match = bestMatch(memory_.scores, memory_.scoreMap);
  if (!(match.score > coarseScore_)) return false;  // equal: the earlier hit stays
  coarseScore_ = match.score;
  best_ = patch;
  bestPlace_ = match.place;
  bestTemplate_ = templ.size();
  return true;
}

NearMatch FrameSearch::searchFine() {
  const double back = 1.0 / factor_;
  const NearMatch match =
      findNear(frame_, *best_.image, {bestPlace_.x * back, bestPlace_.y * back},
               {bestTemplate_.width * back, bestTemplate_.height * back}, limits_.fineSide, memory_);
  times_.fine = cv::getTickCount();
  return match;
}
