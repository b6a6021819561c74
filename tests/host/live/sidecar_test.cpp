// A file of what the camera said that another program keeps writing.
#include "live/sidecar.h"

#include <gtest/gtest.h>

#include <cstdio>
#include <fstream>
#include <string>

#include "base/host_error.h"
#include "support/host_program.h"

namespace live {
namespace {

class SidecarTest : public ::testing::Test {
 protected:
  SidecarTest() : path_(folder_.file("camera.jsonl")) { host_test::writeText(path_, ""); }
  void write(const std::string& text) const { std::ofstream(path_, std::ios::app | std::ios::binary) << text; }

  host_test::TempFolder folder_;
  std::string path_;
};

TEST_F(SidecarTest, WhatIsWrittenWhileItIsReadIsTakenIn) {
  Sidecar sidecar(path_);
  sidecar.readMore();
  EXPECT_TRUE(sidecar.at(100.0).empty());
  write("{\"unix_s\": 100.0, \"pan_deg\": 10}\n");
  sidecar.readMore();
  EXPECT_NEAR(sidecar.at(100.05).at("pan_deg"), 10.0, 1e-9);
  EXPECT_TRUE(sidecar.at(100.2).empty()) << "too old is missing, not guessed";
  write("{\"utc_timestamp_us\": 100250000, \"pan_deg\": 15, \"tilt_deg\": -3}\n");
  sidecar.readMore();
  EXPECT_NEAR(sidecar.at(100.1).at("pan_deg"), 12.0, 1e-6) << "between two lines";
  EXPECT_EQ(sidecar.at(100.1).count("tilt_deg"), 0U) << "only one of the two lines has it";
  EXPECT_NEAR(sidecar.at(100.25).at("tilt_deg"), -3.0, 1e-9);
}

TEST_F(SidecarTest, AHalfLineWaitsForItsEnd) {
  Sidecar sidecar(path_);
  write("{\"unix_s\": 5, \"pan_deg\"");
  sidecar.readMore();
  EXPECT_TRUE(sidecar.at(5.0).empty());
  EXPECT_EQ(sidecar.refused(), 0);
  write(": 7}\n");
  sidecar.readMore();
  EXPECT_NEAR(sidecar.at(5.0).at("pan_deg"), 7.0, 1e-9);
}

TEST_F(SidecarTest, LinesThatAreNoneAreCountedAndPassedOver) {
  write("{\"unix_s\": 1, \"pan_deg\": 1}\nhello\n[1,2]\n{\"pan_deg\": 3}\n{\"unix_s\": \"2\"}\n\n \r\n");
  write("{\"unix_s\": 1.05, \"pan_deg\": 2, \"name\": \"north\", \"tilt_deg\": null}\n");
  Sidecar sidecar(path_);
  sidecar.readMore();
  EXPECT_EQ(sidecar.refused(), 4);
  EXPECT_EQ(sidecar.at(1.05), (CameraValues{{"pan_deg", 2.0}})) << "numbers alone are taken";
}

TEST_F(SidecarTest, AFileThatIsBegunAnewIsReadFromItsBeginning) {
  write("{\"unix_s\": 1, \"pan_deg\": 1}\n{\"unix_s\": 1.1, \"pan_deg\": 1}\n");
  Sidecar sidecar(path_);
  sidecar.readMore();
  host_test::writeText(path_, "{\"unix_s\": 9, \"pan_deg\": 5}\n");
  sidecar.readMore();
  EXPECT_NEAR(sidecar.at(9.0).at("pan_deg"), 5.0, 1e-9);
}

TEST_F(SidecarTest, AFileThatGoesAwayIsWaitedFor) {
  Sidecar sidecar(path_);
  std::remove(path_.c_str());
  sidecar.readMore();
  host_test::writeText(path_, "{\"unix_s\": 3, \"pan_deg\": 6}\n");
  sidecar.readMore();
  EXPECT_NEAR(sidecar.at(3.0).at("pan_deg"), 6.0, 1e-9);
}

TEST_F(SidecarTest, AnEndlessLineIsDropped) {
  Sidecar sidecar(path_);
  write(std::string((std::size_t{1} << 20) + 10, 'x'));
  sidecar.readMore();
  sidecar.readMore();
  write("{\"unix_s\": 2, \"pan_deg\": 9}\n{\"unix_s\": 3, \"pan_deg\": 6}\n");
  sidecar.readMore();
  EXPECT_TRUE(sidecar.at(2.0).empty()) << "the rest of the line is no line";
  EXPECT_NEAR(sidecar.at(3.0).at("pan_deg"), 6.0, 1e-9);
  EXPECT_EQ(sidecar.refused(), 1);
}

TEST(SidecarFile, ThatIsNotThereIsRefused) {
  EXPECT_THROW(Sidecar("/nowhere/camera.jsonl"), host::HostError);
}

}  // namespace
}  // namespace live
