// Asks the second opinion and keeps what follows from it: which box is to be judged, and where to ask next.
#pragma once

#include <functional>
#include <memory>
#include <opencv2/core.hpp>
#include <optional>

#include "colour_model.h"
#include "csrt_guard/csrt_guard.h"
#include "csrt_guard/second_opinion.h"
#include "target_motion.h"

namespace csrt_guard {

/// What the colours say of a box of the frame in hand.
struct ColourLook {
  double margin = 0.0;  ///< 0 as the target's surroundings, 1 as usual.
  HalfColours look{};
  double kind = 0.0;  ///< Logarithm of how many times likelier that is the target's look than that of those beside it.
};
using LookOf = std::function<std::optional<ColourLook>(const cv::Rect&)>;  ///< Empty: cannot be judged.

/// What the adviser made of one frame.
struct Advice {
  Answer answer;         ///< To be judged: the tracker's, or the opinion's where the two part and more speaks for that.
  bool vouched = false;  ///< The opinion goes along with it, moved on as before and looks as it did a moment ago.
  bool back = false;     ///< The opinion has it again after a short time without.
};

/// Nothing of this needs an opinion to be there: without one, present() is false.
class Adviser {
 public:
  void consult(std::unique_ptr<SecondOpinion> opinion) { opinion_ = std::move(opinion); }
  bool present() const { return opinion_ != nullptr && started_; }

  void start(const cv::Mat& frame, const cv::Rect& box);

  /// Asks about this frame. @param expected  where a target lost long ago should be; empty while it is followed
  Advice hear(const cv::Mat& frame, const Answer& told, const std::optional<cv::Rect>& expected, const LookOf& lookOf);

  /// What the opinion says of a find, its size limited; empty: it does not see the target there.
  std::optional<Opinion> confirm(const cv::Mat& frame, const cv::Rect& find) const;

  /// Completes the verdict on the answer of hear(): a box that is the opinion's alone becomes a start of the tracker.
  void conclude(Verdict& verdict, const Answer& told);

 private:
  bool follows_(const cv::Mat& frame, const std::optional<cv::Rect>& expected);
  bool staysItself_(const ColourLook& now, bool held);
  bool isRather_(const ColourLook& here, const ColourLook& there) const;
  void note_(bool seen);
  cv::Rect limited_(const cv::Rect& found) const;
  void isIn_(const cv::Rect& box);

  std::unique_ptr<SecondOpinion> opinion_;
  bool started_ = false;
  cv::Size2d startSize_;
  cv::Size2d size_;                  ///< Of the target, followed slowly: a box grows over groups.
  TargetMotion motion_;              ///< Of what the opinion follows.
  cv::Point2d from_;                 ///< Where it was last seen.
  std::optional<Opinion> latest_;    ///< Of the frame in hand, its size limited.
  std::optional<HalfColours> look_;  ///< Of what the opinion follows, mostly of late.
  bool chosen_ = false;              ///< Its box is what is judged.
  int together_ = 0;                 ///< Frames in a row in which the opinion followed something.
  int gap_ = 0;                      ///< Frames for which it did not, before those.
  int alike_ = 0;                    ///< Frames in a row in which what it followed looked very much like the target.
  int parted_ = 0;                   ///< Frames in a row in which tracker and opinion were apart.
};

}  // namespace csrt_guard
