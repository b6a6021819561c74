#include "window_geometry.h"

#include <algorithm>
#include <cmath>
#include <limits>

namespace {

constexpr int kMinGuardMargin = 8;   // context below which the filter has nothing to learn from, pixels
constexpr int kMinGuardedSide = 32;  // smallest crop that the tracker takes, pixels
constexpr double kPatchInset = 0.08;
constexpr double kSearchMargin = 0.25;  // object sides
constexpr int kMinSearchMargin = 24;    // pixels

int saturate(std::int64_t value) {
  return static_cast<int>(
      std::clamp<std::int64_t>(value, std::numeric_limits<int>::min(), std::numeric_limits<int>::max()));
}

// Largest window the configuration and the frame allow.
cv::Size windowCap(const cv::Size& frame, const RoiConfig& roi) {
  if (roi.max_size < 1) return frame;
  return {std::min(roi.max_size, frame.width), std::min(roi.max_size, frame.height)};
}

// The smallest side wins over the cap: a window may be larger than the frame.
cv::Size boundSize(const cv::Size& size, const cv::Size& frame, const RoiConfig& roi) {
  const cv::Size cap = windowCap(frame, roi);
  return {std::max(std::min(size.width, cap.width), roi.min_size),
          std::max(std::min(size.height, cap.height), roi.min_size)};
}

int sideWithHysteresis(int desired, int base, double ratio) {
  const int upper = roundToInt(base * (1.0 + ratio));
  const int lower = roundToInt(base * (1.0 - ratio));
  return desired > upper || lower > desired ? desired : base;
}

double confidenceFactor(double score, double gain) {
  if (std::isnan(score) || score >= 1.0) return 0.0;
  return score > 0.0 ? gain * (1.0 - score) : gain;
}

// First pixel of a span of `length` around `centre`, kept inside [0, limit] where it fits.
int centredOrigin(float centre, int length, int limit) {
  const int wished = roundToInt(static_cast<double>(centre) - 0.5 * length);
  return std::max(0, std::min(std::max(limit - length, 0), wished));
}

// One axis of the guard: a span grown until `margin` pixels are free on both sides of the box.
struct Span {
  int start = 0;
  int length = 0;
};

// In 64 bits: a host may name a frame as wide as an int can tell. What lies before the frame is left out at once.
Span growAroundBox(const Span& span, std::int64_t boxStart, std::int64_t boxLength, std::int64_t margin) {
  const std::int64_t before = std::max<std::int64_t>(margin - boxStart, 0);
  const std::int64_t start = span.start - before;
  std::int64_t length = span.length + before;
  const std::int64_t gapAfter = length - (before + boxStart + boxLength);
  length += std::max<std::int64_t>(margin - gapAfter, 0);
  const std::int64_t inside = std::max<std::int64_t>(start, 0);
  return {saturate(inside), saturate(start + length - inside)};
}

Span raiseToMinimum(Span span, int limit) {
  if (span.length >= kMinGuardedSide) return span;
  span.start = std::max(span.start - (kMinGuardedSide - span.length) / 2, 0);
  span.length = std::min(limit - span.start, kMinGuardedSide);
  return span;
}

cv::Rect boxInWindow(const cv::Rect& box, const cv::Rect& window) {
  const cv::Rect inside = intersectRects(toCrop(box, window.tl()), {0, 0, window.width, window.height});
  if (hasArea(inside)) return inside;
  const int width = std::max(std::min(window.width, box.width), 1);
  const int height = std::max(std::min(window.height, box.height), 1);
  return {std::max(window.width / 2 - width / 2, 0), std::max(window.height / 2 - height / 2, 0), width, height};
}

cv::Size ignoreSmallChange(const cv::Size& size, const cv::Size& previous, const RoiConfig& roi) {
  const bool smallX = std::abs(std::int64_t{size.width} - previous.width) < roi.min_delta_x;
  const bool smallY = std::abs(std::int64_t{size.height} - previous.height) < roi.min_delta_y;
  if (roi.min_delta_both) return smallX || smallY ? previous : size;
  return {smallX ? previous.width : size.width, smallY ? previous.height : size.height};
}

int shiftInside(int start, int length, int limit) {
  return std::int64_t{start} + length > limit ? std::max(limit - length, 0) : start;
}

int fitStart(int start, int length, int limit) {
  const int raised = std::max(start, 0);
  return std::int64_t{raised} + length > limit ? limit - length : raised;
}

int frozenOrigin(float centre, int frozen, int limit) {
  const int wished = truncateToInt(static_cast<double>(centre) - frozen * 0.5);
  return std::max(std::min(limit - frozen, wished), 0);
}

double relativeChange(int now, int before) {
  return std::abs(static_cast<double>(now) - before) / before;
}

cv::Rect scaleRect(const cv::Rect& r, double sx, double sy) {
  return {roundToInt(r.x * sx), roundToInt(r.y * sy), roundToInt(r.width * sx), roundToInt(r.height * sy)};
}

double ratioOr1(int numerator, int denominator) {
  return denominator < 1 ? 1.0 : static_cast<double>(numerator) / denominator;
}

}  // namespace

