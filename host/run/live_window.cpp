#include "run/live_window.h"

#include <opencv2/highgui.hpp>
#include <opencv2/imgproc.hpp>

#include "base/host_error.h"
#include "base/interrupt.h"
#include "picture/annotate.h"

namespace host {
namespace {

constexpr int kKeyEscape = 27;
constexpr int kLookMs = 1;   // while running: just long enough for the window to draw itself
constexpr int kIdleMs = 20;  // while waiting for a person

class LiveWindow : public RunSteering {
 public:
  explicit LiveWindow(std::string title) : title_(std::move(title)) {
    cv::namedWindow(title_, cv::WINDOW_NORMAL | cv::WINDOW_KEEPRATIO | cv::WINDOW_GUI_NORMAL);
    const auto forward = [](int event, int x, int y, int /*flags*/, void* self) {
      static_cast<LiveWindow*>(self)->onMouse_(event, {x, y});
    };
    cv::setMouseCallback(title_, forward, this);
  }
  ~LiveWindow() override { cv::destroyWindow(title_); }

  std::optional<BBox> firstBox(const cv::Mat& frame) override {
    cv::resizeWindow(title_, frame.cols, frame.rows);
    shown_ = frame.clone();
    hint_ = "drag a box around the target";
    paused_ = true;
    while (!stop_ && !chosen_) wait_(kIdleMs);
    hint_.clear();
    paused_ = false;
    return takeBox_();
  }

  Steering after(const SourceFrame& frame, const std::vector<CallRecord>& records) override {
    if (frame.noSignal) {  // the last picture stays
      wait_(kLookMs);
      return {stop_, std::nullopt, std::nullopt, {}};
    }
    if (shown_.empty()) cv::resizeWindow(title_, frame.bgr.cols, frame.bgr.rows);
    shown_ = annotator_.draw(frame.bgr, records);
    step_ = false;
    wait_(kLookMs);
    while (!stop_ && !step_ && !chosen_ && (paused_ || dragging_)) wait_(kIdleMs);
    if (chosen_ && !records.empty()) annotator_.forget(records.front().target);
    return {stop_, takeBox_(), std::nullopt, {}};
  }

 private:
  /// Draws what there is and takes in one key.
  void wait_(int milliseconds) {
    cv::Mat picture = shown_;
    if (dragging_ || !hint_.empty() || paused_) {
      picture = shown_.clone();
      if (dragging_) cv::rectangle(picture, from_, to_, cv::Scalar(255, 255, 255), 2);
      drawNote(picture, hint_.empty() ? "paused: space goes on, . steps, drag a new box, q ends" : hint_);
    }
    cv::imshow(title_, picture);
    onKey_(cv::waitKey(milliseconds));
    const bool closed = cv::getWindowProperty(title_, cv::WND_PROP_VISIBLE) < 1;
    stop_ = stop_ || closed || interruptSignal() != 0;
  }

  void onKey_(int key) {
    if (key == 'q' || key == kKeyEscape) stop_ = true;
    if (key == ' ') paused_ = !paused_;
    if (key == '.') step_ = paused_ = true;
  }

  void onMouse_(int event, cv::Point at) {
    if (event == cv::EVENT_LBUTTONDOWN) {
      dragging_ = true;
      from_ = to_ = at;
    } else if (event == cv::EVENT_MOUSEMOVE && dragging_) {
      to_ = at;
    } else if (event == cv::EVENT_LBUTTONUP && dragging_) {
      dragging_ = false;
      chosen_ = draggedBox(from_, at, shown_.size());
    }
  }

  std::optional<BBox> takeBox_() {
    if (!chosen_) return std::nullopt;
    const cv::Rect b = *chosen_;
    chosen_.reset();
    return BBox{b.x, b.y, b.width, b.height};
  }

  std::string title_;
  Annotator annotator_;
  cv::Mat shown_;
  std::string hint_;
  bool paused_ = false;
  bool step_ = false;
  bool stop_ = false;
  bool dragging_ = false;
  cv::Point from_;
  cv::Point to_;
  std::optional<cv::Rect> chosen_;
};

}  // namespace

std::unique_ptr<RunSteering> openLiveWindow(const std::string& title) {
  const std::string fault = displayFault();
  if (!fault.empty()) throw HostError(ExitCode::Usage, fault);
  try {
    return std::make_unique<LiveWindow>(title);
  } catch (const cv::Exception& e) {
    throw HostError(ExitCode::Usage, "--show: no window can be opened (" + e.err + "); write --video FILE instead");
  }
}

}  // namespace host
