// What does a re-detection cost in GPU memory and in host memory, and which share of it is the bus? Both in one run:
// the last argument of a benchmark is 0 for the host, 1 for the device. The very first use of the device (its context
// and the matcher) is timed before all else and printed with the context of the run. A find in the wrong place fails.
#include <benchmark/benchmark.h>

#include <algorithm>
#include <chrono>
#include <cstdlib>
#include <opencv2/imgproc.hpp>
#include <string>

#include "gpu_image.h"
#include "image_backend.h"

namespace {

constexpr int kMethod = cv::TM_CCOEFF_NORMED;
constexpr double kCoarseSide = 320.0;
constexpr int kSearchSide = 200;

bool hasDevice() {
  return std::string(imageBackendName()) == "cuda";
}

const ImageBackend& backendOf(int device) {
  static const HostImageBackend host;
  return device != 0 ? imageBackend() : host;
}

// Smooth random shapes, so that shrinking leaves something to find; the target is a part of the picture.
struct Scene {
  explicit Scene(const cv::Size& size) : target(size.width / 2, size.height / 3, size.width / 20, size.height / 12) {
    cv::RNG random(99);
    cv::Mat small(size / 24, CV_8UC3);
    random.fill(small, cv::RNG::UNIFORM, 0, 256);
    cv::resize(small, picture, size, 0, 0, cv::INTER_LINEAR);
    cv::cvtColor(picture, grey, cv::COLOR_BGR2GRAY);
  }

  cv::Rect target;
  cv::Mat picture;
  cv::Mat grey;
};

cv::Point bestPlace(const ImageBackend& backend, const GpuImage& scores, cv::Mat& onHost) {
  cv::Point place;
  backend.download(scores, onHost);
  cv::minMaxLoc(onHost, nullptr, nullptr, nullptr, &place);
  return place;
}

// One search as the plug-in does it, step by step, with buffers that last.
class Search {
 public:
  Search(const ImageBackend& backend, const Scene& scene)
      : backend_(backend), scene_(scene), factor_(kCoarseSide / scene.grey.rows) {
    backend_.upload(scene.grey(scene.target), patch_);
    bringFrame();
  }

  void bringFrame() { backend_.uploadGrey(scene_.picture, frame_); }

  // @return  the target's corner, frame pixels, to the accuracy of the small picture
  cv::Point coarse() {
    backend_.resize(frame_, coarse_, {}, factor_, factor_, cv::INTER_AREA);
    backend_.resize(patch_, smallPatch_, {}, factor_, factor_, cv::INTER_LINEAR);
    const cv::Size unscaled = backend_.size(smallPatch_);
    cv::Point place;
    for (const double scale : {0.9, 1.1, 1.0}) {  // all three, the right one last
      const cv::Size size(cvRound(unscaled.width * scale), cvRound(unscaled.height * scale));
      if (size != unscaled) backend_.resize(smallPatch_, templ_, size, 0, 0, cv::INTER_LINEAR);
      backend_.matchTemplate(coarse_, size != unscaled ? templ_ : smallPatch_, scores_, kMethod);
      place = bestPlace(backend_, scores_, scoreMap_);
    }
    return {cvRound(place.x / factor_), cvRound(place.y / factor_)};
  }

  cv::Point fine(const cv::Point& near) {
    const int side = std::max(kSearchSide, 2 * std::max(scene_.target.width, scene_.target.height));
    const cv::Rect around(near.x + (scene_.target.width - side) / 2, near.y + (scene_.target.height - side) / 2, side,
                          side);
    const cv::Rect search = around & cv::Rect({}, scene_.grey.size());
    backend_.matchTemplate(backend_.region(frame_, search), patch_, scores_, kMethod);
    return search.tl() + bestPlace(backend_, scores_, scoreMap_);
  }

  double appearance(const cv::Point& corner) {
    cv::Mat candidate;
    cv::Mat patch;
    backend_.download(backend_.region(frame_, {corner, scene_.target.size()}), candidate);
    backend_.download(patch_, patch);
    cv::Mat score;
    cv::matchTemplate(candidate, patch, score, kMethod);
    return score.at<float>(0, 0);
  }

