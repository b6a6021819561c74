// Whether the camera stands still: coarse grey pictures of whole frames, and how far they have moved.
#pragma once

#include <deque>
#include <opencv2/core.hpp>
#include <optional>

namespace csrt_guard {

class Backdrop {
 public:
  void clear() { notes_.clear(); }

  /// One frame, `frames` after the last that was noted. Costs less than a millisecond, whatever its size.
  void note(const cv::Mat& frame, int frames);

  /// How far what stands still has moved in the picture since that many frames before the last note, full-frame pixels,
  /// in steps of a 96th of the frame: where the pictures differ least, at most a tenth of a side. Empty: it cannot be
  /// told. Takes about a millisecond.
  std::optional<cv::Point2d> movedSince(int frames) const;

 private:
  struct Note {
    cv::Mat picture;
    int ago = 0;  ///< Frames before the last note.
  };
  std::deque<Note> notes_;  ///< The latest is the last.
  cv::Size frame_;
};

}  // namespace csrt_guard
