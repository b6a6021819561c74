// How much memory does tracking take on top of an idle process that holds the same frame, at its peak?
// Budget: bare CSRT's plus 6 MB at 640 x 360, at most 0.7 of bare CSRT's at 3840 x 2160.
// Every figure comes from a process of its own: this program starts itself again.
#include <benchmark/benchmark.h>
#include <malloc.h>
#include <unistd.h>

#include <array>
#include <climits>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <opencv2/core/utility.hpp>
#include <stdexcept>

#include "bench_support.h"

namespace {

using bench::MovingTarget;
using bench::OpenAlgo;

constexpr int kFrames = 12;
constexpr double kMegabyte = 1024.0;  // of the kilobytes that the system counts in

double statusKilobytes(const char* field) {
  std::ifstream status("/proc/self/status");
  std::string line;
  while (std::getline(status, line)) {
    if (line.rfind(field, 0) == 0) return std::atof(line.c_str() + std::strlen(field));
  }
  throw std::runtime_error("no such field in the process's status");
}

// What was drawn is given back first, and the peak forgotten.
double restartPeak() {
  malloc_trim(0);
  std::ofstream("/proc/self/clear_refs") << "5\n";
  return statusKilobytes("VmRSS:");
}

// Six tracked frames, one on which the target is gone and searched for in the whole frame, then more tracked ones.
void trackByPlugin(MovingTarget& scene) {
  OpenAlgo algo;
  algo.setConfig(R"({"redetect": {"frames_lost_before_reset": 1}})");
  algo.start(scene);
  for (int i = 0; i < kFrames; ++i) {
    if (i == 6) scene.hide();
    if (i == 7) scene.show();
    scene.next();
    algo.step(scene);
  }
}

void trackBare(MovingTarget& scene) {
  const auto tracker = bench::bareTracker(OpenAlgo());
  scene.next();
  tracker->init(scene.pixels(), scene.box());
  cv::Rect box;
  for (int i = 0; i < kFrames; ++i) {
    scene.next();
    tracker->update(scene.pixels(), box);
  }
}

int runChild(const std::string& who, const cv::Size& frame) {
  cv::setNumThreads(1);
  MovingTarget scene(frame, {60, 60});
  const double idle = restartPeak();
  if (who == "plugin") {
    trackByPlugin(scene);
  } else {
    trackBare(scene);
  }
  std::printf("%.0f\n", statusKilobytes("VmHWM:") - idle);
  return 0;
}

double peakMegabytes(const char* who, const benchmark::State& state) {
  std::array<char, PATH_MAX> self{};
  if (readlink("/proc/self/exe", self.data(), self.size() - 1) < 0)
    throw std::runtime_error("cannot find this program");
  const std::string command = "'" + std::string(self.data()) + "' --child " + who + ' ' +
                              std::to_string(state.range(0)) + ' ' + std::to_string(state.range(1));
  std::FILE* child = popen(command.c_str(), "r");
  double kilobytes = 0.0;
  const bool read = child != nullptr && std::fscanf(child, "%lf", &kilobytes) == 1;
  if (child == nullptr || pclose(child) != 0 || !read) throw std::runtime_error("the measured process failed");
  return kilobytes / kMegabyte;
}

void BM_PeakMemory(benchmark::State& state) {
  std::vector<double> plugin;
  std::vector<double> bare;
  for (auto _ : state) {
    plugin.push_back(peakMegabytes("plugin", state));
    bare.push_back(peakMegabytes("bare", state));
  }
  state.counters["plugin_MB"] = bench::medianOf(plugin);
  state.counters["bare_MB"] = bench::medianOf(bare);
  state.counters["more_MB"] = bench::medianOf(plugin) - bench::medianOf(bare);
  state.counters["ratio"] = bench::medianOf(plugin) / bench::medianOf(bare);
}

BENCHMARK(BM_PeakMemory)
    ->ArgNames({"w", "h"})
    ->Args({640, 360})
    ->Args({1920, 1080})
    ->Args({3840, 2160})
    ->Iterations(bench::steps(3))
    ->Unit(benchmark::kMillisecond);

}  // namespace

int main(int argc, char** argv) {
  if (argc == 5 && std::strcmp(argv[1], "--child") == 0) {
    return runChild(argv[2], {std::atoi(argv[3]), std::atoi(argv[4])});
  }
  benchmark::Initialize(&argc, argv);
  if (benchmark::ReportUnrecognizedArguments(argc, argv)) return 2;
  benchmark::RunSpecifiedBenchmarks();
  return 0;
}
