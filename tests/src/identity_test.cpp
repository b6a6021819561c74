// Who the plug-in is, what it starts with, what it logs, and that none of this waits for a frame.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/socket.h>
#include <unistd.h>

#include <chrono>
#include <future>
#include <regex>
#include <set>
#include <string>
#include <thread>
#include <vector>

#include "support/captured_log.h"
#include "support/comma_locale.h"
#include "support/test_algo.h"

namespace {

const std::regex kVersion4("[0-9a-f]{8}-[0-9a-f]{4}-4[0-9a-f]{3}-[89ab][0-9a-f]{3}-[0-9a-f]{12}");

/// What each single write to standard output carries while `call` runs.
std::vector<std::string> writesOf(const std::function<void()>& call) {
  int ends[2] = {-1, -1};
  if (socketpair(AF_UNIX, SOCK_DGRAM, 0, ends) != 0) return {};  // one write makes one datagram
  {
    const RedirectedOutput redirected(ends[0]);
    call();
  }
  std::vector<std::string> writes;
  char buffer[65536];
  for (;;) {
    const ssize_t length = recv(ends[1], buffer, sizeof(buffer), MSG_DONTWAIT);
    if (length < 0) break;
    writes.emplace_back(buffer, static_cast<std::size_t>(length));
  }
  close(ends[0]);
  close(ends[1]);
  return writes;
}

}  // namespace

// ---------------------------------------------------------------------------------------------------- identity

TEST(Identity, NamesItselfAndIsAliveAndDynamic) {
  TestAlgo algo;
  EXPECT_EQ(algo.getName(), "CSRTTrackingAlgo");
  EXPECT_TRUE(algo.isAlive());
  EXPECT_TRUE(algo.isDynamic());
}

TEST(Identity, HasNoPropertiesAndIgnoresPerformance) {
  TestAlgo algo;
  algo.changePerformance(-1);
  algo.setProperty("name", "value");
  EXPECT_EQ(algo.getPropertyList(), "");
  EXPECT_EQ(algo.property("name"), "");
}

TEST(Uuid, IsMadeOnceAndKept) {
  TestAlgo algo;
  EXPECT_EQ(algo.uuid_, "");
  const std::string first = algo.getUuid();
  EXPECT_EQ(algo.getUuid(), first);
  EXPECT_NE(TestAlgo().getUuid(), first);
  algo.resetInternal_Locked_();
  EXPECT_EQ(algo.getUuid(), first);
}

TEST(Uuid, IsARandomVersionFourText) {
  std::set<std::string> texts;
  for (int i = 0; i < 200; ++i) {
    texts.insert(TestAlgo::generateUuid_());
    EXPECT_TRUE(std::regex_match(*texts.rbegin(), kVersion4)) << *texts.rbegin();
  }
  EXPECT_EQ(texts.size(), 200U);
}

TEST(Uuid, IsTheSameForThreadsThatAskAtOnce) {
  TestAlgo algo;
  std::string texts[2];
  std::thread other([&] { texts[0] = algo.getUuid(); });
  texts[1] = algo.getUuid();
  other.join();
  EXPECT_EQ(texts[0], texts[1]);
}

TEST(Identity, AnswersWhileAnotherThreadHoldsTheLock) {
  TestAlgo algo;
  std::unique_lock<std::mutex> held(algo.mutex_);
  std::promise<void> answered;
  std::thread host([&] {
    algo.getName();
    algo.getUuid();
    algo.isAlive();
    algo.isDynamic();
    algo.changePerformance(3);
    algo.enableDebug(false);
    algo.getConfigList();
    algo.getPropertyList();
    algo.setProperty("a", "b");
    algo.property("a");
    algo.getOutputDeclarations();
    algo.update({}, nullptr);  // no frame: nothing to lock for
    answered.set_value();
  });
  const auto status = answered.get_future().wait_for(std::chrono::seconds(60));
  held.unlock();  // lets a call that waits come back, so that the test can end
  host.join();
  EXPECT_EQ(status, std::future_status::ready);
}

// ----------------------------------------------------------------------------------------------- initial values

TEST(InitialState, IsNotTrackingAnything) {
  const TestAlgo algo;
  EXPECT_EQ(algo.tracker_, nullptr);
  EXPECT_FALSE(algo.initialized_ || algo.fullyLost_ || algo.trackingStarted_ || algo.prepositionWaiting_);
  EXPECT_FALSE(algo.justReseeded_ || algo.prepositionTargetValid_ || algo.prepositionRefGeomValid_);
  EXPECT_FALSE(algo.zoomRefValid_ || algo.dynPatchValid_ || algo.smoothedValid_ || algo.debug_);
  EXPECT_FALSE(algo.pending_full_reset_ || algo.pending_rebuild_);
  EXPECT_EQ(algo.lostFrames_ + algo.redetectAttempts_ + algo.lostSinceRedetect_ + algo.oscillationCount_, 0);
  EXPECT_EQ(algo.alignmentHits_, 0);
  EXPECT_EQ(algo.redetectAge_, -1);
  EXPECT_EQ(algo.lastScore_, 1.0);
  EXPECT_EQ(algo.velocity_, cv::Point2f());
  for (const cv::Rect& box :
       {algo.trackBox_, algo.predictedBox_, algo.procRoi_, algo.initBoxInCrop_, algo.initBox_, algo.smoothedBox_}) {
    EXPECT_EQ(box, cv::Rect());
  }
  EXPECT_EQ(algo.csrtInputSize_, cv::Size());
  EXPECT_EQ(algo.frameSize_, cv::Size());
  EXPECT_TRUE(algo.initCrop_.empty());
  EXPECT_TRUE(algo.fullGrayGpu_.empty() && algo.origPatchGpu_.empty() && algo.dynPatchGpu_.empty());
  EXPECT_EQ(algo.dynScaleList_, std::vector<double>{1.0});
}

