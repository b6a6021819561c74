// Finding a lost target in a whole frame: a coarse search of the shrunken frame, a fine one around its hit, and whether
// the find can be believed. Nothing here locks, logs or knows a tracker; CSRTTrackingAlgo::reDetectGlobally_Locked_()
// walks through the steps and says what they came to. Boxes are frame pixels unless a name says coarse.
#pragma once

#include <cstdint>
#include <opencv2/core.hpp>
#include <vector>

#include "gpu_image.h"

/// A picture of the target and the sizes it is tried at. Both outlive the search.
struct SearchPatch {
  const GpuImage* image = nullptr;              ///< 8-bit grey, of the size it has in the frame.
  const std::vector<double>* scales = nullptr;  ///< Factors of its size, in the order of trying.
  const char* source = "none";                  ///< Its name in log lines: "orig" or "dyn".
};

/// What the configuration says about a search.
struct SearchLimits {
  double coarseFactor = 0.25;  ///< By what the frame is shrunk for the coarse search; 0 and less: not at all.
  int fineSide = 200;          ///< Least side of the region searched finely, pixels.
  double threshold = 0.8;      ///< Likeness that a find must exceed. [-1, 1]
  double minAreaRatio = 0.3;   ///< Least area of a find, in areas of the reference.
  double maxAreaRatio = 2.5;   ///< Largest area of a find, likewise.
};

/// Scratch of a search; keep it between searches and little is allocated.
struct SearchMemory {
  GpuImage coarse;   ///< The shrunken frame.
  GpuImage patch;    ///< A patch, shrunken likewise.
  GpuImage templ;    ///< That at one of its scales.
  GpuImage scores;   ///< The map of a match.
  cv::Mat scoreMap;  ///< The same in host memory.
};

/// The best place for a template near a point.
struct NearMatch {
  double score = -1.0;    ///< [-1, 1]; -1: none.
  cv::Rect box;           ///< Of the template's size; empty: none.
  cv::Rect region;        ///< What was searched; empty: it lies outside the image.
  cv::Size object;        ///< The size the region was made for, pixels.
  bool tooSmall = false;  ///< The region holds no whole template.
};

/// @param centre   where the region is centred, image pixels
/// @param object   pixels; at least the template's size is taken
/// @param minSide  least side of the region before it is clipped to the image
NearMatch findNear(const GpuImage& image, const GpuImage& templ, const cv::Point2d& centre, const cv::Size2d& object,
                   int minSide, SearchMemory& memory);

/// Likeness of the middle of `image` at `box` to the middle of `patch`, [-1, 1]; 0 when it cannot be told: no pixels,
/// or a box too small to compare.
double likenessAt(const GpuImage& image, const GpuImage& patch, const cv::Rect& box);

/// Where the target was last believed to be.
struct SearchReference {
  cv::Rect box;          ///< Without area: unknown.
  double maxDist = 0.0;  ///< Farthest from its centre that a find is plausible, pixels.
};
/// The plausible distance is three diagonals of the box, at least 80 pixels; 0 for a box without area. Pure.
SearchReference referenceAt(const cv::Rect& box);

/// Whether a find can be believed, with the numbers that decided.
struct SearchVerdict {
  double dist = 0.0;        ///< From the reference's centre to the find's, pixels; 0 without a reference.
  double areaRatio = 1.0;   ///< Area of the find in areas of the reference.
  bool scaleOK = true;      ///< Size and distance are plausible.
  bool near = false;        ///< So near that a lower score will do.
  double overlap = 0.0;     ///< Intersection over union with the reference.
  bool geomStrong = false;  ///< It lies where the target was, so it need not look like it.
  bool looksRight = false;  ///< It lies there, or it looks like the target at the start.
  double nearScore = 0.0;   ///< The score that will do for a near find.
  bool accepted = false;    ///< All of it: believe the find.
};
/// Pure. @param likeness  of the find to the target at the start, see likenessAt()
SearchVerdict judgeFind(const cv::Rect& find, double score, double likeness, const SearchReference& reference,
                        const SearchLimits& limits);

/// Least likeness() of a find that does not lie where the target was.
inline constexpr double kMinLikeness = 0.6;

/// One search, step by step: tryShrinkFrame(), searchCoarse(), searchFine(). For one thread.
class FrameSearch {
 public:
  /// What was tried, for the log.
  struct Counts {
    int smallPatches = 0;       ///< Patches left out because they are too small.
    int scalesTested = 0;       ///< Sizes looked at ...
    int scalesSkippedSize = 0;  ///< ... of which so many do not fit into the shrunken frame.
    int matchCalls = 0;         ///< Template matches run.
  };
  /// Ticks of cv::getTickCount() at the end of each step; the start where a step was not reached.
  struct Times {
    std::int64_t start = 0;   ///< Of the search.
    std::int64_t shrunk = 0;  ///< tryShrinkFrame() has ended.
    std::int64_t coarse = 0;  ///< searchCoarse() has ended.
    std::int64_t fine = 0;    ///< searchFine() has ended.
  };

  /// @param frame, patches, memory  outlive the search; `frame` is 8-bit grey
  FrameSearch(const GpuImage& frame, const std::vector<SearchPatch>& patches, const SearchLimits& limits,
              SearchMemory& memory);

  /// Makes the coarse frame. @return false when it would be too small to search
  bool tryShrinkFrame();
  /// Tries every patch at every size on the coarse frame. @return false when nothing fits anywhere
  bool searchCoarse();
  /// Searches for the best patch around the coarse hit. The region is centred on the hit's corner, not its middle: its
  /// least side covers the difference.
  NearMatch searchFine();

  double factor() const { return factor_; }            ///< By what the frame was shrunk. (0, 1] in practice
  double coarseScore() const { return coarseScore_; }  ///< Of the best coarse hit; -1: none. [-1, 1]
  const char* source() const { return best_.source; }  ///< Whose hit that is; "none".
  /// Of the patch that hit best, pixels; no area: none hit.
  cv::Size bestPatchSize() const { return best_.image == nullptr ? cv::Size() : best_.image->size(); }
  const Counts& counts() const { return counts_; }  ///< So far.
  const Times& times() const { return times_; }     ///< So far.

 private:
  void matchAtScales_(const SearchPatch& patch);
  bool matchBeatsBest_(const SearchPatch& patch, const GpuImage& coarse, const GpuImage& templ);

  const GpuImage& frame_;
  const std::vector<SearchPatch>& patches_;
  SearchLimits limits_;
  SearchMemory& memory_;
  double factor_ = 1.0;
  double coarseScore_ = -1.0;
  SearchPatch best_;
  cv::Point bestPlace_;    // coarse pixels
  cv::Size bestTemplate_;  // coarse pixels
  Counts counts_;
  Times times_;
};
