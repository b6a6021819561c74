#include "csrt_engine/csrt_engine.h"

#include <cmath>
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

Handling handling(const cv::tracking::TrackerCSRT::Params& p) {
  constexpr int kMostBins = 256, kMostScales = 1000;
  if (p.number_of_scales < 0 || p.number_of_scales > kMostScales) return {false, "number_of_scales outside 0 .. 1000"};
  if (!(p.scale_step > 0) || p.scale_step == 1.0f || !std::isfinite(p.scale_step))
    return {false, "scale_step is 1 or not a positive number"};
  if (p.use_segmentation && p.histogram_bins > kMostBins) return {false, "histogram_bins above 256"};
  for (const float v : {p.padding, p.template_size, p.gsl_sigma, p.scale_sigma_factor, p.scale_model_max_area})
    if (!std::isfinite(v) || v <= 0) return {false, "a size or a spread is not a positive number"};
  return {true, ""};
}

cv::Ptr<cv::tracking::TrackerCSRT> create(const cv::tracking::TrackerCSRT::Params& params) {
  if (!handling(params).own) return cv::tracking::TrackerCSRT::create(params);
  return cv::makePtr<EngineTracker>(params, kernels());
}

const char* instructionSet() {
  return kernels().name;
}

}  // namespace csrt_engine
