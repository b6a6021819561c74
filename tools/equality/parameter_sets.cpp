#include "parameter_sets.h"

namespace equality {
namespace {

using Params = cv::tracking::TrackerCSRT::Params;

template <typename Change>
ParameterSet changed(const std::string& name, Change change) {
  ParameterSet set{name, Params()};
  change(set.params);
  return set;
}

/// Only one kind of feature.
void only(Params& p, bool hog, bool names, bool grey, bool rgb) {
  p.use_hog = hog;
  p.use_color_names = names;
  p.use_gray = grey;
  p.use_rgb = rgb;
}

}  // namespace

std::vector<ParameterSet> parameterSets() {
  return {
      changed("OpenCV's defaults", [](Params&) {}),
      changed("small and few scales",
              [](Params& p) {
                p.template_size = 120;
                p.number_of_scales = 17;
                p.admm_iterations = 2;
              }),
      changed("gradients only", [](Params& p) { only(p, true, false, false, false); }),
      changed("colour names only", [](Params& p) { only(p, false, true, false, false); }),
      changed("grey only", [](Params& p) { only(p, false, false, true, false); }),
      changed("gradients and colours", [](Params& p) { only(p, true, false, false, true); }),
      changed("every feature", [](Params& p) { only(p, true, true, true, true); }),
      changed("no segmentation", [](Params& p) { p.use_segmentation = false; }),
      changed("no channel weights", [](Params& p) { p.use_channel_weights = false; }),
      changed("Chebyshev window",
              [](Params& p) {
                p.window_function = "cheb";
                p.cheb_attenuation = 60;
              }),
      changed("Kaiser window",
              [](Params& p) {
                p.window_function = "kaiser";
                p.kaiser_alpha = 2.5F;
              }),
      changed("template of 97", [](Params& p) { p.template_size = 97; }),
      changed("template of 310", [](Params& p) { p.template_size = 310; }),
      changed("wide padding", [](Params& p) { p.padding = 4.5F; }),
      changed("eager learning",
              [](Params& p) {
                p.filter_lr = 0.15F;
                p.weights_lr = 0.3F;
                p.histogram_lr = 0.3F;
                p.scale_lr = 0.2F;
              }),
      changed("few gradient channels",
              [](Params& p) {
                p.num_hog_channels_used = 9;
                p.hog_clip = 2.0F;
              }),
      changed("coarse histograms",
              [](Params& p) {
                p.histogram_bins = 8;
                p.background_ratio = 4;
              }),
      changed("many iterations", [](Params& p) { p.admm_iterations = 7; }),
      changed("large steps of scale",
              [](Params& p) {
                p.scale_step = 1.06F;
                p.scale_model_max_area = 900.0F;
                p.scale_sigma_factor = 0.5F;
              }),
      changed("gives up early", [](Params& p) { p.psr_threshold = 0.09F; }),
      changed("narrow response", [](Params& p) { p.gsl_sigma = 0.4F; }),
  };
}

}  // namespace equality
