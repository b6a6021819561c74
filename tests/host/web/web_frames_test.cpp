// The newest frames for who watches: encoded once, only when asked; waiting that ends.
#include "web/frame_store.h"

#include <gtest/gtest.h>

#include <chrono>
#include <opencv2/imgcodecs.hpp>
#include <thread>
#include <vector>

namespace {

using host::web::FrameStore;
using host::web::ShownFrame;
using std::chrono::milliseconds;
constexpr milliseconds kNow{0};
constexpr milliseconds kLong{20000};

cv::Mat picture(int grey = 9, int width = 64) {
  return cv::Mat(36, width, CV_8UC3, cv::Scalar::all(grey));
}

TEST(FrameStoreTest, NothingIsEncodedWhileNobodyAsks) {
  FrameStore store;
  for (int i = 0; i < 100; ++i) store.add(i, picture(), i * 0.04, "{}");
  EXPECT_EQ(store.encoded(), 0);
}

TEST(FrameStoreTest, SeveralViewersShareOneEncoding) {
  FrameStore store;
  store.add(7, picture(200), 0, "{}");
  std::vector<std::thread> viewers;
  std::vector<ShownFrame> got(8);
  for (ShownFrame& shown : got) viewers.emplace_back([&store, &shown] { shown = store.next(-1, kNow); });
  for (std::thread& viewer : viewers) viewer.join();
  EXPECT_EQ(store.encoded(), 1);
  for (const ShownFrame& shown : got) {
    EXPECT_EQ(shown.index, 7);
    EXPECT_EQ(shown.jpeg, got.front().jpeg);
  }
  const cv::Mat back =
      cv::imdecode(std::vector<char>(got.front().jpeg->begin(), got.front().jpeg->end()), cv::IMREAD_COLOR);
  EXPECT_EQ(back.size(), cv::Size(64, 36));
  EXPECT_NEAR(back.at<cv::Vec3b>(5, 5)[0], 200, 2);
}

TEST(FrameStoreTest, ASlowViewerGetsTheNewestAndNotTheNext) {
  FrameStore store;
  for (int i = 0; i < 10; ++i) store.add(i, picture(), 0.04 * i, std::to_string(i));
  const ShownFrame shown = store.next(2, kNow);
  EXPECT_EQ(shown.index, 9);
  EXPECT_EQ(shown.state, "9");
}

TEST(FrameStoreTest, WaitsForTheNextAndNoLongerThanTheLimit) {
  FrameStore store;
  store.add(3, picture(), 0, "three");
  EXPECT_EQ(store.next(3, milliseconds(20)).jpeg, nullptr);
  std::thread camera([&store] { store.add(4, picture(), 0.04, "four"); });
  EXPECT_EQ(store.next(3, kLong).index, 4);
  camera.join();
}

TEST(FrameStoreTest, ANumberFromAnEarlierRunIsNoReasonToWait) {
  FrameStore store;
  store.add(3, picture(), 0, "{}");
  EXPECT_EQ(store.next(90000, kLong).index, 3);
}

TEST(FrameStoreTest, WordsAndTheEndWakeWhoWaits) {
  FrameStore store;
  store.add(1, picture(), 0, "a");
  ShownFrame told;
  std::thread viewer([&] { told = store.next(1, kLong); });
  // Told again and again, as the viewer may not have begun to wait the first time.
  while (told.state.empty()) {
    store.tell("silence");
    std::this_thread::sleep_for(milliseconds(1));
  }
  viewer.join();
  EXPECT_EQ(told.state, "silence");
  EXPECT_EQ(told.jpeg, nullptr);
  store.close();
  EXPECT_EQ(store.next(1, kLong).jpeg, nullptr);
}

TEST(FrameStoreTest, KeepsASecondWithinItsBytes) {
  FrameStore store;
  for (int i = 0; i < 100; ++i) store.add(i, picture(), 0.04 * i, "{}");
  EXPECT_EQ(store.range(), std::make_pair(74L, 99L));
  EXPECT_TRUE(store.picture(73).empty());
  EXPECT_FALSE(store.picture(74).empty());
  EXPECT_FALSE(store.picture(std::nullopt).empty());
  EXPECT_EQ(store.jpeg(73), nullptr);
  EXPECT_NE(store.jpeg(74), nullptr);
  const cv::Mat large(8000, 8000, CV_8UC3);  // 192 MB, not written to
  store.add(100, large, 4.0, "{}");
  store.add(101, large, 4.0, "{}");
  EXPECT_EQ(store.range(), std::make_pair(101L, 101L));
}

TEST(FrameStoreTest, BeforeTheFirstFrameThereIsNothing) {
  FrameStore store;
  EXPECT_EQ(store.next(-1, kNow).index, -1);
  EXPECT_TRUE(store.picture(std::nullopt).empty());
  EXPECT_EQ(store.range(), std::make_pair(0L, -1L));
}

}  // namespace
