#include "picture/annotate.h"

#include <fmt/format.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <opencv2/imgproc.hpp>

namespace host {
namespace {

constexpr std::size_t kTrailLength = 60;
constexpr int kFont = cv::FONT_HERSHEY_SIMPLEX;

const std::array<cv::Scalar, 6> kColours = {cv::Scalar(80, 220, 60),  cv::Scalar(255, 160, 40),
                                            cv::Scalar(60, 200, 255), cv::Scalar(220, 90, 220),
                                            cv::Scalar(200, 220, 60), cv::Scalar(120, 120, 255)};
const cv::Scalar kPredicted(0, 165, 255);
const cv::Scalar kGone(60, 60, 235);
const cv::Scalar kWhite(255, 255, 255);
const cv::Scalar kDark(25, 25, 25);

/// Sizes in pixels that follow the frame: drawn for 576 lines, scaled for others.
struct Sizes {
  explicit Sizes(int frameHeight) : scale(std::clamp(frameHeight / 576.0, 0.8, 6.0)) {}
  int px(double at576) const { return std::max(1, static_cast<int>(std::lround(at576 * scale))); }
  double font() const { return 0.5 * scale; }
  int stroke() const { return px(2.0); }
  int textStroke() const { return std::max(1, static_cast<int>(std::lround(1.1 * scale))); }
  double scale;
};

cv::Point centreOf(const cv::Rect& r) {
  return {r.x + r.width / 2, r.y + r.height / 2};
}

void dashedLine(cv::Mat& picture, cv::Point from, cv::Point to, const cv::Scalar& colour, int stroke, int dash) {
  const double length = std::hypot(to.x - from.x, to.y - from.y);
  if (length < 1) return;
  const auto at = [&](double along) {
    const double t = std::min(1.0, along / length);
    return cv::Point(static_cast<int>(std::lround(from.x + (to.x - from.x) * t)),
                     static_cast<int>(std::lround(from.y + (to.y - from.y) * t)));
  };
  for (int along = 0; along < length; along += 2 * dash) {
    cv::line(picture, at(along), at(along + dash), colour, stroke, cv::LINE_AA);
  }
}

void dashedBox(cv::Mat& picture, const cv::Rect& r, const cv::Scalar& colour, int stroke, int dash) {
  const cv::Point right(r.x + r.width - 1, r.y);
  const cv::Point bottom(r.x, r.y + r.height - 1);
  const cv::Point corner(right.x, bottom.y);
  dashedLine(picture, r.tl(), right, colour, stroke, dash);
  dashedLine(picture, r.tl(), bottom, colour, stroke, dash);
  dashedLine(picture, right, corner, colour, stroke, dash);
  dashedLine(picture, bottom, corner, colour, stroke, dash);
}

/// Text on a dark plate, moved so that it stays inside the picture. `at` is the plate's top-left corner.
cv::Rect drawPlate(cv::Mat& picture, const std::string& text, cv::Point at, const Sizes& sizes,
                   const cv::Scalar& colour) {
  int baseline = 0;
  const cv::Size size = cv::getTextSize(text, kFont, sizes.font(), sizes.textStroke(), &baseline);
  const int pad = sizes.px(4);
  cv::Rect plate(at, cv::Size(size.width + 2 * pad, size.height + baseline + 2 * pad));
  plate.x = std::clamp(plate.x, 0, std::max(0, picture.cols - plate.width));
  plate.y = std::clamp(plate.y, 0, std::max(0, picture.rows - plate.height));
  const cv::Rect inside = plate & cv::Rect(0, 0, picture.cols, picture.rows);
  cv::Mat area = picture(inside);
  cv::addWeighted(area, 0.3, cv::Mat(area.size(), area.type(), kDark), 0.7, 0, area);
  cv::putText(picture, text, {plate.x + pad, plate.y + pad + size.height}, kFont, sizes.font(), colour,
              sizes.textStroke(), cv::LINE_AA);
  return plate;
}

void drawTrail(cv::Mat& picture, const std::deque<cv::Point>& trail, const cv::Scalar& colour, const Sizes& sizes) {
  for (std::size_t i = 1; i < trail.size(); ++i) {
    const double age = static_cast<double>(i) / static_cast<double>(trail.size());  // 1: now
    cv::line(picture, trail[i - 1], trail[i], colour * (0.35 + 0.65 * age), sizes.px(1.2), cv::LINE_AA);
  }
}

/// Where the motion leads within a third of a second or so: ten frames.
void drawMotion(cv::Mat& picture, const cv::Rect& box, const cv::Point2f& motion, const cv::Scalar& colour,
                const Sizes& sizes) {
  const cv::Point2f reach = motion * 10.0F;
  if (std::hypot(reach.x, reach.y) < 4.0 * sizes.scale) return;  // too short for a direction
  const cv::Point from = centreOf(box);
  const cv::Point to(from.x + cvRound(reach.x), from.y + cvRound(reach.y));
  const double head = sizes.px(9) / std::hypot<double>(reach.x, reach.y);  // of the arrow's length
  cv::arrowedLine(picture, from, to, kDark, sizes.stroke() + sizes.px(1.5), cv::LINE_AA, 0, head);
  cv::arrowedLine(picture, from, to, colour, sizes.stroke(), cv::LINE_AA, 0, head);
}

/// A bar along the box's right side, filled from below; green above one half, red near the limit of belief.
void drawScore(cv::Mat& picture, const cv::Rect& box, double score, const Sizes& sizes) {
  const cv::Rect bar(box.x + box.width + sizes.px(3), box.y, sizes.px(5), std::max(box.height, sizes.px(16)));
  const double share = std::clamp(score, 0.0, 1.0);
  const int filled = static_cast<int>(std::lround(share * bar.height));
  const cv::Scalar colour(40, 60 + 160 * share, 230 - 170 * share);
  cv::rectangle(picture, bar, kDark, cv::FILLED);
  cv::rectangle(picture, cv::Rect(bar.x, bar.y + bar.height - filled, bar.width, filled), colour, cv::FILLED);
  cv::rectangle(picture, bar, kWhite, 1);
}

/// A cross where the target was last: nothing is claimed about where it is.
void drawMarker(cv::Mat& picture, const cv::Rect& last, const cv::Scalar& colour, const Sizes& sizes) {
  cv::drawMarker(picture, centreOf(last), kDark, cv::MARKER_TILTED_CROSS, sizes.px(22), sizes.stroke() + sizes.px(1.5));
  cv::drawMarker(picture, centreOf(last), colour, cv::MARKER_TILTED_CROSS, sizes.px(20), sizes.stroke());
}

cv::Scalar colourOf(const CallRecord& record, const cv::Scalar& own) {
  switch (record.state) {
    case TrackState::Predicted:
    case TrackState::Waiting:
      return kPredicted;
    case TrackState::Lost:
    case TrackState::Inactive:
      return kGone;
    default:
      return own;
  }
}

/// A tenth of a second is the least that is worth reading in seconds.
std::string unseenText(const CallRecord& record) {
  const double seconds = record.secondsSinceSeen.value_or(0.0);
  if (seconds >= 0.1) return fmt::format("unseen {:.1f} s", seconds);
  return fmt::format("unseen {} frame{}", *record.framesSinceSeen, *record.framesSinceSeen == 1 ? "" : "s");
}

std::string labelOf(const CallRecord& record) {
  std::string label = record.target + "  " + (record.isInit && record.started ? "start" : name(record.state));
  if (record.score) label += fmt::format(" {:.2f}", *record.score);
  if (record.framesSinceSeen && *record.framesSinceSeen > 0) label += "  " + unseenText(record);
  return label;
}

std::string footerOf(const std::vector<CallRecord>& records) {
  double ms = 0;
  for (const CallRecord& record : records) ms += record.update_ms;
  if (records.empty()) return {};
  return fmt::format("frame {}  {:.1f} s  {:.1f} ms", records.front().frame, records.front().time_s, ms);
}

void drawBox(cv::Mat& picture, const CallRecord& record, const cv::Rect& box, const cv::Scalar& colour,
             const Sizes& sizes) {
  const bool guessed = record.boxFrom == BoxFrom::Prediction;
  if (guessed) {
    dashedBox(picture, box, kDark, sizes.stroke() + sizes.px(1), sizes.px(7));
    dashedBox(picture, box, colour, sizes.stroke(), sizes.px(7));
  } else {
    cv::rectangle(picture, box, kDark, sizes.stroke() + sizes.px(1));
    cv::rectangle(picture, box, colour, sizes.stroke());
  }
}

}  // namespace

Annotator::Past& Annotator::remember_(const CallRecord& record) {
  const auto [it, isNew] = pasts_.try_emplace(record.target);
  Past& past = it->second;
  if (isNew) past.colour = kColours[(pasts_.size() - 1) % kColours.size()];
  if (record.isInit) past.trail.clear();
  const std::optional<cv::Rect>& box = record.isInit ? record.givenBox : record.box;
  if (!box) return past;
  if (record.isInit ? record.framesSinceSeen == 0 : isSeen(record)) {
    const cv::Point centre = centreOf(*box);
    past.motion = past.trail.empty() ? cv::Point2f() : cv::Point2f(centre - past.trail.back());
    past.trail.push_back(centre);
    if (past.trail.size() > kTrailLength) past.trail.pop_front();
  }
  past.lastBox = *box;
  return past;
}

void Annotator::forget(const std::string& target) {
  const auto it = pasts_.find(target);
  if (it != pasts_.end()) it->second.trail.clear();
}

cv::Mat Annotator::draw(const cv::Mat& frame, const std::vector<CallRecord>& records) {
  cv::Mat picture = frame.clone();
  const Sizes sizes(picture.rows);
  for (const CallRecord& record : records) {
    const Past& past = remember_(record);
    const cv::Scalar colour = colourOf(record, past.colour);
    if (record.window) cv::rectangle(picture, *record.window, cv::Scalar(190, 190, 190), 1);
    drawTrail(picture, past.trail, past.colour, sizes);
    cv::Rect anchor = past.lastBox;
    if (record.isInit && record.started) {
      drawBox(picture, record, anchor, colour, sizes);
    } else if (record.box) {
      drawBox(picture, record, *record.box, colour, sizes);
      drawMotion(picture, *record.box, past.motion, colour, sizes);
      if (record.score) drawScore(picture, *record.box, *record.score, sizes);
    } else if (anchor.area() > 0) {
      drawMarker(picture, anchor, colour, sizes);
    }
    drawPlate(picture, labelOf(record), {anchor.x, anchor.y - sizes.px(26)}, sizes, colour);
  }
  drawPlate(picture, footerOf(records), {0, picture.rows}, sizes, kWhite);
  return picture;
}

void drawNote(cv::Mat& picture, const std::string& text) {
  drawPlate(picture, text, {0, 0}, Sizes(picture.rows), kWhite);
}

}  // namespace host
