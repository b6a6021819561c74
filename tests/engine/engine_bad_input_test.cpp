// Wrong pictures, boxes and settings: what OpenCV's tracker refuses the engine refuses, and where that one would crash
// the engine throws.
#include <gtest/gtest.h>

#include <limits>
#include <opencv2/tracking.hpp>
#include <random>

#include "csrt_engine/csrt_engine.h"
#include "drawn_scene.h"

namespace csrt_engine {
namespace {

using Tracker = cv::tracking::TrackerCSRT;
using Params = Tracker::Params;

/// 0: went well; else the code of the exception.
int codeOf(const std::function<void()>& action) {
  try {
    action();
  } catch (const cv::Exception& e) {
    return e.code == 0 ? -1 : e.code;
  }
  return 0;
}

const cv::Mat kPicture = engine_test::texture({160, 120}, 4, 1.5);

TEST(EngineBadInput, PicturesAndBoxesThatOpenCvRefusesAreRefusedTheSame) {
  cv::setNumThreads(1);
  cv::Mat wide, four, two(120, 160, CV_8UC2, cv::Scalar(3, 4)), floats;
  kPicture.convertTo(wide, CV_16UC3, 256);
  kPicture.convertTo(floats, CV_32FC3);
  cv::cvtColor(kPicture, four, cv::COLOR_BGR2BGRA);
  const cv::Mat pictures[] = {cv::Mat(),       wide,    two, four, cv::Mat(1, 1, CV_8UC3, cv::Scalar::all(9)),
                              kPicture.row(0), kPicture};
  const cv::Rect boxes[] = {{40, 30, 30, 40},  {0, 0, 0, 0}, {10, 10, -5, 8}, {400, 300, 20, 20},
                            {-200, 5, 20, 20}, {5, 5, 1, 1}, {5, 5, 1, 40},   {5, 5, 3, 2}};
  for (const cv::Mat& picture : pictures)
    for (const cv::Rect& box : boxes) {
      const cv::Ptr<Tracker> theirs = Tracker::create(), ours = create();
      const int expected = codeOf([&] { theirs->init(picture, box); });
      EXPECT_EQ(codeOf([&] { ours->init(picture, box); }), expected)
          << picture.size() << " type " << picture.type() << ' ' << box;
      if (expected != 0) continue;
      cv::Rect a, b;
      bool foundA = false, foundB = false;
      EXPECT_EQ(codeOf([&] { foundB = ours->update(picture, b); }),
                codeOf([&] { foundA = theirs->update(picture, a); }))
          << box;
      EXPECT_EQ(foundB, foundA) << box;
      EXPECT_EQ(b, a) << box;
    }
}

TEST(EngineBadInput, AChangedPictureIsAnsweredAsOpenCvDoes) {
  for (const cv::Mat& next :
       {cv::Mat(), cv::Mat(kPicture, cv::Rect(0, 0, 60, 50)).clone(), engine_test::texture({400, 300}, 1, 2),
        cv::Mat(kPicture, cv::Rect(100, 80, 4, 3)).clone()}) {
    const cv::Ptr<Tracker> theirs = Tracker::create(), ours = create();
    theirs->init(kPicture, {100, 70, 30, 40});
    ours->init(kPicture, {100, 70, 30, 40});
    for (const cv::Mat& picture : {next, kPicture}) {
      cv::Rect a, b;
      bool foundA = false, foundB = false;
      const int expected = codeOf([&] { foundA = theirs->update(picture, a); });
      EXPECT_EQ(codeOf([&] { foundB = ours->update(picture, b); }), expected) << next.size();
      EXPECT_EQ(foundB, foundA) << next.size();
      EXPECT_EQ(b, a) << next.size();
    }
  }
}

TEST(EngineBadInput, PicturesOfOtherTypesAfterAGoodStartThrow) {
  cv::Mat wide;
  kPicture.convertTo(wide, CV_16UC3, 256);
  const cv::Ptr<Tracker> ours = create();
  ours->init(kPicture, {60, 40, 30, 40});
  cv::Rect box(1, 2, 3, 4);
  EXPECT_THROW(ours->update(wide, box), cv::Exception);
  EXPECT_EQ(box, cv::Rect(1, 2, 3, 4));
  EXPECT_TRUE(ours->update(kPicture, box));
}

TEST(EngineBadInput, UpdateWithoutAGoodStartThrows) {
  cv::Rect box;
  EXPECT_THROW(create()->update(kPicture, box), cv::Exception);
  const cv::Ptr<Tracker> ours = create();
  ours->init(kPicture, {60, 40, 30, 40});
  EXPECT_THROW(ours->init(cv::Mat(), {60, 40, 30, 40}), cv::Exception);
  EXPECT_THROW(ours->update(kPicture, box), cv::Exception);
  EXPECT_NO_THROW(ours->init(kPicture, {60, 40, 30, 40}));
  EXPECT_TRUE(ours->update(kPicture, box));
}

TEST(EngineBadInput, SettingsThatCrashOpenCvThrow) {
  void (*const changes[])(Params&) = {
      [](Params& p) { p.use_hog = p.use_color_names = p.use_gray = p.use_rgb = false; },
      [](Params& p) { p.num_hog_channels_used = 33; },
      [](Params& p) { p.num_hog_channels_used = -1; },
      [](Params& p) { p.histogram_bins = 0; },
      [](Params& p) { p.background_ratio = 0; },
  };
  for (const auto& change : changes) {
    Params params;
    change(params);
    EXPECT_THROW(create(params)->init(kPicture, {60, 40, 30, 40}), cv::Exception);
  }
}

TEST(EngineBadInput, AnUnknownWindowIsRefusedWithOpenCvsCode) {
  Params params;
  params.window_function = "box";
  EXPECT_EQ(codeOf([&] { create(params)->init(kPicture, {60, 40, 30, 40}); }), cv::Error::StsBadArg);
}

TEST(EngineBadInput, WhatTheEngineDoesNotDoItselfGoesToOpenCvWithAReason) {
  void (*const changes[])(Params&) = {
      [](Params& p) { p.scale_step = 1.0f; },
      [](Params& p) { p.number_of_scales = -3; },
      [](Params& p) { p.histogram_bins = 400; },
      [](Params& p) { p.padding = std::numeric_limits<float>::quiet_NaN(); },
  };
  for (const auto& change : changes) {
    Params params;
    change(params);
    EXPECT_FALSE(handling(params).own);
    EXPECT_FALSE(handling(params).why.empty());
    EXPECT_TRUE(create(params));
  }
  EXPECT_TRUE(handling(Params()).own);
  EXPECT_TRUE(handling(Params()).why.empty());
}

TEST(EngineBadInput, DrawnAtRandomBothSayTheSame) {
  std::mt19937 random(21);
  const auto draw = [&](int low, int high) {
    return low + static_cast<int>(random() % static_cast<unsigned>(high - low + 1));
  };
  for (int i = 0; i < 40; ++i) {
    const cv::Mat picture = engine_test::texture({draw(2, 90), draw(2, 90)}, i, 1);
    const cv::Rect box(draw(-40, 90), draw(-40, 90), draw(0, 120), draw(0, 120));
    const cv::Ptr<Tracker> theirs = Tracker::create(), ours = create();
    const int expected = codeOf([&] { theirs->init(picture, box); });
    ASSERT_EQ(codeOf([&] { ours->init(picture, box); }), expected) << picture.size() << ' ' << box;
    for (int k = 0; k < 2 && expected == 0; ++k) {
      const cv::Mat next = k == 0 ? picture : engine_test::texture({draw(2, 90), draw(2, 90)}, 100 + i, 1);
      cv::Rect a, b;
      bool foundA = false, foundB = false;
      const int code = codeOf([&] { foundA = theirs->update(next, a); });
      ASSERT_EQ(codeOf([&] { foundB = ours->update(next, b); }), code)
          << picture.size() << ' ' << box << " then " << next.size();
      ASSERT_EQ(foundB, foundA) << picture.size() << ' ' << box;
      ASSERT_EQ(b, a) << picture.size() << ' ' << box;
      if (code != 0) break;
    }
  }
}

}  // namespace
}  // namespace csrt_engine
