// Draws what is known about the targets into a frame.
#pragma once

#include <deque>
#include <map>
#include <opencv2/core.hpp>
#include <string>
#include <vector>

#include "plugin/call_record.h"

namespace host {

/// Keeps the short past of every target that a picture shows: trail and motion.
class Annotator {
 public:
  /// A copy of the frame with every target drawn: the box by state (solid: seen, dashed: predicted, a marker:
  /// waiting or gone), processing window, motion arrow, score bar, trail, state and timing.
  /// Sizes follow the frame's height, so that 360p and 4K both can be read. Frames in order, each once.
  cv::Mat draw(const cv::Mat& frame, const std::vector<CallRecord>& records);

  /// The target was started over elsewhere: its trail and motion belong to something else.
  void forget(const std::string& target);

 private:
  struct Past {
    std::deque<cv::Point> trail;  ///< Centres of boxes that were seen, oldest first.
    cv::Point2f motion;           ///< Pixels per frame, between the last two boxes that were seen.
    cv::Rect lastBox;             ///< The last box there was.
    cv::Scalar colour;
  };
  Past& remember_(const CallRecord& record);

  std::map<std::string, Past> pasts_;
};

/// A line of text on a dark plate at the top of the picture.
void drawNote(cv::Mat& picture, const std::string& text);

}  // namespace host
