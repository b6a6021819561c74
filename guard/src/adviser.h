// Asks the second opinion and keeps what follows from it: which box is to be judged, and where to ask next.
#pragma once

#include <functional>
#include <memory>
#include <opencv2/core.hpp>
#include <optional>

#include "csrt_guard/csrt_guard.h"
#include "csrt_guard/second_opinion.h"

namespace csrt_guard {

/// How like the target a box of the frame in hand is: 0 as its surroundings, 1 as usual. Empty: cannot be judged.
using MarginOf = std::function<std::optional<double>(const cv::Rect&)>;

/// What a score of a second opinion says: how much likelier it is for the target than for another of its kind.
double scoreFactor(double score);

/// Nothing of this needs an opinion to be there: without one the tracker's answers are passed on.
class Adviser {
 public:
  void consult(std::unique_ptr<SecondOpinion> opinion) { opinion_ = std::move(opinion); }
  bool present() const { return opinion_ != nullptr && started_; }

  void start(const cv::Mat& frame, const cv::Rect& box);

  /// Asks about this frame. @param expected  where a lost target should be; empty while it is followed
  /// @return the answer to judge: the tracker's, or the opinion's where the two part and more speaks for that
  Answer hear(const cv::Mat& frame, const Answer& told, const std::optional<cv::Rect>& expected,
              const MarginOf& margin);

  /// Of a find: the opinion's own box of it where that is one, and how much its score speaks for it.
  std::optional<Opinion> lookAt(const cv::Mat& frame, const cv::Rect& box);

  /// Completes the verdict on the answer of hear(): a box that is the opinion's alone becomes a start of the tracker.
  void conclude(Verdict& verdict, const Answer& told);

 private:
  cv::Rect limited_(const cv::Rect& found) const;
  void follow_(const cv::Rect& box);

  std::unique_ptr<SecondOpinion> opinion_;
  bool started_ = false;
  cv::Size2d startSize_;
  cv::Size2d size_;                ///< Of the target, followed slowly: a box grows over groups.
  cv::Rect at_;                    ///< Where it was last.
  std::optional<Opinion> latest_;  ///< Of the frame in hand, with its size limited.
  bool chosen_ = false;            ///< Its box is what is judged.
  int parted_ = 0;                 ///< Frames in a row in which tracker and opinion were apart.
};

}  // namespace csrt_guard
