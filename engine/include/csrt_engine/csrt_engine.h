// The CSRT tracker computed faster: the same boxes as cv::tracking::TrackerCSRT, at a fraction of the time.
#pragma once

#include <opencv2/tracking.hpp>
#include <string>

namespace csrt_engine {

/// Makes a tracker that answers as cv::tracking::TrackerCSRT::create(params) would, faster. Never null.
/// It takes and gives what OpenCV's does: init(picture, box), setInitialMask(), update(picture, box) on 8-bit pictures
/// of one or three channels (BGR); boxes are whole pixels of the picture and may hang over its edge. update() answers
/// false, and leaves the box empty, when the target is lost.
/// Parameters that the engine cannot do the same get OpenCV's own tracker: see handling().
/// Threads: one tracker belongs to one thread at a time; different trackers share nothing that changes. Uses no threads.
/// Failure: what OpenCV's tracker throws (cv::Exception), with the same cause; update() before a successful init()
/// throws cv::Exception too.
cv::Ptr<cv::tracking::TrackerCSRT> create(
    const cv::tracking::TrackerCSRT::Params& params = cv::tracking::TrackerCSRT::Params());

/// Who computes: the engine itself, or OpenCV's tracker in its place and why (`why` is empty when `own`).
struct Handling {
  bool own;
  std::string why;
};

/// What create() does with `params`. Pure, any thread.
Handling handling(const cv::tracking::TrackerCSRT::Params& params);

/// Instruction set in use: "sse2", "avx2" or "neon"; the answers are the same with each. Chosen once, when first asked.
/// The environment variable CSRT_ENGINE_ISA=baseline forces the processor family's smallest set, for checks.
const char* instructionSet();

}  // namespace csrt_engine