TEST(InitialConfiguration, DiffersFromTheSchemaWhereItShould) {
  const TestAlgo algo;
  EXPECT_EQ(algo.config_.roi.min_size, 128);
  EXPECT_EQ(algo.config_.roi.max_size, 0);
  EXPECT_EQ(algo.config_.roi.margin_factor, 2.0);
  EXPECT_EQ(algo.config_.roi.hysteresis_ratio, 0.15);
  EXPECT_EQ(algo.config_.roi.min_delta_x, 12);
  EXPECT_EQ(algo.config_.roi.min_delta_y, 12);
  EXPECT_FALSE(algo.config_.input.refine_init);
  EXPECT_EQ(algo.config_.csrt.template_size, 200);
}

// --------------------------------------------------------------------------------------------------------- log

TEST(Log, WritesNothingWhileDebugIsOff) {
  TestAlgo algo;
  EXPECT_EQ(outputOf([&] {
              algo.log_("a %d", 1);
              algo.update({}, nullptr);
              algo.init({}, {}, nullptr);
              algo.setConfig("{}");
              algo.setConfig("no JSON");
            }),
            "");
}

TEST(Log, WritesOneLineWithItsPrefix) {
  TestAlgo algo;
  algo.enableDebug(true);
  EXPECT_EQ(outputOf([&] { algo.log_("a %d %s %.2f", 1, "é", 2.5); }),
            "[AlgoPlugin INFO] [CSRTTrackingAlgo] a 1 é 2.50\n");
}

TEST(Log, WritesTheWholeLineAtOnce) {
  TestAlgo algo;
  algo.enableDebug(true);
  const std::vector<std::string> writes = writesOf([&] {
    algo.log_("first %d", 1);
    algo.log_("second");
  });
  EXPECT_EQ(writes, (std::vector<std::string>{"[AlgoPlugin INFO] [CSRTTrackingAlgo] first 1\n",
                                              "[AlgoPlugin INFO] [CSRTTrackingAlgo] second\n"}));
}

TEST(Log, HasLeftTheProcessWhenTheCallReturns) {
  TestAlgo algo;
  algo.enableDebug(true);
  int ends[2] = {-1, -1};
  ASSERT_EQ(pipe(ends), 0);
  char line[256];
  ssize_t length = -1;
  {
    const RedirectedOutput redirected(ends[1]);
    ASSERT_EQ(fcntl(ends[0], F_SETFL, O_NONBLOCK), 0);
    algo.log_("now");
    length = read(ends[0], line, sizeof(line));  // before the redirection flushes what is left
  }
  close(ends[0]);
  close(ends[1]);
  ASSERT_GT(length, 0);
  EXPECT_EQ(std::string(line, static_cast<std::size_t>(length)), "[AlgoPlugin INFO] [CSRTTrackingAlgo] now\n");
}

TEST(Log, CarriesTextOfAnyLength) {
  TestAlgo algo;
  algo.enableDebug(true);
  const std::string text(20000, 'x');
  EXPECT_EQ(outputOf([&] { algo.log_("%s", text.c_str()); }), "[AlgoPlugin INFO] [CSRTTrackingAlgo] " + text + "\n");
}

TEST(Log, WritesNumbersWithAPointWhateverTheHostsLocale) {
  const CommaLocale locale;
  if (!locale.active()) GTEST_SKIP() << "no locale with a decimal comma on this machine";
  TestAlgo algo;
  algo.enableDebug(true);
  EXPECT_EQ(outputOf([&] { algo.log_("%.2f", 1.5); }), "[AlgoPlugin INFO] [CSRTTrackingAlgo] 1.50\n");
  char host[8];
  std::snprintf(host, sizeof(host), "%.1f", 1.5);
  EXPECT_STREQ(host, "1,5") << "the host's locale is as it was";
}

TEST(Log, HasOneFlagForTheHostAndTheConfiguration) {
  TestAlgo algo;
  outputOf([&] { algo.setConfig(R"({"misc":{"debug":true}})"); });
  EXPECT_TRUE(algo.debug_);
  algo.enableDebug(false);
  EXPECT_FALSE(algo.debug_);
  algo.enableDebug(true);
  outputOf([&] { algo.setConfig(R"({"misc":{"debug":false}})"); });
  EXPECT_FALSE(algo.debug_);
}
