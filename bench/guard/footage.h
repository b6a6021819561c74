// Decoded clips and the truth about who walks through them, as the comparisons use them.
#pragma once

#include <functional>
#include <opencv2/core.hpp>
#include <optional>
#include <set>
#include <string>
#include <vector>

#include "evaluation/truth.h"
#include "input/frame_source.h"

namespace bench {

/// How a clip is to be read.
struct FootageOptions {
  bool backwards = false;  ///< From its end to its beginning; times and numbers still rise.
  bool grey = false;       ///< Without colour, in three channels that are the same.
  cv::Size enlarge;        ///< Frames are stretched to this size; empty: as they are.
};

/// A clip, decoded once. Any thread may read it.
class Footage {
 public:
  /// @param source  a video, a folder or a pattern of pictures. @throws HostError (Source) when it cannot be opened
  Footage(const std::string& source, const FootageOptions& options);

  long count() const { return static_cast<long>(frames_.size()); }
  /// The frame at `index`, its pixels enlarged where that was asked for. @throws std::out_of_range
  host::SourceFrame at(long index) const;
  /// Of the frames that at() gives, pixels.
  cv::Size size() const;
  /// The marks as they lie in the frames that at() gives.
  host::TruthTarget fitted(host::TruthTarget target) const;
  /// Names the frames that at() gives, for AnswerCache.
  const std::string& scene() const { return scene_; }

 private:
  std::vector<host::SourceFrame> frames_;
  FootageOptions options_;
  std::string scene_;
};

/// A frame by its number.
using Frames = std::function<host::SourceFrame(long)>;

/// The box in whole pixels, at least 1 x 1. Pure.
cv::Rect whole(const cv::Rect2d& box);

/// Where the target is between two marks, on a straight line; empty before the first mark, after the last one and where
/// a mark says that it is absent. Pure.
std::optional<cv::Rect2d> truthAt(const host::TruthTarget& target, long frame);

/// Names of the half that `csrt-track tune` holds back: by their number of marks, every second one from the top. Pure.
std::set<std::string> heldBack(std::vector<host::TruthTarget> targets);

}  // namespace bench
