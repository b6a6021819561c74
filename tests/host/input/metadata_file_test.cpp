// Metadata of recorded video: values in the types a camera delivers, mistakes named with their line.
#include "input/metadata_file.h"

#include <gtest/gtest.h>

#include "base/host_error.h"

namespace host {
namespace {

template <typename T>
T valueOf(const MetadataTable& table, long frame, const std::string& key) {
  return std::get<T>(table.of(frame).at(key));
}

std::string complaintAbout(const std::string& text) {
  try {
    MetadataTable::parse(text, "meta.csv");
  } catch (const HostError& error) {
    EXPECT_EQ(error.code(), ExitCode::Usage);
    return error.what();
  }
  return "nothing";
}

TEST(MetadataFile, ReadsCommaSeparatedValuesInTheTypesOfALiveCamera) {
  const MetadataTable table = MetadataTable::parse(
      "\xEF\xBB\xBF# from the east mast\r\n"
      "frame, pan_deg,tilt_deg,hfov_deg,vfov_deg,follow_me,camera_name,utc_timestamp_us,nav_sat_count\r\n"
      "0,10,-5.5,60,33.75,1,\"mast, \"\"east\"\"\",18446744073709551615,7\r\n"
      "\r\n"
      "2,11,,60,33.75,0,,,\r\n",
      "meta.csv");
  EXPECT_EQ(table.rows(), 2U);
  EXPECT_EQ(valueOf<double>(table, 0, "pan_deg"), 10.0);
  EXPECT_EQ(valueOf<double>(table, 0, "tilt_deg"), -5.5);
  EXPECT_EQ(valueOf<int>(table, 0, "tarvex.follow_me_enabled_command"), 1);
  EXPECT_EQ(valueOf<std::string>(table, 0, "camera_name"), "mast, \"east\"");
  EXPECT_EQ(valueOf<unsigned long>(table, 0, "utc_timestamp_us"), 18446744073709551615UL);
  EXPECT_EQ(valueOf<int>(table, 0, "nav_sat_count"), 7);
  EXPECT_TRUE(table.of(1).empty());
  EXPECT_EQ(table.of(2).count("tilt_deg"), 0U);
  EXPECT_EQ(valueOf<int>(table, 2, "tarvex.follow_me_enabled_command"), 0);
}

TEST(MetadataFile, ReadsJsonLines) {
  const MetadataTable table = MetadataTable::parse(
      "{\"frame\": 3, \"pan_deg\": 10, \"follow_me\": true, \"serial_number\": \"17\", \"tilt_deg\": null}\n"
      "{\"frame\": 4, \"tarvex.follow_me_enabled_command\": 0}",
      "meta.jsonl");
  EXPECT_EQ(valueOf<double>(table, 3, "pan_deg"), 10.0);
  EXPECT_EQ(valueOf<int>(table, 3, "tarvex.follow_me_enabled_command"), 1);
  EXPECT_EQ(valueOf<std::string>(table, 3, "serial_number"), "17");
  EXPECT_EQ(table.of(3).count("tilt_deg"), 0U);
  EXPECT_EQ(valueOf<int>(table, 4, "tarvex.follow_me_enabled_command"), 0);
}

TEST(MetadataFile, NamesTheLineAndTheMistake) {
  const struct {
    const char* text;
    const char* complaint;
  } kCases[] = {
      {"", "metadata 'meta.csv' has no row"},
      {"frame,pan_deg\n", "metadata 'meta.csv' has no row"},
      {"pan_deg\n1\n", "metadata 'meta.csv', line 1: the heading has no column 'frame'"},
      {"frame,pan\n0,1\n", "metadata 'meta.csv', line 1: there is no metadata key 'pan'"},
      {"frame,pan_deg,pan_deg\n", "metadata 'meta.csv', line 1: the column 'pan_deg' is there twice"},
      {"frame,pan_deg\n0,1\n1,north\n", "metadata 'meta.csv', line 3: pan_deg 'north' is not a number"},
      {"frame,pan_deg\n0,1x\n", "metadata 'meta.csv', line 2: pan_deg '1x' is not a number"},
      {"frame,pan_deg\n0,nan\n", "metadata 'meta.csv', line 2: pan_deg 'nan' is not finite"},
      {"frame,pan_deg\n0,1,2\n", "metadata 'meta.csv', line 2: 3 values for 2 columns"},
      {"frame,camera_name\n0,\"east\n", "metadata 'meta.csv', line 2: a quoted text does not end"},
      {"frame,pan_deg\n-1,1\n", "metadata 'meta.csv', line 2: frame '-1' is not a whole number from 0"},
      {"frame,pan_deg\n,1\n", "metadata 'meta.csv', line 2: frame '' is not a whole number from 0"},
      {"frame,pan_deg\n7,1\n7,2\n", "metadata 'meta.csv', line 3: frame 7 is there twice"},
      {"frame,follow_me\n0,0.5\n", "metadata 'meta.csv', line 2: follow_me '0.5' is not a whole number of 32 bits"},
      {"frame,source_ns\n0,-4\n", "metadata 'meta.csv', line 2: source_ns '-4' is not a whole number from 0"},
      {"{\"frame\":0}\n{\"frame\":1", "metadata 'meta.csv', line 2: this is not JSON"},
      {"{\"pan_deg\":0}\n", "metadata 'meta.csv', line 1: there is no frame number"},
      {"{\"frame\":0,\"pan_deg\":\"1\"}\n", "metadata 'meta.csv', line 1: pan_deg '1' is not a number"},
      {"{\"frame\":0,\"camera_name\":4}\n", "metadata 'meta.csv', line 1: camera_name 4 is not a text"},
      {"{\"frame\":0,\"pan_deg\":[1]}\n", "metadata 'meta.csv', line 1: 'pan_deg' is neither a number nor a text"},
      {"{\"frame\":0,\"follow_me\":1,\"tarvex.follow_me_enabled_command\":1}\n",
       "metadata 'meta.csv', line 1: 'tarvex.follow_me_enabled_command' is given twice"},
  };
  for (const auto& one : kCases) EXPECT_EQ(complaintAbout(one.text), one.complaint) << one.text;
}

TEST(MetadataFile, ThatIsNotThereIsNamed) {
  EXPECT_THROW(readMetadataFile("/nonexistent/meta.csv"), HostError);
}

}  // namespace
}  // namespace host
