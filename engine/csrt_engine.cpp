#include "csrt_engine/csrt_engine.h"

#include <cstdlib>
#include <string_view>

#include "tracker.h"

namespace csrt_engine {
namespace {

const Kernels& bestKernels() {
  const char* wanted = std::getenv("CSRT_ENGINE_ISA");
  if (wanted && std::string_view(wanted) == "baseline") return baselineKernels();
#ifdef CSRT_ENGINE_AVX2
  if (__builtin_cpu_supports("avx2")) return avx2Kernels();
#endif
  return baselineKernels();
}

}  // namespace

const Kernels& kernels() {
  static const Kernels& best = bestKernels();
  return best;
}

Handling handling(const cv::tracking::TrackerCSRT::Params&) { return {true, ""}; }

cv::Ptr<cv::tracking::TrackerCSRT> create(const cv::tracking::TrackerCSRT::Params& params) {
  if (!handling(params).own) return cv::tracking::TrackerCSRT::create(params);
  return cv::makePtr<EngineTracker>(params, kernels());
}

const char* instructionSet() { return kernels().name; }

}  // namespace csrt_engine
