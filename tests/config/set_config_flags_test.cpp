// Which changes ask the next frame for what: every combination of state, size change and change of the csrt group.
#include <gtest/gtest.h>

#include "config_facts.h"

namespace {

using namespace config_facts;

struct State {
  bool initialized;
  bool reset;
  bool rebuild;
};

std::vector<State> states() {
  std::vector<State> all;
  for (int bits = 0; bits < 8; ++bits) all.push_back({(bits & 1) != 0, (bits & 2) != 0, (bits & 4) != 0});
  return all;
}

void enter(OpenedAlgo& algo, const State& state) {
  algo.initialized_ = state.initialized;
  algo.pending_full_reset_ = state.reset;
  algo.pending_rebuild_ = state.rebuild;
}

struct Change {
  const char* json;  // members of the root object
  bool happens;      // false: named, but equal to what is in force
};

const Change kSizes[] = {
    {"", false},
    {R"("input": {"work_width": 640, "work_height": 360})", false},
    {R"("input": {"work_width": "px"})", false},
    {R"("input": {"work_width": 800})", true},
    {R"("input": {"work_height": 800})", true},
    {R"("work_width": 640, "work_height": "360")", false},
    {R"("work_width": 800)", true},
    {R"("work_height": 800)", true},
    {R"("work_width": 640, "input": {"work_width": 800})", true},  // there and back again
};

const Change kCsrt[] = {
    {"", false},
    {R"("csrt": 5)", false},
    {R"("csrt": {"padding": 3.0, "template_size": 200, "use_hog": "on", "window_function": "hann"})", false},
    {R"("csrt": {"padding": null, "unknown": 5})", false},
    {R"("csrt": {"padding": 2.0})", true},
    {R"("csrt": {"window_function": "cheb", "padding": 3})", true},
};

TEST(SetConfigFlags, FollowEveryCombination) {
  for (const State& state : states()) {
    for (const Change& size : kSizes) {
      for (const Change& csrt : kCsrt) {
        OpenedAlgo algo;
        enter(algo, state);
        const bool both = *size.json != '\0' && *csrt.json != '\0';
        const std::string json = std::string("{") + size.json + (both ? ", " : "") + csrt.json + "}";
        algo.setConfig(json);
        const bool reset = size.happens ? state.initialized : state.reset;
        EXPECT_EQ(algo.pending_full_reset_, reset) << json;
        EXPECT_EQ(algo.pending_rebuild_, state.rebuild || (csrt.happens && state.initialized && !reset)) << json;
        EXPECT_EQ(algo.initialized_, state.initialized) << json;
      }
    }
  }
}

// A value that differs from the one at the start, for any key.
std::string otherValue(const std::string& path) {
  if (path == kText) return "\"cheb\"";
  if (path == kList) return "[2]";
  for (const IntFact& fact : integers()) {
    if (path == fact.path) return std::to_string(fact.initial + 1);
  }
  for (const NumberFact& fact : numbers()) {
    if (path == fact.path) return "\"" + std::to_string(fact.initial / 2.0) + "\"";
  }
  for (const BoolFact& fact : booleans()) {
    if (path == fact.path) return fact.initial ? "false" : "true";
  }
  return "";
}

TEST(SetConfigFlags, AreRaisedByTheCsrtGroupAndTheWorkingSizeAlone) {
  for (const std::string& path : paths()) {
    OpenedAlgo algo;
    algo.initialized_ = true;
    testing::internal::CaptureStdout();  // misc.debug talks
    algo.setConfig(payload(path, otherValue(path)));
    EXPECT_EQ(algo.pending_rebuild_, path.rfind("csrt.", 0) == 0) << path;
    EXPECT_EQ(algo.pending_full_reset_, path.find("work_") != std::string::npos) << path;
    enter(algo, {true, false, false});
    algo.setConfig(payload(path, otherValue(path)));  // nothing changes any more
    testing::internal::GetCapturedStdout();
    EXPECT_FALSE(algo.pending_rebuild_ || algo.pending_full_reset_) << path;
  }
}

TEST(SetConfigFlags, CompareWhatIsStoredNotWhatIsSaid) {
  OpenedAlgo algo;
  algo.initialized_ = true;
  algo.config_.input.work_width = 32;
  algo.config_.csrt.padding = 8.0;
  algo.setConfig(R"({"work_width": 5, "csrt": {"padding": "nan", "use_gray": 0}})");
  EXPECT_FALSE(algo.pending_full_reset_);
  EXPECT_FALSE(algo.pending_rebuild_);
}

TEST(SetConfigFlags, StayWhenThePayloadIsInvalid) {
  for (const State& state : states()) {
    OpenedAlgo algo;
    enter(algo, state);
    algo.setConfig(R"({"work_width": 800, "csrt": {"padding": 2}} x)");
    EXPECT_EQ(algo.pending_full_reset_, state.reset);
    EXPECT_EQ(algo.pending_rebuild_, state.rebuild);
  }
}

}  // namespace
