// The built library as a host meets it: loaded by file name, known only through the interface.
#include <gtest/gtest.h>

#include <chrono>
#include <class_loader/class_loader.hpp>
#include <memory>
#include <opencv2/core.hpp>
#include <string>
#include <thread>
#include <vector>

#include "ialgo_plugin.h"
#include "ocula/ocula_picture.h"
#include "support/kept_libraries.h"

namespace {

using Frames = std::vector<std::shared_ptr<ocula::OculaPicture>>;
using Instance = class_loader::ClassLoader::UniquePtr<IAlgoPlugin>;

const char kLibrary[] = CSRT_PLUGIN_LIBRARY;
const char kCheapTracker[] =
    R"({"csrt":{"template_size":48,"number_of_scales":3,"use_color_names":false,"use_segmentation":false}})";

/// A chequered square of 24 pixels on plain grey.
Frames frameWithSquareAt(int x, int y) {
  cv::Mat picture(128, 160, CV_8UC3, cv::Scalar::all(100));
  for (int row = 0; row < 24; ++row) {
    for (int column = 0; column < 24; ++column) {
      const bool bright = (row / 6 + column / 6) % 2 == 0;
      picture.at<cv::Vec3b>(y + row, x + column) = bright ? cv::Vec3b(40, 80, 240) : cv::Vec3b(200, 40, 20);
    }
  }
  return {std::make_shared<ocula::OculaPicture>(picture)};
}

const AlgoValue::Array& detectionsOf(const AlgoOutput& output) {
  return std::get<AlgoValue::Array>(std::get<AlgoValue::Object>(output.value).at(0).second);
}

/// The number at a place of a detection: 0 x, 1 y, 2 w, 3 h.
long numberAt(const AlgoValue& detection, std::size_t place) {
  return std::get<long>(std::get<AlgoValue::Object>(detection).at(place).second);
}

// A loaded plug-in has the real clock, and its health monitor judges speed by it: frames come no faster than a
// camera's.
void waitForTheNextFrame() {
  std::this_thread::sleep_for(std::chrono::milliseconds(30));
}

}  // namespace

TEST(PluginLibrary, RegistersOneClassUnderItsInterface) {
  class_loader::ClassLoader loader(kLibrary);
  EXPECT_EQ(loader.getAvailableClasses<IAlgoPlugin>(), std::vector<std::string>{"CSRTTrackingAlgo"});
}

TEST(PluginLibrary, CreatesObjectsOfTheirOwn) {
  class_loader::ClassLoader loader(kLibrary);
  const Instance first = loader.createUniqueInstance<IAlgoPlugin>("CSRTTrackingAlgo");
  const Instance second = loader.createUniqueInstance<IAlgoPlugin>("CSRTTrackingAlgo");
  EXPECT_EQ(first->getName(), "CSRTTrackingAlgo");
  EXPECT_TRUE(first->isAlive() && first->isDynamic());
  EXPECT_EQ(first->getConfigList().size(), 6466U);
  EXPECT_EQ(first->getOutputDeclarations().size(), 2U);
  EXPECT_EQ(first->getUuid(), first->getUuid());
  EXPECT_NE(first->getUuid(), second->getUuid());
}

TEST(PluginLibrary, FollowsATargetForItsHost) {
  class_loader::ClassLoader loader(kLibrary);
  const Instance plugin = loader.createUniqueInstance<IAlgoPlugin>("CSRTTrackingAlgo");
  plugin->setConfig(kCheapTracker);
  bool started = false;
  EXPECT_TRUE(plugin->init(frameWithSquareAt(60, 50), {60, 50, 24, 24}, &started).empty());
  ASSERT_TRUE(started);
  for (int i = 1; i <= 5; ++i) {
    waitForTheNextFrame();
    bool processed = false;
    const auto outputs = plugin->update(frameWithSquareAt(60 + 2 * i, 50 + i), &processed);
    EXPECT_TRUE(processed);
    ASSERT_EQ(outputs.size(), 1U);
    EXPECT_EQ(outputs[0].name, "detection.v1");
    ASSERT_EQ(detectionsOf(outputs[0]).size(), 1U);
    EXPECT_NEAR(static_cast<double>(numberAt(detectionsOf(outputs[0])[0], 0)), 60.0 + 2.0 * i, 4.0) << "frame " << i;
    EXPECT_NEAR(static_cast<double>(numberAt(detectionsOf(outputs[0])[0], 1)), 50.0 + i, 4.0) << "frame " << i;
  }
}

TEST(PluginLibrary, AnswersWithoutAFrame) {
  class_loader::ClassLoader loader(kLibrary);
  const Instance plugin = loader.createUniqueInstance<IAlgoPlugin>("CSRTTrackingAlgo");
  bool started = true;
  EXPECT_TRUE(plugin->init({}, {1, 2, 3, 4}, &started).empty());
  EXPECT_FALSE(started);
  const auto outputs = plugin->update({}, nullptr);
  ASSERT_EQ(outputs.size(), 1U);
  EXPECT_TRUE(detectionsOf(outputs[0]).empty());
}

TEST(PluginLibrary, CanBeUnloadedAndLoadedAgain) {
  for (int round = 0; round < 2; ++round) {
    class_loader::ClassLoader loader(kLibrary, true);
    loader.loadLibrary();
    Instance plugin = loader.createUniqueInstance<IAlgoPlugin>("CSRTTrackingAlgo");
    EXPECT_EQ(plugin->getName(), "CSRTTrackingAlgo");
    plugin.reset();
    EXPECT_EQ(loader.unloadLibrary(), 0);
    EXPECT_FALSE(loader.isLibraryLoaded());
  }
}
