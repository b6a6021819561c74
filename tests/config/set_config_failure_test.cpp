// setConfig() when memory runs out, at every allocation it makes: it returns, the lock is free, and the plug-in works
// on.
#include <gtest/gtest.h>

#include <cstdlib>
#include <new>

#include "config_facts.h"

namespace {

// Allocations of this thread until one fails; 0: none does.
thread_local long allocationsLeft = 0;
thread_local bool failWithNumber = false;

void* allocate(std::size_t size) {
  if (allocationsLeft > 0 && --allocationsLeft == 0) {
    if (failWithNumber) throw 42;
    throw std::bad_alloc();
  }
  void* const memory = std::malloc(size != 0 ? size : 1);
  if (memory == nullptr) throw std::bad_alloc();
  return memory;
}

}  // namespace

void* operator new(std::size_t size) {
  return allocate(size);
}
void operator delete(void* memory) noexcept {
  std::free(memory);
}
void operator delete(void* memory, std::size_t) noexcept {
  std::free(memory);
}

namespace {

using namespace config_facts;

const std::string kPayload =
    R"({"work_width": 800, "roi": {"min_size": 64, "margin_factor": "1.5"}, "misc": {"debug": "maybe"},
        "csrt": {"window_function": "a text that is too long to be kept in place", "padding": 2},
        "redetect": {"scale_list": [0.5, 0.6, 0.7, 0.8, 0.9, 1.0]}})";
constexpr long kMostAllocations = 10000;

bool lockIsFree(OpenedAlgo& algo) {
  if (!algo.mutex_.try_lock()) return false;
  algo.mutex_.unlock();
  return true;
}

bool applied(const OpenedAlgo& algo) {
  return algo.config_.redetect.scale_list.size() == 6;
}

// Fails the allocation of that number; true when the call made fewer.
bool callFailingAt(long number, OpenedAlgo& algo) {
  std::string json = kPayload;
  allocationsLeft = number;
  algo.setConfig(std::move(json));
  const bool survived = allocationsLeft > 0;
  allocationsLeft = 0;
  return survived;
}

TEST(SetConfigFailure, OfAnyAllocationIsCaughtAndTheNextCallWorks) {
  long number = 1;
  for (bool survived = false; !survived; ++number) {
    ASSERT_LT(number, kMostAllocations);
    OpenedAlgo algo;
    algo.initialized_ = true;
    EXPECT_NO_THROW(survived = callFailingAt(number, algo)) << number;
    allocationsLeft = 0;
    ASSERT_TRUE(lockIsFree(algo)) << number;
    ASSERT_FALSE(algo.config_.redetect.scale_list.empty()) << number;
    algo.setConfig(kPayload);
    EXPECT_TRUE(applied(algo)) << number;
    EXPECT_EQ(algo.config_.csrt.window_function, "a text that is too long to be kept in place") << number;
  }
  EXPECT_GT(number, 10);  // it does allocate
}

TEST(SetConfigFailure, IsLoggedWithItsReason) {
  OpenedAlgo algo;
  algo.enableDebug(true);
  bool seen = false;
  for (long number = 1; number < kMostAllocations && !seen; ++number) {
    testing::internal::CaptureStdout();
    callFailingAt(number, algo);
    const std::string log = testing::internal::GetCapturedStdout();
    seen =
        log.find("[AlgoPlugin INFO] [CSRTTrackingAlgo] setConfig(): exception: std::bad_alloc\n") != std::string::npos;
  }
  EXPECT_TRUE(seen);
  EXPECT_TRUE(lockIsFree(algo));
}

TEST(SetConfigFailure, SaysNothingWhileDebugIsOff) {
  OpenedAlgo algo;
  testing::internal::CaptureStdout();
  EXPECT_FALSE(callFailingAt(3, algo));
  EXPECT_EQ(testing::internal::GetCapturedStdout(), "");
}

TEST(SetConfigFailure, OfAnotherTypeIsPassedOnWithTheLockFree) {
  failWithNumber = true;
  for (long number = 1; number <= 20; ++number) {
    OpenedAlgo algo;
    EXPECT_THROW(callFailingAt(number, algo), int) << number;
    allocationsLeft = 0;
    EXPECT_TRUE(lockIsFree(algo)) << number;
    algo.setConfig(kPayload);
    EXPECT_TRUE(applied(algo)) << number;
  }
  failWithNumber = false;
}

TEST(SetConfigFailure, OfTheTextLeavesTheRecordUntouched) {
  OpenedAlgo algo;
  const Snapshot before(algo);
  EXPECT_FALSE(callFailingAt(1, algo));  // the first allocation is the parser's
  EXPECT_TRUE(Snapshot(algo) == before);
}

}  // namespace
