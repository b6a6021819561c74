// Work spread over threads: all of it, once, and errors come back.
#include "base/worker_pool.h"

#include <gtest/gtest.h>

#include <atomic>
#include <set>
#include <stdexcept>

namespace host {
namespace {

TEST(WorkerPool, DoesEveryItemOnceOnAnyNumberOfThreads) {
  for (const int threads : {-1, 1, 2, 8}) {
    WorkerPool pool(threads);
    for (int batch = 0; batch < 50; ++batch) {
      std::vector<std::atomic<int>> done(13);
      pool.forEach(done.size(), [&](std::size_t i) { ++done[i]; });
      for (const auto& count : done) EXPECT_EQ(count, 1);
    }
    pool.forEach(0, [](std::size_t) { FAIL() << "nothing to do"; });
  }
}

TEST(WorkerPool, TheCallerAloneWorksWhereThereIsOneThread) {
  WorkerPool pool(1);
  std::set<std::thread::id> seen;
  pool.forEach(5, [&](std::size_t) { seen.insert(std::this_thread::get_id()); });
  EXPECT_EQ(seen, std::set<std::thread::id>{std::this_thread::get_id()});
}

TEST(WorkerPool, AnExceptionComesBackAfterTheOthersAreDone) {
  WorkerPool pool(3);
  std::atomic<int> done{0};
  const auto work = [&](std::size_t i) {
    if (i == 2) throw std::runtime_error("item 2");
    ++done;
  };
  EXPECT_THROW(pool.forEach(9, work), std::runtime_error);
  EXPECT_EQ(done, 8);
  pool.forEach(4, [&](std::size_t) { ++done; });
  EXPECT_EQ(done, 12) << "the pool goes on";
}

}  // namespace
}  // namespace host
