// What do the operations on images for matching cost on this backend, and does shrinking still beat cv::resize?
// Budget: the shrink of a 3840 x 2160 frame at most half of cv::resize's time, with the same pixels.
#include <benchmark/benchmark.h>

#include <opencv2/imgproc.hpp>

#include "bench_support.h"
#include "gpu_image.h"

namespace {

constexpr double kCoarseSide = 320.0;

cv::Size frameOf(const benchmark::State& state) {
  return {static_cast<int>(state.range(0)), static_cast<int>(state.range(1))};
}

void BM_UploadGrey(benchmark::State& state) {
  const bench::MovingTarget scene(frameOf(state), {60, 60});
  GpuImage grey;
  for (auto _ : state) grey.uploadGrey(scene.pixels());
}

void BM_CloneRegion(benchmark::State& state) {
  const bench::MovingTarget scene(frameOf(state), {60, 60});
  GpuImage grey;
  grey.uploadGrey(scene.pixels());
  for (auto _ : state) benchmark::DoNotOptimize(grey.region({20, 20, 60, 60}).clone());
}

void BM_ShrinkFrame(benchmark::State& state) {
  const bench::MovingTarget scene(frameOf(state), {60, 60});
  const double factor = kCoarseSide / static_cast<double>(state.range(1));
  GpuImage grey;
  GpuImage coarse;
  cv::Mat plain;
  grey.uploadGrey(scene.pixels());
  bench::Samples ours;
  bench::Samples theirs;
  for (auto _ : state) {
    const bench::Moment time = bench::timeOf([&] { resizeImage(grey, coarse, {}, factor, factor, cv::INTER_AREA); });
    ours.add(time);
    theirs.add(bench::timeOf([&] { cv::resize(grey.download(), plain, {}, factor, factor, cv::INTER_AREA); }));
    state.SetIterationTime(time.wall / 1e3);
  }
  if (std::string(imageBackendName()) == "host" && cv::countNonZero(plain != coarse.download()) != 0) {
    state.SkipWithError("other pixels than cv::resize gives: the time means nothing");
  }
  state.counters["shrink_cpu_ms"] = ours.cpuMedian();
  state.counters["opencv_cpu_ms"] = theirs.cpuMedian();
  state.counters["faster"] = bench::medianRatio(theirs, ours);
}

void BM_MatchCoarse(benchmark::State& state) {
  const auto side = static_cast<int>(state.range(0));
  const bench::MovingTarget scene({569, 320}, {60, 60});
  GpuImage grey;
  GpuImage scores;
  grey.uploadGrey(scene.pixels());
  const GpuImage templ = grey.region({100, 100, side, side}).clone();
  for (auto _ : state) gpuMatchTemplate(grey, templ, scores, cv::TM_CCOEFF_NORMED);
}

void frameSizes(benchmark::internal::Benchmark* benchmark) {
  benchmark->ArgNames({"w", "h"})->Args({640, 360})->Args({1920, 1080})->Args({3840, 2160});
  benchmark->MeasureProcessCPUTime()->Unit(benchmark::kMillisecond)->Iterations(bench::steps(60));
}

BENCHMARK(BM_UploadGrey)->Apply(frameSizes);
BENCHMARK(BM_CloneRegion)->Apply(frameSizes);
BENCHMARK(BM_ShrinkFrame)->Apply(frameSizes)->UseManualTime();
BENCHMARK(BM_MatchCoarse)
    ->ArgName("templ")
    ->Arg(6)
    ->Arg(15)
    ->Arg(40)
    ->MeasureProcessCPUTime()
    ->Unit(benchmark::kMillisecond)
    ->Iterations(bench::steps(60));

}  // namespace
