// The clock that the plug-in's rules in seconds are measured with.
#include "input/frame_clock.h"

#include <gtest/gtest.h>

#include <chrono>
#include <memory>
#include <opencv2/core.hpp>
#include <thread>

#include "plugin/target_session.h"

namespace host {
namespace {

double now_s() {
  return std::chrono::duration<double>(std::chrono::steady_clock::now().time_since_epoch()).count();
}

TEST(FrameClock, StandsAtTheGivenTimeAndIsNeverZero) {
  double first = 0;
  double later = 0;
  {
    const FrameClock clock(0.0);
    first = now_s();
    EXPECT_EQ(now_s(), first);
  }
  {
    const FrameClock clock(1.25);
    later = now_s();
  }
  EXPECT_GT(first, 0.0);
  EXPECT_NEAR(later - first, 1.25, 1e-6);
}

TEST(FrameClock, LeavesOtherThreadsAndLaterCallsAlone) {
  const double before = now_s();
  double elsewhere = 0;
  {
    const FrameClock clock(3.0);
    std::thread([&elsewhere] { elsewhere = now_s(); }).join();
  }
  EXPECT_GE(elsewhere, before);
  EXPECT_GE(now_s(), elsewhere);
}

/// Answers nothing and remembers what its clock said.
class ClockReader : public IAlgoPlugin {
 public:
  using Frames = std::vector<std::shared_ptr<ocula::OculaPicture>>;
  std::vector<AlgoOutput> init(const Frames&, const BBox&, bool* started) override {
    *started = true;
    read_s = now_s();
    return {};
  }
  std::vector<AlgoOutput> update(const Frames&, bool*) override {
    read_s = now_s();
    return {};
  }
  std::vector<AlgoOutputDeclaration> getOutputDeclarations() const override { return {}; }
  bool isAlive() override { return true; }
  std::string getName() const override { return {}; }
  std::string getUuid() override { return {}; }
  bool isDynamic() const override { return true; }
  void changePerformance(int) override {}
  void enableDebug(bool) override {}
  std::string getConfigList() override { return {}; }
  void setConfig(std::string) override {}
  std::string getPropertyList() override { return {}; }
  void setProperty(std::string, std::string) override {}
  std::string property(std::string) override { return {}; }

  double read_s = 0;
};

TEST(FrameClock, GivesThePluginTheFramesTimeWhenTheSessionIsToldTo) {
  const auto plugin = std::make_shared<ClockReader>();
  TargetSession session(plugin, "target");
  const auto frame = std::make_shared<ocula::OculaPicture>(cv::Mat(32, 32, CV_8UC3, cv::Scalar::all(0)));
  session.keepPace(Pace::Video);
  session.init(frame, {0, 0.0}, {1, 1, 8, 8});
  const double begin = plugin->read_s;
  const CallRecord record = session.update(frame, {1, 500.0});
  EXPECT_NEAR(plugin->read_s - begin, 500.0, 1e-6);
  EXPECT_LT(record.update_ms, 400e3) << "the time a call takes is still the machine's";
  session.keepPace(Pace::Fast);
  const double machine = now_s();
  session.update(frame, {2, 900.0});
  EXPECT_GE(plugin->read_s, machine);
}

}  // namespace
}  // namespace host
