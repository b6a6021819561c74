// The inset below the gimbal's view: the whole scene, what the camera sees of it, and where it is told to look.
#include <fmt/format.h>

#include <algorithm>
#include <cmath>
#include <opencv2/imgproc.hpp>

#include "simulator/simulation_outputs.h"

namespace host::sim {
namespace {

constexpr int kFont = cv::FONT_HERSHEY_SIMPLEX;
const cv::Scalar kView(80, 255, 255);
const cv::Scalar kTarget(70, 70, 240);
const cv::Scalar kAsked(255, 200, 60);
const cv::Scalar kDark(30, 30, 30);

struct InsetSizes {
  explicit InsetSizes(int width) : scale(std::clamp(width / 640.0, 0.5, 6.0)) {}
  int px(double at640) const { return std::max(1, static_cast<int>(std::lround(at640 * scale))); }
  double scale;
};

/// A mark with a dark rim: it must be seen on sky and ground.
void mark(cv::Mat& picture, cv::Point at, int kind, const cv::Scalar& colour, const InsetSizes& sizes) {
  cv::drawMarker(picture, at, kDark, kind, sizes.px(13), sizes.px(3));
  cv::drawMarker(picture, at, colour, kind, sizes.px(11), sizes.px(1.5));
}

std::string lineOf(const SimulatedFrame& frame) {
  const View& view = frame.camera.view;
  std::string line = fmt::format("{}  pan {:.1f}  tilt {:.1f}  field of view {:.1f} deg", name(frame.camera.phase),
                                 view.centre.pan, view.centre.tilt, view.hfov);
  if (frame.camera.asked) {
    line += fmt::format("  asked for {:.1f}, {:.1f}", wrapped(frame.camera.asked->pan), frame.camera.asked->tilt);
  }
  return line;
}

void writeLine(cv::Mat& picture, const std::string& text, const InsetSizes& sizes) {
  const cv::Rect bar(0, picture.rows - sizes.px(18), picture.cols, sizes.px(18));
  cv::rectangle(picture, bar, kDark, cv::FILLED);
  cv::putText(picture, text, {sizes.px(6), bar.y + sizes.px(13)}, kFont, 0.4 * sizes.scale, cv::Scalar::all(255),
              sizes.px(1), cv::LINE_AA);
}

/// While the gimbal turns nothing keeps its place in the picture: the given box on the first frame, then a cross where
/// the plug-in's angles lie now.
void drawPointing(cv::Mat& picture, const SimulatedFrame& frame, const InsetSizes& sizes) {
  const CallRecord& record = frame.record;
  if (record.isInit && record.givenBox) {
    cv::rectangle(picture, *record.givenBox, kDark, sizes.px(3));
    cv::rectangle(picture, *record.givenBox, kAsked, sizes.px(1.5));
  } else if (frame.camera.asked) {
    const cv::Point2d at = pixelOf(*frame.camera.asked, frame.camera.view, picture.size());
    mark(picture, {cvRound(at.x), cvRound(at.y)}, cv::MARKER_TILTED_CROSS, kAsked, sizes);
  }
  const std::string text = fmt::format("{}  {:.2f} s", host::name(record.state), record.time_s);
  cv::putText(picture, text, {sizes.px(6), sizes.px(16)}, kFont, 0.45 * sizes.scale, kDark, sizes.px(3), cv::LINE_AA);
  cv::putText(picture, text, {sizes.px(6), sizes.px(16)}, kFont, 0.45 * sizes.scale, kAsked, sizes.px(1), cv::LINE_AA);
}

}  // namespace

void SimulationAnnotator::begin(const Scenario& scenario, const Panorama& panorama) {
  frame_ = scenario.frame;
  tiltSpan_ = panorama.tiltSpan();
  overview_ = panorama.overview(frame_.width);
}

cv::Size SimulationAnnotator::size() const {
  return {frame_.width, frame_.height + overview_.rows + InsetSizes(frame_.width).px(18)};
}

cv::Point SimulationAnnotator::onInset_(const Angles& direction) const {
  return {cvRound((wrapped(direction.pan) + 180.0) / 360.0 * overview_.cols),
          cvRound((0.5 - direction.tilt / tiltSpan_) * overview_.rows)};
}

cv::Mat SimulationAnnotator::drawInset_(const SimulatedFrame& frame) const {
  const InsetSizes sizes(frame_.width);
  cv::Mat inset = overview_.clone();
  const View& view = frame.camera.view;
  const cv::Point centre = onInset_(view.centre);
  const cv::Size half(cvRound(view.hfov / 720.0 * inset.cols), cvRound(0.5 * view.vfov / tiltSpan_ * inset.rows));
  for (const int turn : {-inset.cols, 0, inset.cols}) {  // a view across the seam shows on both sides
    const cv::Rect outline(centre.x + turn - half.width, centre.y - half.height, 2 * half.width, 2 * half.height);
    cv::rectangle(inset, outline, kDark, sizes.px(3));
    cv::rectangle(inset, outline, kView, sizes.px(1.5));
  }
  if (frame.truth.there) mark(inset, onInset_(frame.truth.direction), cv::MARKER_DIAMOND, kTarget, sizes);
  if (frame.camera.asked && frame.camera.phase == HostPhase::Pointing) {
    mark(inset, onInset_(*frame.camera.asked), cv::MARKER_CROSS, kAsked, sizes);
  }
  return inset;
}

cv::Mat SimulationAnnotator::draw(const SimulatedFrame& frame) {
  cv::Mat picture(size(), CV_8UC3, kDark);
  const InsetSizes sizes(frame_.width);
  cv::Mat view = picture(cv::Rect(cv::Point(), frame_));
  if (frame.camera.phase == HostPhase::Pointing) {
    frame.bgr.copyTo(view);
    drawPointing(view, frame, sizes);
  } else {
    annotator_.draw(frame.bgr, {frame.record}).copyTo(view);
  }
  const cv::Point middle(frame_.width / 2, frame_.height / 2);
  mark(picture, middle, cv::MARKER_CROSS, cv::Scalar::all(255), sizes);
  if (frame.truth.visibleShare > 0) {
    const cv::Rect truth = cv::Rect(frame.truth.box) & cv::Rect(cv::Point(), frame_);
    if (!truth.empty()) cv::rectangle(picture, truth, kTarget, 1);
  }
  const cv::Mat inset = drawInset_(frame);
  inset.copyTo(picture(cv::Rect(cv::Point(0, frame_.height), inset.size())));
  writeLine(picture, lineOf(frame), sizes);
  return picture;
}

}  // namespace host::sim
