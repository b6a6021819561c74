// A camera whose angles come late, or early, is noticed: the simulator's camera follows a car with the real plug-in
// once; then what it said is moved in time against the pictures.
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <vector>

#include "ocula/ocula_picture.h"
#include "run/delay_observer.h"
#include "simulator/scenario_reader.h"
#include "simulator/simulation.h"

namespace host::sim {
namespace {

constexpr const char* kScenario = R"({
  "title": "A car far off the middle is followed", "duration_s": 6, "fps": 25,
  "camera": { "pan_deg": 0, "tilt_deg": 0, "hfov_deg": 60, "delay_s": 0.04 },
  "target": { "look": "car", "size_deg": [4, 2], "path": [
    { "t_s": 0, "pan_deg": 20, "tilt_deg": -6 }, { "t_s": 10, "pan_deg": 70, "tilt_deg": -6 }] },
  "metadata": { "noise_deg": 0.02 },
  "host": { "follow_me": false, "controller": "predicting", "follow": { "max_rate_dps": 60 } },
  "config": {} })";

struct Moment {
  double t_s;
  Angles angles;
  CallRecord record;
};

class Witness : public SimulationObserver {
 public:
  using SimulationObserver::SimulationObserver;
  std::vector<Moment> moments;
  cv::Size size;
  double hfov = 0.0;
  double vfov = 0.0;

 private:
  void seen(const SimulatedFrame& frame) override {
    moments.push_back({frame.record.time_s, frame.camera.gimbal, frame.record});
    size = frame.bgr.size();
    hfov = frame.camera.view.hfov;
    vfov = frame.camera.view.vfov;
  }
};

/// The run is flown once for all tests.
class StaleAngles : public ::testing::Test {
 protected:
  static void SetUpTestSuite() {
    PluginLibrary library(CSRT_REAL_PLUGIN);
    static const Scenario scenario = parseScenario(kScenario, "stale_angles_test");
    static SimulatedCamera camera(scenario);
    static Witness witness(camera);
    ASSERT_TRUE(simulate(camera, library, {}, {&witness}));
    witness_ = &witness;
  }

  static Angles anglesAt(double t_s) {
    const std::vector<Moment>& all = witness_->moments;
    const auto after =
        std::lower_bound(all.begin(), all.end(), t_s, [](const Moment& moment, double t) { return moment.t_s < t; });
    if (after == all.begin()) return after->angles;
    if (after == all.end()) return all.back().angles;
    const Moment& before = *std::prev(after);
    const double share = (t_s - before.t_s) / (after->t_s - before.t_s);
    return {before.angles.pan + share * (after->angles.pan - before.angles.pan),
            before.angles.tilt + share * (after->angles.tilt - before.angles.tilt)};
  }

  /// The observer's answer when each frame comes with the angles of `stale_s` before it.
  static std::optional<double> found_ms(double stale_s, std::string& sentence) {
    using Keys = ocula::OculaPicture::BaseMetadata::Keys;
    DelayObserver observer(true);
    std::optional<double> found;
    for (const Moment& moment : witness_->moments) {
      SourceFrame frame;
      frame.time_s = moment.t_s;
      frame.bgr = cv::Mat(witness_->size, CV_8UC3);
      frame.live.emplace();
      const Angles angles = anglesAt(moment.t_s - stale_s);
      frame.live->camera = {{Keys::kPanDeg, angles.pan},
                            {Keys::kTiltDeg, angles.tilt},
                            {Keys::kHfovDeg, witness_->hfov},
                            {Keys::kVfovDeg, witness_->vfov}};
      observer.frame(frame, {moment.record});
      if (observer.stale_ms()) found = observer.stale_ms();
    }
    sentence = observer.sentence();
    return found;
  }

  static inline const Witness* witness_ = nullptr;
};

TEST_F(StaleAngles, AreFoundWithinTwentyMilliseconds) {
  for (const double stale_s : {-0.05, 0.0, 0.05, 0.1, 0.15, 0.2, 0.25, 0.3}) {
    std::string sentence;
    const std::optional<double> found = found_ms(stale_s, sentence);
    ASSERT_TRUE(found) << stale_s;
    EXPECT_NEAR(*found, 1000 * stale_s, 20.0);
    const char* const wanted = stale_s > 0.04 ? "behind" : stale_s < -0.04 ? "ahead of" : "";
    EXPECT_EQ(sentence.empty(), *wanted == 0) << sentence;
    EXPECT_NE(sentence.find(wanted), std::string::npos) << sentence;
  }
}

TEST_F(StaleAngles, NothingIsClaimedWithoutFieldsOfView) {
  DelayObserver observer(true);
  for (const Moment& moment : witness_->moments) {
    SourceFrame frame;
    frame.time_s = moment.t_s;
    frame.bgr = cv::Mat(witness_->size, CV_8UC3);
    frame.live.emplace();
    frame.live->camera = {{"pan_deg", moment.angles.pan}, {"tilt_deg", moment.angles.tilt}};
    observer.frame(frame, {moment.record});
  }
  EXPECT_FALSE(observer.stale_ms());
  EXPECT_EQ(observer.sentence(), "");
}

TEST_F(StaleAngles, ARecordedClipIsNotJudged) {
  DelayObserver observer(true);
  for (const Moment& moment : witness_->moments) {
    SourceFrame frame;
    frame.time_s = moment.t_s;
    observer.frame(frame, {moment.record});
  }
  EXPECT_FALSE(observer.stale_ms());
}

}  // namespace
}  // namespace host::sim
