// Arithmetic on boxes and on the processing window: the crop of the frame that the tracker sees.
// Everything here is pure and safe from any thread. Boxes are pixels of the current frame; "none" is (0, 0, 0, 0).
#pragma once

#include <cstdint>
#include <opencv2/core/types.hpp>

#include "csrt_config.h"
#include "rounding.h"

/// Width times height in 64 bits; 0 unless both sides are positive.
std::int64_t areaOf(const cv::Rect& r);

/// True when both sides are at least 1.
inline bool hasArea(const cv::Rect& r) {
  return r.width > 0 && r.height > 0;
}

/// Common part of two boxes, (0, 0, 0, 0) when there is none. Correct for any ints.
cv::Rect intersectRects(const cv::Rect& a, const cv::Rect& b);

/// The part of `r` inside a frame; (0, 0, 0, 0) when there is none.
cv::Rect clipToFrame(const cv::Rect& r, const cv::Size& frame);

/// `r` moved by (dx, dy); saturates at the range of int.
cv::Rect shiftRect(const cv::Rect& r, std::int64_t dx, std::int64_t dy);

/// `r` in the pixels of a crop whose top-left corner lies at `origin`, and back.
cv::Rect toCrop(const cv::Rect& r, const cv::Point& origin);
cv::Rect toFrame(const cv::Rect& r, const cv::Point& origin);

/// Centre in single precision: x + w / 2, y + h / 2.
cv::Point2f centreOf(const cv::Rect& r);

/// Moves `r` inside a picture of W x H pixels; keeps its size wherever it fits.
/// @param r     full-frame pixels, may lie anywhere; a side below 1 counts as 1
/// @param W, H  picture size, pixels; below 1 counts as 1
/// @return      a box inside the picture, at least 1 x 1: never the empty rect
cv::Rect fitRectInsidePreserveSize(const cv::Rect& r, int W, int H);

/// `r` drawn in by 8 % of its size on every side and clipped to the frame: the part that shows mostly target.
/// Where nothing is left of that: `r` itself.
cv::Rect insetPatchRect(const cv::Rect& r, const cv::Size& frame);

/// The box centred in a crop for a target that the crop does not show; at least 1 x 1.
cv::Rect centredBoxInCrop(const cv::Size& box, const cv::Size& crop);

/// Where to look for an object near a point: its size and a margin around it, at least `minSide` a side.
/// Centred on the point (frame pixels), not clipped. @param object  pixels
cv::Rect fineSearchRect(const cv::Point2d& centre, const cv::Size& object, int minSide);

/// Largest multiple of m that is at most v, but at least m. m below 2: v.
int alignToMultiple(int v, int m);

/// What the wish for a window depends on.
struct WindowInput {
  cv::Rect trackBox;     ///< Frame pixels.
  cv::Point2f velocity;  ///< Pixels per frame.
  double score = 1.0;    ///< Latest stability, [0, 1]; a NaN counts as sure.
  cv::Size previous;     ///< Size of the window before, pixels; no area: none.
  cv::Size frame;        ///< Pixels.
};

/// The window that the target's size, speed and confidence ask for, shifted into the frame.
/// The whole frame when windows are off or the box has no area.
cv::Rect desiredWindow(const WindowInput& in, const RoiConfig& roi);

/// The wished size, or the previous one inside the hysteresis band, bounded and aligned; never above the frame.
cv::Size windowSizeWithHysteresis(const cv::Size& desired, const cv::Size& previous, const cv::Size& frame,
                                  const RoiConfig& roi);

/// Widens `window` so that half of the tracker's padding is free on every side of the box, as far as the frame goes.
/// @return (0, 0, 0, 0) for a window outside the frame or without area
cv::Rect guardWindow(const cv::Rect& window, const cv::Rect& trackBox, const cv::Size& frame, double padding);

/// Ignores small changes of size, rounds and bounds the sides, and shifts the window into the frame.
/// A side may exceed the frame: `roi.min_size` wins over it. A negative position stays.
cv::Rect applyCropSizePolicy(const cv::Rect& window, const cv::Rect& previous, const cv::Size& frame,
                             const RoiConfig& roi);

/// A window after the decision to keep the tracker's input size.
struct FrozenWindow {
  cv::Rect window;          ///< Full-frame pixels; may reach outside the frame.
  bool hardResize = false;  ///< The size changed too much to be kept.
};

/// Gives the window its frozen size back, centred on the box, unless the size changed by `roi.hard_resize_ratio`.
/// @param frozen  the tracker's input size, pixels; a side below 1: none yet
FrozenWindow freezeWindowSize(const cv::Rect& window, const cv::Size& frozen, const cv::Rect& trackBox,
                              const cv::Size& frame, const RoiConfig& roi);

/// Scales `r` from one picture size to another; every value rounds on its own, nothing is clipped.
cv::Rect mapFullToSmall(const cv::Rect& r, const cv::Size& full, const cv::Size& small);

/// Scales back and clips to the full picture; (0, 0, 0, 0) when nothing is left.
cv::Rect mapSmallToFull(const cv::Rect& r, const cv::Size& small, const cv::Size& full);
