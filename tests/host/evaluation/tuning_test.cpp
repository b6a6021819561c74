// The search of a configuration, on scores that are arithmetic: no tracker, no clock.
#include "evaluation/tuning.h"

#include <gtest/gtest.h>

#include <cmath>

#include "base/host_error.h"
#include "evaluation/tune_scoring.h"
#include "evaluation/tuning_result.h"

namespace {

using Json = nlohmann::json;
using host::Rung;
using host::Trial;
using host::TrialScore;
using host::TuneSettings;

/// Best at filter_lr 0.02 and without gray.
TrialScore hill(const Json& config) {
  const Json csrt = config.value("csrt", Json::object());
  TrialScore s;
  s.score = 1 - std::abs(std::log(csrt.value("filter_lr", 0.05) / 0.02)) - (csrt.value("use_gray", false) ? 0.3 : 0);
  return s;
}

struct TestSearch {
  TuneSettings settings;
  long calls = 0;
  long limit = 1000000;
  std::vector<Trial> made;

  std::vector<Trial> search(const std::vector<Trial>& known = {}) {
    host::TuneHooks hooks;
    hooks.timeIsUp = [this] { return calls >= limit; };
    hooks.evaluate = [this](const std::vector<Json>& configs, const Rung&) {
      std::vector<TrialScore> scores;
      for (const Json& config : configs) scores.push_back(hill(config));
      calls += static_cast<long>(configs.size());
      return scores;
    };
    hooks.onTrial = [this](const Trial& trial) { made.push_back(trial); };
    return host::runTuning(settings, host::defaultSearchSpace(), hooks, known);
  }
};

std::string textOf(const std::vector<Trial>& trials) {
  Json all = Json::array();
  for (const Trial& trial : trials) all.push_back(toJson(trial));
  return all.dump();
}

TestSearch runOf(long brackets) {
  TestSearch run;
  run.settings.brackets = brackets;
  run.settings.starts = {Json::object()};
  return run;
}

TEST(Tuning, HalvesABracketFromRungToRung) {
  TestSearch run = runOf(1);
  const std::vector<Trial> trials = run.search();
  ASSERT_EQ(trials.size(), 9U + 3U + 1U);
  EXPECT_EQ(trials[0].config, Json::object());  // the start
  EXPECT_EQ(trials[12].rung, 2);
  for (const Trial& trial : trials) EXPECT_LE(trial.score.score, trials[12].score.score);
}

TEST(Tuning, FindsTheHill) {
  TestSearch run = runOf(30);
  const std::vector<Trial> trials = run.search();
  const Trial* best = host::bestOf(trials);
  ASSERT_NE(best, nullptr);
  EXPECT_GT(best->score.score, 0.9);           // filter_lr between 0.018 and 0.022
  EXPECT_LT(hill(Json::object()).score, 0.1);  // where it began
}

TEST(Tuning, TheSameSeedGivesTheSameSearchAndAnotherSeedAnother) {
  EXPECT_EQ(textOf(runOf(3).search()), textOf(runOf(3).search()));
  TestSearch other = runOf(3);
  other.settings.seed = 2;
  EXPECT_NE(textOf(other.search()), textOf(runOf(3).search()));
}

TEST(Tuning, AStoppedSearchGoesOnWhereItWas) {
  const std::vector<Trial> whole = runOf(3).search();
  for (const long stop : {0L, 1L, 8L, 9L, 20L, 38L}) {
    TestSearch first = runOf(3);
    first.limit = stop;
    const std::vector<Trial> known = first.search();
    EXPECT_EQ(static_cast<long>(known.size()), stop);
    TestSearch second = runOf(3);
    EXPECT_EQ(textOf(second.search(known)), textOf(whole)) << "stopped after " << stop;
    EXPECT_EQ(second.calls, static_cast<long>(whole.size()) - stop);
  }
}

TEST(Tuning, ShardsTakeBracketsInTurn) {
  TestSearch second = runOf(2);
  second.settings.shard = {2, 3};
  const std::vector<Trial> trials = second.search();
  EXPECT_EQ(trials.front().bracket, 1);
  EXPECT_EQ(trials.back().bracket, 4);
}

TEST(Tuning, BestIsOfTheHighestRungReached) {
  Trial low;
  low.score.score = 0.9;
  Trial high;
  high.rung = 1;
  high.score.score = 0.5;
  const std::vector<Trial> trials = {low, high};
  EXPECT_EQ(host::bestOf(trials), &trials[1]);
  EXPECT_EQ(host::bestOf({}), nullptr);
}

TEST(KeyEffects, PutTheKeysThatMatterFirst) {
  host::SeededRandom random(3);
  std::vector<Trial> trials(90);
  for (std::size_t i = 0; i < trials.size(); ++i) {
    trials[i].config = host::randomConfig(host::defaultSearchSpace(), Json::object(), random);
    trials[i].score = hill(trials[i].config);
  }
  const std::vector<host::KeyEffect> effects = host::keyEffects(host::defaultSearchSpace(), trials);
  ASSERT_GE(effects.size(), 10U);
  EXPECT_TRUE(effects[0].path == "csrt.filter_lr" || effects[0].path == "csrt.use_gray") << effects[0].path;
}

TEST(KeyEffects, GiveNoKeyTheCreditForALaterBracket) {
  std::vector<Trial> trials;
  for (int i = 0; i < 8; ++i) {
    Trial trial;
    trial.bracket = i / 4;
    trial.config = {{"csrt", {{"scale_lr", i < 4 ? 0.1 + 0.01 * (i % 2) : 0.2 + 0.01 * (i % 2)}}}};
    trial.score.score = trial.bracket == 0 ? 0.2 : 0.7;
    trials.push_back(trial);
  }
  const std::vector<host::KeyEffect> effects = host::keyEffects(host::defaultSearchSpace(), trials);
  ASSERT_EQ(effects.size(), 1U);
  EXPECT_NEAR(effects[0].effect, 0, 1e-12);
}

TEST(KeyEffects, AreTheDifferenceOfHalves) {
  std::vector<Trial> trials;
  for (const auto& [gray, score] : {std::pair(true, 0.6), {true, 0.8}, {false, 0.1}, {false, 0.3}}) {
    Trial trial;
    trial.config = {{"csrt", {{"use_gray", gray}}}};
    trial.score.score = score;
    trials.push_back(trial);
  }
  const std::vector<host::KeyEffect> effects = host::keyEffects(host::defaultSearchSpace(), trials);
  ASSERT_EQ(effects.size(), 1U);
  EXPECT_EQ(effects[0].path, "csrt.use_gray");
  EXPECT_NEAR(effects[0].effect, 0.7 - 0.2, 1e-12);
  EXPECT_NEAR(effects[0].error, std::sqrt(0.01 + 0.01), 1e-12);  // each half: variance 0.02 over two trials
  EXPECT_EQ(effects[0].trials, 4);
}

TEST(SearchSpace, StaysInItsRangesAndKeepsAFeature) {
  const host::SearchSpace space = host::defaultSearchSpace();
  host::SeededRandom random(5);
  Json config = Json::object();
  for (int i = 0; i < 300; ++i) {
    config = i % 3 == 0 ? host::randomConfig(space, Json::object(), random) : host::neighbourOf(space, config, random);
    for (const host::SearchKey& k : space) {
      if (!config.contains(k.group) || !config[k.group].contains(k.key) || k.high <= k.low) continue;
      EXPECT_GE(config[k.group][k.key].get<double>(), k.low) << k.path();
      EXPECT_LE(config[k.group][k.key].get<double>(), k.high) << k.path();
    }
    const Json csrt = config.value("csrt", Json::object());
    EXPECT_TRUE(csrt.value("use_hog", true) || csrt.value("use_color_names", true));
  }
}

TEST(SearchSpace, LeavesAloneWhatNothingReads) {
  const host::SearchSpace space = host::defaultSearchSpace();
  const Json base = {{"roi", {{"enable", false}}}, {"redetect", {{"frames_lost_before_reset", 1000000}}}};
  host::SeededRandom random(7);
  int changed = 0;
  for (int i = 0; i < 200; ++i) {
    const Json near = host::neighbourOf(space, base, random);
    if (!near["roi"]["enable"].get<bool>()) {
      EXPECT_EQ(near["roi"], base["roi"]);
    }
    if (near["redetect"]["frames_lost_before_reset"] == 1000000) {
      EXPECT_EQ(near["redetect"], base["redetect"]);
    }
    changed += near["roi"].size() > 1 || near["redetect"].size() > 1 ? 1 : 0;
  }
  EXPECT_GT(changed, 0);  // once it is switched on, its keys move as all others do
}

TEST(SearchSpace, NeverTriesAParentAgain) {
  const host::SearchSpace space = host::defaultSearchSpace();
  host::SeededRandom random(11);
  const Json parent = host::neighbourOf(space, Json::object(), random);
  for (int i = 0; i < 300; ++i) EXPECT_NE(host::neighbourOf(space, parent, random), parent);
}

TEST(TuneGoal, TimeAboveTheAllowanceCostsScore) {
  const host::TuneGoal goal{"both", 0.5, 20.0};
  EXPECT_DOUBLE_EQ(host::scoreFor(goal, 0.6, 0.4, 10), 0.5);
  EXPECT_DOUBLE_EQ(host::scoreFor(goal, 0.6, 0.4, 14), 0.5 - 0.2);
  EXPECT_DOUBLE_EQ(host::scoreFor({"success", 0, 0}, 0.6, 0.4, 99), 0.4);
  EXPECT_DOUBLE_EQ(host::scoreFor({"on-target", 0, 0}, 0.6, 0.4, 99), 0.6);
  EXPECT_THROW(host::checkGoal({"fame", 0, 0}), host::HostError);
}

std::vector<host::Sequence> fourTargets() {
  host::Sequence s;
  s.name = "street";
  s.targets = host::parseTruth("frame,id,x,y,w,h\n1,1,1,1,9,9\n31,1,1,1,9,9\n1,2,1,1,9,9\n1,3,1,1,9,9\n61,4,1,1,9,9\n",
                               "t", {}, "");
  return {s};
}

TEST(TuneSplit, HoldsBackEverySecondTargetOrTheNamedOnes) {
  const host::TuneSplit split = host::splitTargets(fourTargets(), {});
  ASSERT_EQ(split.training[0].targets.size(), 2U);
  EXPECT_EQ(split.heldBack[0].targets[1].name, "3");
  EXPECT_EQ(host::splitTargets(fourTargets(), {"4"}).training[0].targets.size(), 3U);
  EXPECT_THROW(host::splitTargets(fourTargets(), {"9"}), host::HostError);
  EXPECT_THROW(host::splitTargets(fourTargets(), {"1", "2", "3", "4"}), host::HostError);
}

TEST(TuneSplit, GoesByTheNumberOfMarksSoThatTheHalvesWeighAlike) {
  host::Sequence s;
  s.name = "street";
  for (const auto& [name, marks] : {std::pair("a", 2), {"b", 50}, {"c", 3}, {"d", 60}}) {
    host::TruthTarget target;
    target.name = name;
    target.marks.resize(static_cast<std::size_t>(marks));
    s.targets.push_back(target);
  }
  s.targets[1].marks.resize(70);
  for (std::size_t i = 50; i < 70; ++i) s.targets[1].marks[i].absent = true;  // not judged, so they weigh nothing
  const host::TuneSplit split = host::splitTargets({s}, {});
  ASSERT_EQ(split.heldBack[0].targets.size(), 2U);
  EXPECT_EQ(split.heldBack[0].targets[0].name, "c");  // third by marks, after d and b
  EXPECT_EQ(split.heldBack[0].targets[1].name, "d");
}

TEST(RungPart, TakesAShareOfTargetsAndFrames) {
  const host::RungPart part = host::partFor(fourTargets(), {0, 0.5, 1.0 / 3});
  ASSERT_EQ(part.sequences[0].targets.size(), 2U);
  EXPECT_EQ(part.sequences[0].targets[1].name, "3");  // spread, not the first ones
  EXPECT_EQ(part.maxFrames, 10);                      // of the longest target's 30
  EXPECT_EQ(host::partFor(fourTargets(), {2, 1, 1}).maxFrames, 0);
}

TEST(TuningResult, ReadsBackMergesAndReports) {
  host::TuningResult a;
  a.search = {{"seed", 1}};
  a.trials = runOf(1).search();
  a.heldBack = {{"default", Json::object(), {}}, {"best", host::bestOf(a.trials)->config, {0.5, 0.6, 0.4, 9}}};
  const std::string text = toJson(a).dump();
  EXPECT_EQ(toJson(host::tuningFromJson(text, "a")).dump(), text);
  EXPECT_NE(host::reportOf(a).find("| best | 0.600 | 0.400 | 9.00 |"), std::string::npos) << host::reportOf(a);

  TestSearch other = runOf(1);
  other.settings.shard = {2, 2};
  host::TuningResult b = a;
  b.trials = other.search();
  EXPECT_EQ(host::mergeTunings({a, b}, {"a", "b"}).trials.size(), 26U);
  EXPECT_THROW(host::mergeTunings({a, a}, {"a", "a"}), host::HostError);
  b.search["seed"] = 2;
  EXPECT_THROW(host::mergeTunings({a, b}, {"a", "b"}), host::HostError);
  EXPECT_THROW(host::tuningFromJson("{}", "a"), host::HostError);
}

}  // namespace
