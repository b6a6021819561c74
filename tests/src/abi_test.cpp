// What is fixed between a host and the plug-in once both are binaries: sizes, places of members, and which place of
// the tables of virtual functions answers to what. The lists are the same on both processors (64-bit, libstdc++); a
// line that has to change here means that every host has to be built anew.
#include <gtest/gtest.h>

#include <class_loader/class_loader.hpp>
#include <cstddef>
#include <cstring>
#include <opencv2/core.hpp>
#include <string>

#include "ialgo_plugin.h"
#include "ocula/ocula_picture.h"
#include "support/kept_libraries.h"

using ocula::OculaPicture;

namespace {

/// The function at a place of an object's table, called without the header's help. A member function takes its object
/// as a plain function takes its first argument.
template <typename Function>
Function* slot(const void* object, std::size_t place) {
  void* const* table = nullptr;
  std::memcpy(&table, object, sizeof(table));
  return reinterpret_cast<Function*>(table[place]);
}

using TextOf = std::string(const void*);
using FlagOf = bool(const void*);
using NumberOf = int(const void*);

}  // namespace

TEST(Abi, FixesTheSizesOfWhatTravels) {
  EXPECT_EQ(sizeof(BBox), 16U);
  EXPECT_EQ(sizeof(AlgoValue), 40U);
  EXPECT_EQ(sizeof(AlgoValue::Object::value_type), 72U);
  EXPECT_EQ(sizeof(AlgoOutput), 72U);
  EXPECT_EQ(sizeof(AlgoOutputDeclaration), 40U);
  EXPECT_EQ(sizeof(DetectionResult::Det), 96U);
  EXPECT_EQ(sizeof(DetectionResult), 24U);
  EXPECT_EQ(sizeof(IAlgoPlugin), 8U) << "the table and nothing else";
  EXPECT_EQ(sizeof(OculaPicture::MetadataValue), 40U);
  EXPECT_EQ(sizeof(OculaPicture::BaseMetadata), 56U);
}

TEST(Abi, FixesTheAlignments) {
  EXPECT_EQ(alignof(BBox), 4U);
  EXPECT_EQ(alignof(AlgoValue), 8U);
  EXPECT_EQ(alignof(AlgoOutput), 8U);
  EXPECT_EQ(alignof(AlgoOutputDeclaration), 8U);
  EXPECT_EQ(alignof(DetectionResult::Det), 8U);
  EXPECT_EQ(alignof(OculaPicture::MetadataValue), 8U);
}

TEST(Abi, FixesThePlacesOfMembers) {
  EXPECT_EQ(offsetof(BBox, x), 0U);
  EXPECT_EQ(offsetof(BBox, y), 4U);
  EXPECT_EQ(offsetof(BBox, width), 8U);
  EXPECT_EQ(offsetof(BBox, height), 12U);
  using Det = DetectionResult::Det;
  EXPECT_EQ(offsetof(Det, x), 0U);
  EXPECT_EQ(offsetof(Det, y), 4U);
  EXPECT_EQ(offsetof(Det, w), 8U);
  EXPECT_EQ(offsetof(Det, h), 12U);
  EXPECT_EQ(offsetof(Det, class_id), 16U);
  EXPECT_EQ(offsetof(Det, class_name), 24U);
  EXPECT_EQ(offsetof(Det, class_info), 56U);
  EXPECT_EQ(offsetof(Det, tracker_id), 88U);
  EXPECT_EQ(offsetof(Det, score), 92U);
}

TEST(Abi, FixesThePlacesOfARecordsMembers) {
  const AlgoOutput output{"", AlgoValue(1)};
  const auto* start = reinterpret_cast<const char*>(&output);
  EXPECT_EQ(reinterpret_cast<const char*>(&output.name) - start, 0);
  EXPECT_EQ(reinterpret_cast<const char*>(&output.value) - start, 32);
  const AlgoOutputDeclaration declaration;
  start = reinterpret_cast<const char*>(&declaration);
  EXPECT_EQ(reinterpret_cast<const char*>(&declaration.first) - start, 32);
  EXPECT_EQ(reinterpret_cast<const char*>(&declaration.second) - start, 36);
}

// The built library, asked by number: what a host does that was compiled against an older header.
TEST(Abi, TheLibraryAnswersAtTheFixedPlaces) {
  class_loader::ClassLoader loader(CSRT_PLUGIN_LIBRARY);
  const auto plugin = loader.createUniqueInstance<IAlgoPlugin>("CSRTTrackingAlgo");
  const void* object = plugin.get();
  EXPECT_TRUE(slot<FlagOf>(object, 5)(object)) << "isAlive";
  EXPECT_EQ(slot<TextOf>(object, 6)(object), "CSRTTrackingAlgo") << "getName";
  EXPECT_EQ(slot<TextOf>(object, 7)(object), plugin->getUuid());
  EXPECT_TRUE(slot<FlagOf>(object, 8)(object)) << "isDynamic";
  EXPECT_EQ(slot<TextOf>(object, 11)(object), plugin->getConfigList());
  EXPECT_EQ(slot<TextOf>(object, 13)(object), plugin->getPropertyList());
  using Declarations = std::vector<AlgoOutputDeclaration>(const void*);
  EXPECT_EQ(slot<Declarations>(object, 3)(object).size(), 2U) << "getOutputDeclarations";
  using Step = std::vector<AlgoOutput>(void*, const std::vector<std::shared_ptr<OculaPicture>>&, bool*);
  EXPECT_EQ(slot<Step>(object, 4)(plugin.get(), {}, nullptr).size(), 1U) << "update";
}

TEST(Abi, TheFrameLibraryAnswersAtTheFixedPlaces) {
  const OculaPicture picture(cv::Mat(30, 40, CV_8UC3), {{"pan_deg", 12.5}});
  EXPECT_EQ(slot<NumberOf>(&picture, 2)(&picture), 40) << "width";
  EXPECT_EQ(slot<NumberOf>(&picture, 3)(&picture), 30) << "height";
  EXPECT_EQ(slot<cv::Mat(const void*)>(&picture, 4)(&picture).size(), cv::Size(40, 30)) << "getBGR";
  using Crop = cv::Mat(const void*, int, int, int, int);
  EXPECT_EQ(slot<Crop>(&picture, 5)(&picture, 1, 2, 3, 4).size(), cv::Size(3, 4)) << "cropToMat";
  using Metadata = const OculaPicture::BaseMetadata&(const void*);
  EXPECT_EQ(&slot<Metadata>(&picture, 6)(&picture), &picture.baseMetadata());
}
