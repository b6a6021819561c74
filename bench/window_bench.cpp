// What does choosing the window cost? Budget: a microsecond, 1/20000 of a tracked frame.
#include <benchmark/benchmark.h>

#include <array>

#include "csrt_config.h"
#include "stability_score.h"
#include "window_geometry.h"

namespace {

const cv::Size kFrame(1920, 1080);

// Boxes that grow, shrink, leave the frame and come back, so that every branch is taken.
const std::array<cv::Rect, 5> kBoxes{cv::Rect(900, 500, 60, 60), cv::Rect(905, 502, 64, 70), cv::Rect(-20, 10, 50, 80),
                                     cv::Rect(1880, 1060, 90, 90), cv::Rect(300, 300, 300, 200)};

void BM_ChooseWindow(benchmark::State& state) {
  const CsrtConfig config;
  cv::Rect previous;
  std::size_t i = 0;
  for (auto _ : state) {
    const cv::Rect& box = kBoxes[i++ % kBoxes.size()];
    const cv::Rect wished = desiredWindow({box, {3.0F, -2.0F}, 0.8, previous.size(), kFrame}, config.roi);
    const cv::Rect guarded = guardWindow(wished, box, kFrame, config.csrt.padding);
    const cv::Rect sized = applyCropSizePolicy(guarded, previous, kFrame, config.roi);
    previous = freezeWindowSize(sized, {300, 300}, box, kFrame, config.roi).window;
    benchmark::DoNotOptimize(previous);
  }
}

void BM_Score(benchmark::State& state) {
  const CsrtConfig config;
  std::size_t i = 0;
  for (auto _ : state) {
    const cv::Rect& box = kBoxes[i++ % kBoxes.size()];
    benchmark::DoNotOptimize(stabilityScore(kBoxes[0], box, kFrame, config.stability));
  }
}

BENCHMARK(BM_ChooseWindow);
BENCHMARK(BM_Score);

}  // namespace
