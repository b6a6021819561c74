#include <benchmark/benchmark.h>

#include <cstdlib>
#include <opencv2/core/utility.hpp>
#include <opencv2/core/version.hpp>

#include "gpu_image.h"

// One thread unless CSRT_BENCH_THREADS says otherwise: then times do not depend on what else the machine does.
int main(int argc, char** argv) {
  const char* threads = std::getenv("CSRT_BENCH_THREADS");
  cv::setNumThreads(threads != nullptr ? std::atoi(threads) : 1);
  benchmark::AddCustomContext("opencv", CV_VERSION);
  benchmark::AddCustomContext("compiler", __VERSION__);
  benchmark::AddCustomContext("images", imageBackendName());
  benchmark::Initialize(&argc, argv);
  if (benchmark::ReportUnrecognizedArguments(argc, argv)) return 2;
  benchmark::RunSpecifiedBenchmarks();
  benchmark::Shutdown();
  return 0;
}
