// Two evaluations side by side: differences, intervals that repeat, and what counts as a regression.
#include "evaluation/comparison.h"

#include <gtest/gtest.h>

#include <algorithm>

#include "base/host_error.h"
#include "evaluation/seeded_random.h"

namespace {

using host::CompareSettings;
using host::Comparison;
using host::Difference;
using host::EvaluationResult;

const cv::Rect2d kTruth(100, 100, 40, 40);

/// A target with ten marks, of which the first `on` are met exactly and the others missed.
host::TargetResult target(const std::string& name, int on, double cpu_ms = 10) {
  host::TargetResult t{"street", name, host::kPluginTracker, true, {}};
  for (int i = 1; i <= 10; ++i) {
    const auto box = i <= on ? std::optional<cv::Rect2d>(kTruth) : std::nullopt;
    t.samples.judgements.push_back(host::judge(i, i, kTruth, box, box.has_value()));
    t.samples.cpu_ms.push_back(cpu_ms);
    t.samples.wall_ms.push_back(cpu_ms);
  }
  return t;
}

EvaluationResult result(std::vector<host::TargetResult> targets) {
  EvaluationResult r;
  r.targets = std::move(targets);
  return r;
}

const Difference& figure(const Comparison& c, const std::string& name) {
  const auto it = std::find_if(c.differences.begin(), c.differences.end(),
                               [&name](const Difference& d) { return d.figure == name; });
  EXPECT_NE(it, c.differences.end()) << name;
  return *it;
}

TEST(SeededRandom, IsTheSameEverywhere) {
  host::SeededRandom random(1234567);
  EXPECT_EQ(random.next(), 6457827717110365317U);  // the generator's published first answers
  EXPECT_EQ(random.next(), 3203168211198807973U);
}

TEST(Compare, EqualResultsDifferInNothing) {
  const EvaluationResult a = result({target("1", 4), target("2", 9)});
  const Comparison c = host::compareEvaluations(a, a, {});
  EXPECT_EQ(c.targets, 2U);
  EXPECT_FALSE(c.regression());
  for (const Difference& d : c.differences) {
    EXPECT_DOUBLE_EQ(d.difference, 0) << d.figure;
    EXPECT_DOUBLE_EQ(d.low, 0) << d.figure;
    EXPECT_DOUBLE_EQ(d.high, 0) << d.figure;
  }
}

TEST(Compare, PoolsTheTargetsAndSaysHowSureItIs) {
  const EvaluationResult a = result({target("1", 4), target("2", 8)});
  const EvaluationResult b = result({target("1", 6), target("2", 8)});
  const Difference d = figure(host::compareEvaluations(a, b, {}), "on target");
  EXPECT_DOUBLE_EQ(d.a, 0.6);
  EXPECT_DOUBLE_EQ(d.b, 0.7);
  EXPECT_NEAR(d.difference, 0.1, 1e-12);
  EXPECT_NEAR(d.low, 0.0, 1e-12);   // target 2 drawn twice
  EXPECT_NEAR(d.high, 0.2, 1e-12);  // target 1 drawn twice
}

TEST(Compare, TheSameSeedGivesTheSameText) {
  const EvaluationResult a = result({target("1", 4), target("2", 8), target("3", 1), target("4", 10)});
  const EvaluationResult b = result({target("1", 6), target("2", 7), target("3", 3), target("4", 2)});
  CompareSettings settings;
  settings.resamples = 200;
  EXPECT_EQ(textOf(host::compareEvaluations(a, b, settings), settings),
            textOf(host::compareEvaluations(a, b, settings), settings));
}

TEST(Compare, ARegressionIsWorseThanTheToleranceAndNotJustAtIt) {
  const EvaluationResult a = result({target("1", 8)});
  const EvaluationResult b = result({target("1", 7)});
  CompareSettings settings;
  settings.tolerance = 0.1;  // 0.8 to 0.7 is exactly that
  EXPECT_FALSE(figure(host::compareEvaluations(a, b, settings), "on target").regression);
  settings.tolerance = 0.09;
  EXPECT_TRUE(figure(host::compareEvaluations(a, b, settings), "on target").regression);
  EXPECT_FALSE(figure(host::compareEvaluations(b, a, settings), "on target").regression);       // better is never worse
  EXPECT_TRUE(figure(host::compareEvaluations(a, b, settings), "time off target").regression);  // less is better
}

TEST(Compare, TimeIsOnlyJudgedOnRequest) {
  const EvaluationResult a = result({target("1", 8, 10)});
  const EvaluationResult b = result({target("1", 8, 13)});
  EXPECT_FALSE(host::compareEvaluations(a, b, {}).regression());
  CompareSettings settings;
  settings.timeTolerance = 0.2;
  const Difference d = figure(host::compareEvaluations(a, b, settings), "CPU ms per update");
  EXPECT_NEAR(d.difference, 0.3, 1e-12);
  EXPECT_TRUE(d.regression);
  settings.timeTolerance = 0.3;
  EXPECT_FALSE(host::compareEvaluations(a, b, settings).regression());
}

TEST(Compare, TargetsOfOneSideAreNamedAndLeftOut) {
  const Comparison c =
      host::compareEvaluations(result({target("1", 8), target("2", 8)}), result({target("2", 8), target("3", 8)}), {});
  EXPECT_EQ(c.targets, 1U);
  EXPECT_EQ(c.onlyA, std::vector<std::string>{"street/1"});
  EXPECT_EQ(c.onlyB, std::vector<std::string>{"street/3"});
  EXPECT_THROW(host::compareEvaluations(result({target("1", 8)}), result({target("2", 8)}), {}), host::HostError);
}

}  // namespace
