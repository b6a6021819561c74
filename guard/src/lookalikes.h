// What looks like the target but is not: places that were there while the target was followed elsewhere.
#pragma once

#include <cstddef>
#include <opencv2/core.hpp>
#include <vector>

#include "target_search.h"

namespace csrt_guard {

/// Follows lookalikes from search to search by nearness, so that none of them is taken for the target when it is gone.
class Lookalikes {
 public:
  void clear() { all_.clear(); }

  /// While the target is known to be in `target`: every other place is a lookalike.
  /// @param frames  frames since the last call of either kind
  void learn(const std::vector<Place>& places, const cv::Rect2d& target, int frames);

  /// While the target is lost: takes the lookalikes along with the places that are theirs.
  /// @param expected  where the target should be: a place nearer to that than to a lookalike is not the lookalike's
  /// @return the places that are nobody's, in their order
  std::vector<Place> follow(const std::vector<Place>& places, const cv::Rect2d& expected, int frames);

  std::size_t count() const { return all_.size(); }

 private:
  struct Lookalike {
    cv::Rect2d box;
    cv::Point2d velocity;  ///< Pixels a frame.
    int unseen = 0;        ///< Frames.
  };
  std::vector<bool> match_(const std::vector<Place>& places, const cv::Rect2d* expected, int frames);
  std::vector<Lookalike> all_;
};

}  // namespace csrt_guard
