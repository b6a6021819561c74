// Frame rates and time stamps of real containers, through the built program. The videos are made by ffmpeg.
#include <gtest/gtest.h>

#include <chrono>
#include <cmath>
#include <cstdlib>

#include "support/host_program.h"

namespace host_test {
namespace {

using Json = nlohmann::json;

constexpr int kFrames = 40;

class VideoTimes : public testing::Test {
 protected:
  void SetUp() override {
    if (std::system("command -v ffmpeg >/dev/null") != 0) GTEST_SKIP() << "ffmpeg is not installed";
    host::writeStreetScene(folder_.file("scene.avi"), {320, 180}, kFrames, 10.0);
  }

  /// The scene as another file. Skips the test where this ffmpeg has no such encoder.
  std::string encoded(const std::string& name, const std::string& arguments) {
    const std::string path = folder_.file(name);
    const std::string command =
        "ffmpeg -v error -nostdin -y -i '" + folder_.file("scene.avi") + "' " + arguments + " '" + path + "'";
    EXPECT_EQ(std::system(command.c_str()), 0) << command;
    return path;
  }

  ProgramResult track(const std::string& video, std::vector<std::string> more) const {
    const std::vector<std::string> first = {"track", video, "--box", "10,20,30,40", "--plugin", CSRT_FAKE_PLUGIN};
    more.insert(more.begin(), first.begin(), first.end());
    return runProgram(more);
  }
  std::vector<Json> records(const std::string& video, std::vector<std::string> more = {}) const {
    more.insert(more.end(), {"--records", "-", "--quiet"});
    const ProgramResult result = track(video, more);
    EXPECT_EQ(result.status, 0) << result.err;
    return recordsOf(result.out);
  }

  TempFolder folder_;
};

TEST_F(VideoTimes, AnMpegStreamHasTheRateOfItsTimeStamps) {
  const std::string video = encoded("scene.ts", "-c:v mpeg4");
  const std::vector<Json> all = records(video);
  ASSERT_EQ(all.size(), static_cast<std::size_t>(kFrames));
  for (int i = 0; i < kFrames; ++i)
    EXPECT_NEAR(all[static_cast<std::size_t>(i)]["time_s"].get<double>(), i / 10.0, 1e-3) << i;
  const ProgramResult result = track(video, {});
  EXPECT_NE(result.out.find(" 10 frames/s"), std::string::npos) << result.out;
  EXPECT_EQ(result.err.find("note"), std::string::npos) << result.err;
}

TEST_F(VideoTimes, TheRealPluginFollowsAnMpegStreamAsItFollowsTheSamePictures) {
  host::writeStreetScene(folder_.file("scene.avi"), {640, 360}, kFrames, 10.0);
  const auto trackedIn = [&](const std::string& video) {
    const ProgramResult result = runProgram({"track", video, "--box", "116,165,32,60", "--plugin", CSRT_REAL_PLUGIN,
                                             "--frames", "20", "--records", "-", "--quiet"});
    int tracked = 0;
    for (const Json& record : recordsOf(result.out)) tracked += record["state"] == "tracked" ? 1 : 0;
    return tracked;
  };
  const std::string stream = encoded("scene.ts", "-c:v mpeg4 -q:v 2");
  const std::string same = folder_.file("same.mkv");
  ASSERT_EQ(std::system(("ffmpeg -v error -nostdin -y -i '" + stream + "' -c copy '" + same + "'").c_str()), 0);
  const int tracked = trackedIn(stream);
  EXPECT_EQ(tracked, trackedIn(same));
  EXPECT_GT(tracked, 15);
}

TEST_F(VideoTimes, ARawStreamWithoutARateIsTakenAsTwentyFive) {
  const std::string video = encoded("scene.mjpeg", "-c:v mjpeg");
  const std::vector<Json> all = records(video);
  ASSERT_EQ(all.size(), static_cast<std::size_t>(kFrames));
  EXPECT_NEAR(all[30]["time_s"].get<double>(), 30 / 25.0, 1e-6);
  const ProgramResult result = track(video, {});
  EXPECT_NE(result.err.find("note: '" + video + "' does not say how many frames it has a second: 25 are assumed"),
            std::string::npos)
      << result.err;
  const std::vector<Json> asked = records(video, {"--fps", "10"});
  EXPECT_NEAR(asked[30]["time_s"].get<double>(), 3.0, 1e-6);
  EXPECT_EQ(track(video, {"--fps", "10"}).err.find("note"), std::string::npos);
}

TEST_F(VideoTimes, ElementaryStreamsHaveNoTimeStamps) {
  const std::string video = encoded("scene.m2v", "-c:v mpeg2video -r 25");
  const std::vector<Json> all = records(video);
  ASSERT_GT(all.size(), 30U);
  EXPECT_NEAR(all[30]["time_s"].get<double>(), 30 / 25.0, 1e-6);
}

/// Ten frames a second for thirty frames, then twenty-five.
constexpr const char* kVariable =
    "-vf \"settb=1/1000,setpts='if(lt(N,30),N*100,3000+(N-30)*40)'\" -vsync passthrough -enc_time_base 1:1000 -c:v "
    "mpeg4";

double variableTime(int frame) {
  return frame < 30 ? frame / 10.0 : 3.0 + (frame - 30) / 25.0;
}

TEST_F(VideoTimes, AVariableRateKeepsEveryFramesOwnTime) {
  const std::string video = encoded("scene.mp4", kVariable);
  const std::vector<Json> all = records(video);
  ASSERT_EQ(all.size(), static_cast<std::size_t>(kFrames));
  for (int i = 0; i < kFrames; ++i)
    EXPECT_NEAR(all[static_cast<std::size_t>(i)]["time_s"].get<double>(), variableTime(i), 2e-3) << i;
  EXPECT_NEAR(all[35]["time_s"].get<double>() - all[34]["time_s"].get<double>(), 0.04, 2e-3);
  const std::vector<Json> later = records(video, {"--start", "30", "--frames", "3"});
  EXPECT_NEAR(later[0]["time_s"].get<double>(), 3.0, 2e-3) << "frames that are skipped have a time too";
  const std::vector<Json> unseen = records(video, {"--set", "fake.script=" + std::string(40, 'p')});
  EXPECT_NEAR(unseen[30]["seconds_since_seen"].get<double>(), 3.0, 2e-3);
}

TEST_F(VideoTimes, ThePaceFollowsTheTimeStamps) {
  const std::string video = encoded("scene.mp4", kVariable);
  const auto begin = std::chrono::steady_clock::now();
  const std::vector<Json> live = records(video, {"--start", "25", "--frames", "8", "--pace", "source"});
  const std::chrono::duration<double> took = std::chrono::steady_clock::now() - begin;
  EXPECT_GE(took.count(), variableTime(32) - variableTime(25)) << "frames came before they were due";
  // The scripted plug-in tells the time of its clock: half a second a frame would be the average rate's.
  const std::vector<Json> clock = records(video, {"--set", "fake.script=" + std::string(39, 'k')});
  for (int i = 2; i < kFrames; ++i) {
    EXPECT_NEAR(clock[static_cast<std::size_t>(i)]["score"].get<double>() * 100, variableTime(i) - variableTime(1),
                2e-3)
        << i;
  }
}

}  // namespace
}  // namespace host_test
