// Where does the time of a search for a lost target go, stage by stage?
// Budget: the whole of it at most two tracker steps in a frame of 1920 x 1080, four at 3840 x 2160.
#include <benchmark/benchmark.h>

#include <algorithm>
#include <opencv2/imgproc.hpp>

#include "bench_support.h"

namespace {

using bench::MovingTarget;
using bench::OpenAlgo;
using bench::Samples;
using bench::timeOf;

constexpr double kCoarseSide = 320.0;  // what the search shrinks the shorter side to

void report(benchmark::State& state, const std::string& name, const Samples& samples) {
  state.counters[name + "_ms"] = samples.median();
  state.counters[name + "_cpu_ms"] = samples.cpuMedian();
}

cv::Size scaled(const GpuImage& image, double scale) {
  return {cvRound(image.cols() * scale), cvRound(image.rows() * scale)};
}

/// The stages of one search, called as the search calls them, on a target that is in sight.
class Stages {
 public:
  explicit Stages(const cv::Size& frame) : scene_(frame, {60, 60}) {
    algo_.start(scene_);
    for (int i = 0; i < 3; ++i) {  // so that there is a second patch
      scene_.next();
      algo_.step(scene_);
    }
    factor_ = std::min(algo_.config_.redetect.coarse_factor, kCoarseSide / std::min(frame.width, frame.height));
    picture_ = scene_.frames().front();
  }

  void run() {
    step.add(timeOf([&] {
      scene_.next();
      algo_.step(scene_);
    }));
    grey.add(timeOf([&] { OpenAlgo::buildFullYFromVP_Locked_(*picture_, algo_.fullGrayGpu_); }));
    shrink.add(timeOf([&] { resizeImage(algo_.fullGrayGpu_, coarse_, {}, factor_, factor_, cv::INTER_AREA); }));
    byOpenCv.add(
        timeOf([&] { cv::resize(algo_.fullGrayGpu_.download(), plain_, {}, factor_, factor_, cv::INTER_AREA); }));
    match.add(timeOf([&] { matchAll(); }));
    fine.add(timeOf([&] { searchFine(); }));
    validate.add(timeOf([&] { similarity = algo_.computeOrigAppearanceAt_(found); }));
    start.add(timeOf([&] { startTracker(); }));
    const auto before = algo_.trackBox_;
    whole.add(timeOf([&] {
      OpenAlgo::buildFullYFromVP_Locked_(*picture_, algo_.fullGrayGpu_);
      algo_.reDetectGlobally_Locked_(*picture_, scene_.pixels().cols, scene_.pixels().rows);
    }));
    held = held && bench::overlap(algo_.trackBox_, before) > 0.5;
  }

  Samples step, grey, shrink, byOpenCv, match, fine, validate, start, whole;
  cv::Rect found;
  double similarity = 0.0;
  bool held = true;

 private:
  void matchAll() {
    resizeImage(algo_.origPatchGpu_, patch_, {}, factor_, factor_, cv::INTER_LINEAR);
    for (const double scale : algo_.config_.redetect.scale_list) matchAt(scale);
    matchAt(1.0);  // the second patch, taken while tracking
  }

  void matchAt(double scale) {
    resizeImage(patch_, templ_, scaled(patch_, scale), 0.0, 0.0, cv::INTER_LINEAR);
    gpuMatchTemplate(coarse_, templ_, scores_, cv::TM_CCOEFF_NORMED);
    cv::minMaxLoc(scores_.download(), nullptr, nullptr, nullptr, &place_);
  }

  void searchFine() {
    const cv::Rect box = scene_.box();
    double score = 0.0;
    algo_.findBestInROI_GPU_Locked_(box.x, box.y, box.width, box.height, algo_.origPatchGpu_, algo_.fullGrayGpu_, score,
                                    found);
  }

  void startTracker() {
    const auto tracker = algo_.createTracker_();
    tracker->init(algo_.initCrop_, algo_.initBoxInCrop_);
  }

  MovingTarget scene_;
  OpenAlgo algo_;
  std::shared_ptr<ocula::OculaPicture> picture_;
  double factor_ = 1.0;
  GpuImage coarse_, patch_, templ_, scores_;
  cv::Mat plain_;
  cv::Point place_;
};

void BM_RedetectStages(benchmark::State& state) {
  Stages stages({static_cast<int>(state.range(0)), static_cast<int>(state.range(1))});
  for (auto _ : state) {
    const bench::Moment time = timeOf([&] { stages.run(); });
    state.SetIterationTime(time.wall / 1e3);
  }
  if (!stages.held || stages.similarity < 0.6) state.SkipWithError("target not found: the times mean nothing");
  report(state, "step", stages.step);
  report(state, "grey", stages.grey);
  report(state, "shrink", stages.shrink);
  report(state, "shrink_by_opencv", stages.byOpenCv);
  report(state, "match", stages.match);
  report(state, "fine", stages.fine);
  report(state, "validate", stages.validate);
  report(state, "start", stages.start);
  report(state, "whole", stages.whole);
  state.counters["whole_in_steps"] = bench::medianRatio(stages.whole, stages.step);
}

BENCHMARK(BM_RedetectStages)
    ->ArgNames({"w", "h"})
    ->Args({640, 360})
    ->Args({1920, 1080})
    ->Args({3840, 2160})
    ->Iterations(bench::steps(20))
    ->UseManualTime()
    ->Unit(benchmark::kMillisecond);

}  // namespace
