// Recorded video and pipes as if they were live: what is kept, what is passed over, how it ends.
#include "live/played_source.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <fstream>

#include "base/host_error.h"
#include "input/y4m_source.h"

namespace live {
namespace {

/// Gives frames of one shade each, at their times.
class Clip : public host::FrameSource {
 public:
  explicit Clip(long count) : count_(count) {}
  bool read(host::SourceFrame& frame) override {
    if (next_ == failAt) throw host::HostError(host::ExitCode::Source, "the clip is broken");
    if (next_ >= count_) return false;
    frame = {};
    frame.index = next_;
    frame.time_s = 0.04 * static_cast<double>(next_);
    frame.bgr = cv::Mat(8, 8, CV_8UC3, cv::Scalar::all(static_cast<double>(next_)));
    ++next_;
    return true;
  }
  double fps() const override { return 25.0; }
  long expected() const override { return count_; }
  std::vector<std::string> faults() const override { return {"2 frames are damaged"}; }

  long failAt = -1;

 private:
  long count_;
  long next_ = 0;
};

TEST(PlayedSource, GivesEveryFrameWhereNoneMayBePassedOver) {
  PlayedSource source(std::make_unique<Clip>(60), Playing::EveryFrame, [] { return false; });
  host::SourceFrame frame;
  long count = 0;
  for (; source.read(frame); ++count) {
    EXPECT_EQ(frame.index, count);
    ASSERT_TRUE(frame.live);
    EXPECT_EQ(frame.live->dropped, 0);
  }
  EXPECT_EQ(count, 60);
  EXPECT_EQ(source.faults().size(), 1u);
}

TEST(PlayedSource, KeepsTheLastSecond) {
  PlayedSource source(std::make_unique<Clip>(60), Playing::EveryFrame, [] { return false; });
  host::SourceFrame frame;
  while (source.read(frame)) continue;
  EXPECT_NEAR(static_cast<double>(source.past().range().first), 34.0, 1.0);
  EXPECT_EQ(source.past().range().second, 59);
  const auto kept = source.past().find(40);
  ASSERT_TRUE(kept);
  const host::SourceFrame again = source.sourceFrameOf(*kept);
  EXPECT_EQ(again.index, 40);
  EXPECT_EQ(again.bgr.at<cv::Vec3b>(0, 0)[0], 40);
}

TEST(PlayedSource, TheNewestFrameIsTheOneThatIsLeftWhenTheEndHasCome) {
  PlayedSource source(std::make_unique<Clip>(30), Playing::AsItComes, [] { return false; });
  host::SourceFrame frame;
  long first = -1;
  long last = -1;
  long dropped = 0;
  long read = 0;
  for (; source.read(frame); ++read) {
    EXPECT_GT(frame.index, last);
    last = frame.index;
    if (first < 0) first = last;
    dropped += frame.live->dropped;
  }
  EXPECT_EQ(last, 29);
  EXPECT_EQ(first + read + dropped, 30) << "after the first, a frame is either read or counted as passed over";
}

TEST(PlayedSource, AnErrorOfTheSourceArrivesAtTheReader) {
  auto clip = std::make_unique<Clip>(5);
  clip->failAt = 2;
  PlayedSource source(std::move(clip), Playing::AsItComes, [] { return false; });
  host::SourceFrame frame;
  EXPECT_THROW(while (source.read(frame)) continue, host::HostError);
}

TEST(PlayedSource, EndsWhenItIsOver) {
  PlayedSource source(std::make_unique<Clip>(1000000), Playing::EveryFrame, [] { return true; });
  host::SourceFrame frame;
  EXPECT_FALSE(source.read(frame));
}

class Y4mLook : public ::testing::Test {
 protected:
  void SetUp() override { ASSERT_EQ(::pipe(pipe_), 0); }
  void TearDown() override {
    ::close(pipe_[0]);
    ::close(pipe_[1]);
  }
  bool begins(const std::string& bytes) {
    EXPECT_EQ(::write(pipe_[1], bytes.data(), bytes.size()), static_cast<ssize_t>(bytes.size()));
    return host::beginsAsY4m(pipe_[0], [] { return false; });
  }
  int pipe_[2] = {-1, -1};
};

TEST_F(Y4mLook, SeesTheBeginningWithoutTakingIt) {
  EXPECT_TRUE(begins("YUV4MPEG2 W32 H16\n"));
  char bytes[9] = {};
  ASSERT_EQ(::read(pipe_[0], bytes, 8), 8);
  EXPECT_STREQ(bytes, "YUV4MPEG");
}

TEST_F(Y4mLook, SomethingElseIsKnownByItsFirstByte) {
  EXPECT_FALSE(begins("G"));
}

TEST_F(Y4mLook, APipeThatEndsInTheMiddleOfTheWordIsNone) {
  ASSERT_EQ(::write(pipe_[1], "YUV4", 4), 4);
  ::close(pipe_[1]);
  pipe_[1] = -1;
  // What lies in a pipe keeps it readable, so that only being over ends the wait.
  int asked = 0;
  EXPECT_FALSE(host::beginsAsY4m(pipe_[0], [&asked] { return ++asked > 3; }));
}

}  // namespace
}  // namespace live
