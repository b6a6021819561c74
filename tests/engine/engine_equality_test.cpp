// The engine and OpenCV's tracker side by side on drawn scenes: every answer is the same box.
#include <gtest/gtest.h>

#include <functional>
#include <opencv2/tracking.hpp>

#include "csrt_engine/csrt_engine.h"
#include "drawn_scene.h"

namespace csrt_engine {
namespace {

using Tracker = cv::tracking::TrackerCSRT;
using Params = Tracker::Params;
using engine_test::DrawnScene;

struct Answer {
  bool found;
  cv::Rect box;
  bool operator==(const Answer& o) const { return found == o.found && (!found || box == o.box); }
};

std::ostream& operator<<(std::ostream& out, const Answer& a) {
  return out << (a.found ? "found " : "lost ") << a.box;
}

Answer stepOf(Tracker& tracker, const cv::Mat& frame) {
  Answer answer{false, {}};
  answer.found = tracker.update(frame, answer.box);
  return answer;
}

using Edit = std::function<cv::Mat(const cv::Mat&)>;

void expectSameBoxes(const DrawnScene& scene, const Params& params, int frames, const cv::Rect& box,
                     const Edit& edit = {}, const cv::Mat& mask = {}) {
  cv::setNumThreads(1);
  const cv::Ptr<Tracker> theirs = Tracker::create(params), ours = create(params);
  if (!mask.empty()) {
    theirs->setInitialMask(mask);
    ours->setInitialMask(mask);
  }
  const auto frameAt = [&](int i) { return edit ? edit(scene.frame(i)) : scene.frame(i); };
  theirs->init(frameAt(0), box);
  ours->init(frameAt(0), box);
  for (int i = 1; i <= frames; ++i) {
    const cv::Mat frame = frameAt(i);
    ASSERT_EQ(stepOf(*ours, frame), stepOf(*theirs, frame)) << "frame " << i << " of box " << box;
  }
}

TEST(EngineEquality, FollowsAWalkersBoxTheSame) {
  const DrawnScene scene({320, 240}, {24, 60}, 1);
  ASSERT_TRUE(handling(Params()).own);
  expectSameBoxes(scene, Params(), 20, scene.boxAt(0));
}

TEST(EngineEquality, SmallWideAndOddTargets) {
  for (const cv::Size size : {cv::Size(9, 7), cv::Size(17, 19), cv::Size(71, 23), cv::Size(101, 97)}) {
    const DrawnScene scene({260, 200}, size, size.width);
    expectSameBoxes(scene, Params(), 6, scene.boxAt(0));
  }
}

TEST(EngineEquality, GrayPicturesAndBoxesOverTheEdge) {
  const DrawnScene scene({200, 150}, {40, 30}, 3);
  const Edit gray = [](const cv::Mat& in) {
    cv::Mat out;
    cv::cvtColor(in, out, cv::COLOR_BGR2GRAY);
    return out;
  };
  expectSameBoxes(scene, Params(), 6, scene.boxAt(0), gray);
  expectSameBoxes(scene, Params(), 6, {-20, -10, 50, 40});
  expectSameBoxes(scene, Params(), 6, {170, 120, 60, 60});
  expectSameBoxes(scene, Params(), 4, {-50, -50, 300, 250});
}

TEST(EngineEquality, FlatColorsThatTheSegmentationUnderstands) {
  cv::Mat ground(160, 200, CV_8UC3, cv::Scalar(40, 120, 60));
  const auto frameAt = [&](int i) {
    cv::Mat frame = ground.clone();
    cv::ellipse(frame, {60 + 2 * i, 70 + i}, {18, 26}, 0, 0, 360, cv::Scalar(30, 40, 200), -1);
    return frame;
  };
  const cv::Ptr<Tracker> theirs = Tracker::create(), ours = create();
  theirs->init(frameAt(0), {42, 44, 36, 52});
  ours->init(frameAt(0), {42, 44, 36, 52});
  for (int i = 1; i <= 10; ++i) ASSERT_EQ(stepOf(*ours, frameAt(i)), stepOf(*theirs, frameAt(i))) << "frame " << i;
}

TEST(EngineEquality, LostOnAnEmptyPictureAndWhatFollows) {
  const DrawnScene scene({200, 150}, {30, 40}, 5);
  const cv::Mat flat(150, 200, CV_8UC3, cv::Scalar::all(128));
  const cv::Ptr<Tracker> theirs = Tracker::create(), ours = create();
  theirs->init(scene.frame(0), scene.boxAt(0));
  ours->init(scene.frame(0), scene.boxAt(0));
  int lost = 0;
  for (int i = 1; i <= 12; ++i) {
    const cv::Mat frame = i % 4 == 0 ? flat : scene.frame(i);
    const Answer a = stepOf(*ours, frame);
    ASSERT_EQ(a, stepOf(*theirs, frame)) << "frame " << i;
    lost += !a.found;
  }
  EXPECT_GT(lost, 0);
}

TEST(EngineEquality, AStartWithAMask) {
  const DrawnScene scene({200, 150}, {40, 40}, 6);
  cv::Mat mask = cv::Mat::zeros(40, 40, CV_32FC1);
  cv::circle(mask, {20, 20}, 15, cv::Scalar(1), -1);
  expectSameBoxes(scene, Params(), 5, scene.boxAt(0), {}, mask);
  cv::Mat bytes;
  mask.convertTo(bytes, CV_8UC1);
  expectSameBoxes(scene, Params(), 3, scene.boxAt(0), {}, bytes);
}

struct ParamCase {
  const char* name;
  void (*change)(Params&);
};

class EngineParams : public testing::TestWithParam<ParamCase> {};

TEST_P(EngineParams, SameBoxes) {
  Params params;
  GetParam().change(params);
  ASSERT_TRUE(handling(params).own);
  const DrawnScene scene({220, 160}, {34, 26}, 8);
  expectSameBoxes(scene, params, 4, scene.boxAt(0));
}

INSTANTIATE_TEST_SUITE_P(Switches, EngineParams,
                         testing::Values(ParamCase{"hog_only",
                                                   [](Params& p) { p.use_color_names = p.use_gray = false; }},
                                         ParamCase{"no_hog", [](Params& p) { p.use_hog = false; }},
                                         ParamCase{"rgb", [](Params& p) { p.use_rgb = true; }},
                                         ParamCase{"rgb_only",
                                                   [](Params& p) {
                                                     p.use_rgb = true;
                                                     p.use_hog = p.use_color_names = p.use_gray = false;
                                                   }},
                                         ParamCase{"all_hog", [](Params& p) { p.num_hog_channels_used = 32; }},
                                         ParamCase{"no_weights", [](Params& p) { p.use_channel_weights = false; }},
                                         ParamCase{"no_segmentation", [](Params& p) { p.use_segmentation = false; }},
                                         ParamCase{"chebyshev", [](Params& p) { p.window_function = "cheb"; }},
                                         ParamCase{"kaiser", [](Params& p) { p.window_function = "kaiser"; }},
                                         ParamCase{"small_template", [](Params& p) { p.template_size = 91; }},
                                         ParamCase{"padding", [](Params& p) { p.padding = 1.7f; }},
                                         ParamCase{"sigma", [](Params& p) { p.gsl_sigma = 1.6f; }},
                                         ParamCase{"rates",
                                                   [](Params& p) {
                                                     p.filter_lr = 0.07f;
                                                     p.weights_lr = 0.05f;
                                                     p.scale_lr = 0.08f;
                                                     p.histogram_lr = 0.2f;
                                                   }},
                                         ParamCase{"no_rounds", [](Params& p) { p.admm_iterations = 0; }},
                                         ParamCase{"few_scales",
                                                   [](Params& p) {
                                                     p.number_of_scales = 12;
                                                     p.scale_step = 1.04f;
                                                   }},
                                         ParamCase{"one_scale", [](Params& p) { p.number_of_scales = 1; }},
                                         ParamCase{"scale_model",
                                                   [](Params& p) {
                                                     p.scale_model_max_area = 300;
                                                     p.scale_sigma_factor = 0.4f;
                                                   }},
                                         ParamCase{"bins",
                                                   [](Params& p) {
                                                     p.histogram_bins = 7;
                                                     p.background_ratio = 1;
                                                   }},
                                         ParamCase{"psr", [](Params& p) { p.psr_threshold = 0.2f; }}),
                         [](const testing::TestParamInfo<ParamCase>& one) { return one.param.name; });

}  // namespace
}  // namespace csrt_engine