std::int64_t areaOf(const cv::Rect& r) {
  return hasArea(r) ? std::int64_t{r.width} * r.height : 0;
}

cv::Rect intersectRects(const cv::Rect& a, const cv::Rect& b) {
  if (!hasArea(a) || !hasArea(b)) return {};
  const int x = std::max(a.x, b.x);
  const int y = std::max(a.y, b.y);
  const std::int64_t right = std::min(std::int64_t{a.x} + a.width, std::int64_t{b.x} + b.width);
  const std::int64_t bottom = std::min(std::int64_t{a.y} + a.height, std::int64_t{b.y} + b.height);
  if (right <= x || bottom <= y) return {};
  return {x, y, static_cast<int>(right - x), static_cast<int>(bottom - y)};
}

cv::Rect clipToFrame(const cv::Rect& r, const cv::Size& frame) {
  return intersectRects(r, {0, 0, frame.width, frame.height});
}

cv::Rect shiftRect(const cv::Rect& r, std::int64_t dx, std::int64_t dy) {
  return {saturate(r.x + dx), saturate(r.y + dy), r.width, r.height};
}

cv::Rect toCrop(const cv::Rect& r, const cv::Point& origin) {
  return shiftRect(r, -std::int64_t{origin.x}, -std::int64_t{origin.y});
}

cv::Rect toFrame(const cv::Rect& r, const cv::Point& origin) {
  return shiftRect(r, origin.x, origin.y);
}

cv::Point2f centreOf(const cv::Rect& r) {
  return {static_cast<float>(r.x) + 0.5F * static_cast<float>(r.width),
          static_cast<float>(r.y) + 0.5F * static_cast<float>(r.height)};
}

cv::Rect fitRectInsidePreserveSize(const cv::Rect& r, int W, int H) {
  const cv::Size frame(std::max(W, 1), std::max(H, 1));
  const int width = std::min(frame.width, std::max(r.width, 1));
  const int height = std::min(frame.height, std::max(r.height, 1));
  return {fitStart(r.x, width, frame.width), fitStart(r.y, height, frame.height), width, height};
}

cv::Rect insetPatchRect(const cv::Rect& r, const cv::Size& frame) {
  const int mx = roundToInt(kPatchInset * r.width);
  const int my = roundToInt(kPatchInset * r.height);
  const cv::Rect inset = clipToFrame({r.x + mx, r.y + my, r.width - 2 * mx, r.height - 2 * my}, frame);
  return hasArea(inset) ? inset : r;
}

cv::Rect centredBoxInCrop(const cv::Size& box, const cv::Size& crop) {
  const int x = crop.width / 2 - std::max(box.width, 1) / 2;
  const int y = crop.height / 2 - std::max(box.height, 1) / 2;
  return {std::max(x, 0), std::max(y, 0), std::max(std::min(crop.width, box.width), 1),
          std::max(std::min(crop.height, box.height), 1)};
}

cv::Rect fineSearchRect(const cv::Point2d& centre, const cv::Size& object, int minSide) {
  const auto side = [minSide](int length) {
    const int pad = std::max(roundToInt(length * kSearchMargin), kMinSearchMargin);
    return std::max(saturate(std::int64_t{length} + 2 * std::int64_t{pad}), minSide);
  };
  const cv::Size size(side(object.width), side(object.height));
  return {roundToInt(centre.x - size.width * 0.5), roundToInt(centre.y - size.height * 0.5), size.width, size.height};
}

int alignToMultiple(int v, int m) {
  if (m < 2) return v;
  return m > v ? m : (v / m) * m;
}

