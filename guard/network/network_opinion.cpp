#include "csrt_guard/network_opinion.h"

#include <algorithm>
#include <cmath>
#include <opencv2/imgproc.hpp>
#include <opencv2/video/tracking.hpp>

namespace csrt_guard {
namespace {

// cv::TrackerVit cuts a square of four times the target's size around its last box and shrinks or grows it to 256
// pixels; its picture of the target is the middle 128 of such a square. Both are cut here instead, from wherever the
// guard wants to look, and the tracker is given squares in which the target is always of this size and in the middle:
// then it has nothing to cut, and its box, which grows over groups and cannot be set, means nothing.
constexpr int kCanvas = 256;
constexpr double kTargetsPerCanvas = 4.0;
const cv::Rect kMiddle(96, 96, 64, 64);
constexpr double kSmallest = 2.0;  // pixels: side of a target that can be looked for
constexpr double kLargest = 1e5;

bool usable(const cv::Mat& frame, const cv::Rect& box) {
  if (frame.empty() || frame.dims != 2 || frame.depth() != CV_8U) return false;
  if (frame.channels() != 1 && frame.channels() != 3 && frame.channels() != 4) return false;
  return box.width >= kSmallest && box.height >= kSmallest && box.width < kLargest && box.height < kLargest &&
         std::abs(static_cast<double>(box.x)) < kLargest && std::abs(static_cast<double>(box.y)) < kLargest &&
         !(box & cv::Rect({}, frame.size())).empty();
}

/// The square around a box, in full-frame pixels; may lie partly outside the frame.
struct Square {
  explicit Square(const cv::Rect& box) {
    const double wanted = kTargetsPerCanvas * std::sqrt(static_cast<double>(box.width) * box.height);
    side = std::max(4, cvCeil(wanted));
    left = cvRound(box.x + (box.width - side) / 2.0);
    top = cvRound(box.y + (box.height - side) / 2.0);
  }
  int side = 0, left = 0, top = 0;

  /// 8-bit BGR, kCanvas x kCanvas; black outside the frame.
  cv::Mat cutFrom(const cv::Mat& frame) const {
    const cv::Rect square(left, top, side, side);
    const cv::Rect inside = square & cv::Rect({}, frame.size());
    const double scale = static_cast<double>(kCanvas) / side;
    cv::Mat canvas = cv::Mat::zeros(kCanvas, kCanvas, CV_8UC3);
    const cv::Point from(cvRound((inside.x - left) * scale), cvRound((inside.y - top) * scale));
    const cv::Point to(cvRound((inside.br().x - left) * scale), cvRound((inside.br().y - top) * scale));
    const cv::Rect part = cv::Rect(from, to) & cv::Rect(0, 0, kCanvas, kCanvas);
    if (part.empty()) return canvas;
    cv::Mat shown;
    cv::resize(frame(inside), shown, part.size(), 0, 0, scale < 1.0 ? cv::INTER_AREA : cv::INTER_LINEAR);
    if (shown.channels() != 3) {
      cv::cvtColor(shown, shown, shown.channels() == 1 ? cv::COLOR_GRAY2BGR : cv::COLOR_BGRA2BGR);
    }
    shown.copyTo(canvas(part));
    return canvas;
  }

  cv::Rect inFrame(const cv::Rect& box) const {
    const double scale = static_cast<double>(side) / kCanvas;
    return {cvRound(left + box.x * scale), cvRound(top + box.y * scale), std::max(1, cvRound(box.width * scale)),
            std::max(1, cvRound(box.height * scale))};
  }
};

class NetworkOpinion : public SecondOpinion {
 public:
  explicit NetworkOpinion(cv::Ptr<cv::TrackerVit> tracker) : tracker_(std::move(tracker)) {}

  bool start(const cv::Mat& frame, const cv::Rect& box) noexcept override {
    target_.release();
    try {
      if (usable(frame, box)) target_ = Square(box).cutFrom(frame);
    } catch (const std::exception&) {
      return false;
    }
    return !target_.empty();
  }

  std::optional<Opinion> look(const cv::Mat& frame, const cv::Rect& around) noexcept override {
    if (target_.empty() || !usable(frame, around)) return std::nullopt;
    try {
      const Square square(around);
      const std::optional<Opinion> found = lookIn(square.cutFrom(frame));
      if (!found) return std::nullopt;
      return Opinion{square.inFrame(found->box), found->score};
    } catch (const std::exception&) {
      return std::nullopt;
    }
  }

  void forget() { target_.release(); }

  /// The same in a square of kCanvas; lets what OpenCV throws through.
  std::optional<Opinion> lookIn(const cv::Mat& canvas) {
    cv::Rect box;
    tracker_->init(target_, kMiddle);  // cheap: the picture of the target is handed on, nothing is computed
    if (!tracker_->update(canvas, box) || box.width < 1 || box.height < 1) return std::nullopt;
    const double score = tracker_->getTrackingScore();
    if (!std::isfinite(score)) return std::nullopt;
    return Opinion{box, std::clamp(score, 0.0, 1.0)};
  }

 private:
  cv::Ptr<cv::TrackerVit> tracker_;
  cv::Mat target_;  ///< The target in its square, as it was at the start.
};

}  // namespace

std::unique_ptr<SecondOpinion> readNetworkOpinion(const std::string& file, std::string& fault) {
  try {
    cv::TrackerVit::Params params;
    params.net = file;
    auto opinion = std::make_unique<NetworkOpinion>(cv::TrackerVit::create(params));
    const cv::Mat picture(kCanvas, kCanvas, CV_8UC3, cv::Scalar(110, 120, 130));
    opinion->start(picture, kMiddle);
    opinion->lookIn(picture);
    opinion->forget();
    return opinion;
  } catch (const cv::Exception& e) {
    fault = e.err;
  } catch (const std::exception& e) {
    fault = e.what();
  }
  std::replace(fault.begin(), fault.end(), '\n', ' ');
  return nullptr;
}

}  // namespace csrt_guard
