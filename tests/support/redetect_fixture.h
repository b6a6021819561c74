// One search of the whole frame at a time, over pictures that a test composes, with its log lines read back.
#pragma once

#include <gtest/gtest.h>

#include <cstdio>
#include <memory>
#include <opencv2/core.hpp>
#include <opencv2/imgproc.hpp>
#include <string>
#include <vector>

#include "captured_log.h"
#include "test_algo.h"
#include "test_picture.h"
#include "textures.h"

inline cv::Mat greyOf(const cv::Mat& bgr) {
  cv::Mat grey;
  cv::cvtColor(bgr, grey, cv::COLOR_BGR2GRAY);
  return grey;
}

/// Normalised correlation of two grey pictures of one size, [-1, 1].
inline double likenessOf(const cv::Mat& a, const cv::Mat& b) {
  cv::Mat score;
  cv::matchTemplate(a, b, score, cv::TM_CCOEFF_NORMED);
  return score.at<float>(0, 0);
}

/// `pixels` mixed with noise so that the middle 60 % (or all of it) resembles the original by about `wanted`.
inline cv::Mat resembling(const cv::Mat& pixels, double wanted, const cv::Rect& judged) {
  const cv::Mat noise = greyOf(textured::texture(pixels.size(), 3, 77));
  cv::Mat mixed;
  double low = 0.0;  // share of noise
  double high = 1.0;
  for (int i = 0; i < 40; ++i) {
    const double share = 0.5 * (low + high);
    cv::addWeighted(pixels, 1.0 - share, noise, share, 0.0, mixed);
    (likenessOf(pixels(judged), mixed(judged)) > wanted ? low : high) = share;
  }
  return mixed;
}

inline cv::Mat resembling(const cv::Mat& pixels, double wanted) {
  return resembling(pixels, wanted, {{}, pixels.size()});
}

/// What the log of one search says.
struct SearchLog {
  explicit SearchLog(std::vector<std::string> all) : lines(std::move(all)) {
    const std::string timing = lineStarting(lines, "reDetectGlobally[timing-");
    char word[32] = "";
    if (std::sscanf(timing.c_str(),
                    "reDetectGlobally[timing-%31[^]]]: total=%lf ms | coarse=%lf | search=%lf | fine=%lf | "
                    "validate+reinit=%lf | patches=%d smallPatches=%d scalesTested=%d scalesSkippedSize=%d "
                    "matchCalls=%d fineVal=%lf",
                    word, &totalMs, &coarseMs, &searchMs, &fineMs, &validateMs, &patches, &smallPatches, &scalesTested,
                    &scalesSkippedSize, &matchCalls, &fineVal) == 12) {
      outcome = word;
    }
    char name[16] = "";
    const std::string hit = lineStarting(lines, "reDetectGlobally: coarse=");
    if (std::sscanf(hit.c_str(), "reDetectGlobally: coarse=%lf, fine=%lf ROI=(%d,%d,%d,%d) src=%15s scale=%lf", &coarse,
                    &fine, &box.x, &box.y, &box.width, &box.height, name, &factor) == 8) {
      source = name;
    }
    std::string appearance;
    for (const std::string& line : lines) {
      if (line.compare(0, 27, "reDetectGlobally (validate)") != 0) continue;
      (line.find("IoU=") != std::string::npos ? appearance : acceptance) = line;
    }
    std::sscanf(appearance.c_str(),
                "reDetectGlobally (validate): fine=%*f dist=%lf maxDist=%lf areaRatio=%lf scaleOK=%d near=%d "
                "simOrig=%lf (min=%lf) IoU=%lf geomStrong=%d",
                &dist, &maxDist, &areaRatio, &scaleOK, &near, &simOrig, &minimum, &iou, &geomStrong);
    std::sscanf(acceptance.c_str(),
                "reDetectGlobally (validate): fine=%*f dist=%*f maxDist=%*f areaRatio=%*f scaleOK=%*d near=%*d "
                "tNear=%lf accept=%d",
                &tNear, &accept);
    appearanceLine = appearance;
  }

  std::vector<std::string> lines;
  std::string outcome;  ///< Empty: no timing line.
  double totalMs = 0.0, coarseMs = 0.0, searchMs = 0.0, fineMs = 0.0, validateMs = 0.0;
  int patches = -1, smallPatches = -1, scalesTested = -1, scalesSkippedSize = -1, matchCalls = -1;
  double fineVal = 0.0;
  std::string source;  ///< Empty: nothing was searched finely.
  double coarse = 0.0, fine = 0.0, factor = 0.0;
  cv::Rect box;
  std::string appearanceLine;
  std::string acceptance;
  double dist = -1.0, maxDist = -1.0, areaRatio = -1.0, simOrig = -9.0, minimum = 0.0, iou = -1.0;
  int scaleOK = -1, near = -1, geomStrong = -1;
  double tNear = 0.0;
  int accept = -1;
};

/// A target known by its first appearance and lost; the tests say what the frame shows.
/// The first search looks at full resolution unless a test sets another factor.
class RedetectTest : public ::testing::Test {
 protected:
  explicit RedetectTest(const cv::Size& frame = {320, 240}, const cv::Size& target = {40, 30})
      : scene_(frame, target), sprite_(greyOf(scene_.sprite)) {
    makeTrackerCheap(algo_.config_);
    algo_.config_.redetect.coarse_factor = 1.0;
    algo_.config_.redetect.scale_list = {1.0};
    algo_.initialized_ = true;
    algo_.enableDebug(true);
    algo_.origPatchGpu_.upload(sprite_);
  }

  void knowDynamic(const cv::Mat& grey) {
    algo_.dynPatchGpu_.upload(grey);
    algo_.dynPatchValid_ = true;
  }
  void lastSeenAt(const cv::Rect& box) { algo_.trackBox_ = algo_.predictedBox_ = box; }

  /// A frame with `target` (grey) at a place of the ground.
  cv::Mat showing(const cv::Mat& target, const cv::Point& at) const {
    cv::Mat frame = scene_.empty();
    cv::Mat coloured;
    cv::cvtColor(target, coloured, cv::COLOR_GRAY2BGR);
    textured::put(frame, coloured, at);
    return frame;
  }

  SearchLog search(const std::shared_ptr<TestPicture>& picture) {
    return SearchLog(logOf([&] {
      algo_.buildFullYFromVP_Locked_(*picture, algo_.fullGrayGpu_);
      algo_.reDetectGlobally_Locked_(*picture, picture->width(), picture->height());
    }));
  }
  SearchLog search(const cv::Mat& bgr) { return search(std::make_shared<TestPicture>(bgr)); }

  TestAlgo algo_;
  textured::Scene scene_;
  cv::Mat sprite_;  ///< The target's grey.
};