cv::Rect desiredWindow(const WindowInput& in, const RoiConfig& roi) {
  const cv::Rect& box = in.trackBox;
  if (!roi.enable || !hasArea(box)) return {0, 0, in.frame.width, in.frame.height};

  const auto w = static_cast<double>(box.width);
  const auto h = static_cast<double>(box.height);
  const double speed = std::hypot(in.velocity.x, in.velocity.y);
  const double extra = std::sqrt(w * w + h * h) * confidenceFactor(in.score, roi.conf_gain);
  const auto withMargins = [&](double side) {
    return roundToInt(side + 2.0 * (side * roi.margin_factor + roi.speed_gain * speed + 0.5 * extra));
  };
  const cv::Size wished(withMargins(w), withMargins(h));
  const cv::Size size = windowSizeWithHysteresis(wished, in.previous, in.frame, roi);

  const cv::Point2f centre = centreOf(box);
  return {centredOrigin(centre.x, size.width, in.frame.width), centredOrigin(centre.y, size.height, in.frame.height),
          size.width, size.height};
}

cv::Size windowSizeWithHysteresis(const cv::Size& desired, const cv::Size& previous, const cv::Size& frame,
                                  const RoiConfig& roi) {
  cv::Size size = desired;
  if (areaOf({0, 0, previous.width, previous.height}) >= 1) {
    size.width = sideWithHysteresis(desired.width, previous.width, roi.hysteresis_ratio);
    size.height = sideWithHysteresis(desired.height, previous.height, roi.hysteresis_ratio);
  }
  size = boundSize(size, frame, roi);
  // Clamped after alignment: near the frame size the result may stop being a multiple, and that is intended.
  return {std::min(alignToMultiple(size.width, roi.round_to), frame.width),
          std::min(alignToMultiple(size.height, roi.round_to), frame.height)};
}

cv::Rect guardWindow(const cv::Rect& window, const cv::Rect& trackBox, const cv::Size& frame, double padding) {
  const cv::Rect clipped = clipToFrame(window, frame);
  if (!hasArea(clipped) || areaOf(trackBox) < 1) return clipped;

  const cv::Rect box = boxInWindow(trackBox, clipped);
  const double half = padding * 0.5;
  const int marginX = std::max(truncateToInt(std::ceil(box.width * half)), kMinGuardMargin);
  const int marginY = std::max(truncateToInt(std::ceil(box.height * half)), kMinGuardMargin);
  const Span x = growAroundBox({clipped.x, clipped.width}, box.x, box.width, marginX);
  const Span y = growAroundBox({clipped.y, clipped.height}, box.y, box.height, marginY);

  const cv::Rect guarded = clipToFrame({x.start, y.start, x.length, y.length}, frame);
  const Span wide = raiseToMinimum({guarded.x, guarded.width}, frame.width);
  const Span tall = raiseToMinimum({guarded.y, guarded.height}, frame.height);
  return {wide.start, tall.start, wide.length, tall.length};
}

cv::Rect applyCropSizePolicy(const cv::Rect& window, const cv::Rect& previous, const cv::Size& frame,
                             const RoiConfig& roi) {
  cv::Size size = window.size();
  if (areaOf(previous) > 0) size = ignoreSmallChange(size, previous.size(), roi);
  if (roi.round_to > 1) {  // a small side may become 0 here; the bounds raise it again
    size.width = size.width / roi.round_to * roi.round_to;
    size.height = size.height / roi.round_to * roi.round_to;
  }
  size = boundSize(size, frame, roi);
  return {shiftInside(window.x, size.width, frame.width), shiftInside(window.y, size.height, frame.height), size.width,
          size.height};
}

FrozenWindow freezeWindowSize(const cv::Rect& window, const cv::Size& frozen, const cv::Rect& trackBox,
                              const cv::Size& frame, const RoiConfig& roi) {
  const bool haveFrozen = frozen.width >= 1 && frozen.height >= 1;
  if (!roi.freeze_input_size || !haveFrozen || window.size() == frozen) return {window, false};
  const double change =
      std::max(relativeChange(window.width, frozen.width), relativeChange(window.height, frozen.height));
  if (!(change < roi.hard_resize_ratio)) return {window, true};
  const cv::Point2f centre = centreOf(trackBox);
  return {{frozenOrigin(centre.x, frozen.width, frame.width), frozenOrigin(centre.y, frozen.height, frame.height),
           frozen.width, frozen.height},
          false};
}

cv::Rect mapFullToSmall(const cv::Rect& r, const cv::Size& full, const cv::Size& small) {
  return scaleRect(r, ratioOr1(small.width, full.width), ratioOr1(small.height, full.height));
}

cv::Rect mapSmallToFull(const cv::Rect& r, const cv::Size& small, const cv::Size& full) {
  return clipToFrame(scaleRect(r, ratioOr1(full.width, small.width), ratioOr1(full.height, small.height)), full);
}