  bool isFarFromTarget(const cv::Point& place, int pixels) const {
    const cv::Point miss = place - scene_.target.tl();
    return std::max(std::abs(miss.x), std::abs(miss.y)) > pixels;
  }
  int coarsePixel() const { return cvCeil(2.0 / factor_); }

 private:
  const ImageBackend& backend_;
  const Scene& scene_;
  double factor_;
  GpuImage frame_;
  GpuImage patch_;
  GpuImage coarse_;
  GpuImage smallPatch_;
  GpuImage templ_;
  GpuImage scores_;
  cv::Mat scoreMap_;
};

bool skips(benchmark::State& state) {
  const bool missing = state.range(2) != 0 && !hasDevice();
  if (missing) state.SkipWithError("no CUDA device, or built without OpenCV's CUDA modules");
  return missing;
}

cv::Size sizeOf(const benchmark::State& state) {
  return {static_cast<int>(state.range(0)), static_cast<int>(state.range(1))};
}

template <typename Step>
void searchBench(benchmark::State& state, Step step) {
  if (skips(state)) return;
  const Scene scene(sizeOf(state));
  Search search(backendOf(static_cast<int>(state.range(2))), scene);
  for (auto _ : state) {
    if (!step(search, scene)) {
      state.SkipWithError("not found where it is: the time means nothing");
      return;
    }
  }
}

void BM_BringFrame(benchmark::State& state) {
  searchBench(state, [](Search& search, const Scene&) {
    search.bringFrame();
    return true;
  });
}

void BM_Coarse(benchmark::State& state) {
  searchBench(state, [](Search& search, const Scene&) {
    return !search.isFarFromTarget(search.coarse(), search.coarsePixel());
  });
}

void BM_Fine(benchmark::State& state) {
  searchBench(state, [](Search& search, const Scene& scene) {
    return !search.isFarFromTarget(search.fine(scene.target.tl()), 0);
  });
}

void BM_Appearance(benchmark::State& state) {
  searchBench(state, [](Search& search, const Scene& scene) { return search.appearance(scene.target.tl()) > 0.99; });
}

void BM_WholeSearch(benchmark::State& state) {
  searchBench(state, [](Search& search, const Scene&) {
    search.bringFrame();
    const cv::Point place = search.fine(search.coarse());
    return !search.isFarFromTarget(place, 0) && search.appearance(place) > 0.99;
  });
}

void sizesAndBackends(benchmark::internal::Benchmark* bench) {
  bench->ArgNames({"w", "h", "gpu"})->Unit(benchmark::kMillisecond)->UseRealTime();
  for (const int gpu : {0, 1}) {
    bench->Args({1920, 1080, gpu});
    bench->Args({3840, 2160, gpu});
  }
}
BENCHMARK(BM_BringFrame)->Apply(sizesAndBackends);
BENCHMARK(BM_Coarse)->Apply(sizesAndBackends);
BENCHMARK(BM_Fine)->Apply(sizesAndBackends);
BENCHMARK(BM_Appearance)->Apply(sizesAndBackends);
BENCHMARK(BM_WholeSearch)->Apply(sizesAndBackends);

// Milliseconds from nothing to the first scores of a small search.
double firstCall() {
  const Scene scene({640, 360});
  const auto start = std::chrono::steady_clock::now();
  Search search(imageBackend(), scene);
  search.coarse();
  return std::chrono::duration<double, std::milli>(std::chrono::steady_clock::now() - start).count();
}

}  // namespace

int main(int argc, char** argv) {
  cv::setNumThreads(1);
  benchmark::AddCustomContext("images_in", imageBackendName());
  benchmark::AddCustomContext("first_call_ms", std::to_string(firstCall()));
  benchmark::Initialize(&argc, argv);
  if (benchmark::ReportUnrecognizedArguments(argc, argv)) return 1;
  benchmark::RunSpecifiedBenchmarks();
  benchmark::Shutdown();
  return 0;
}
