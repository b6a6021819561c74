// The schema of the records: it is printed, and it refuses what a record must not be.
#include "support/record_schema.h"

#include <gtest/gtest.h>

#include "base/embedded.h"
#include "plugin/call_record.h"
#include "support/host_program.h"

namespace host_test {
namespace {

using Json = nlohmann::json;

Json tracked() {
  return Json::parse(
      R"({"schema":"csrt-track.record","version":1,"target":"t","frame":3,"time_s":0.3,"call":"update","pace":"video",
    "update_ms":8.3,"state":"tracked","box_from":"tracker","box":{"x":-1,"y":2,"w":3,"h":4},"score":0.5,
    "frames_since_seen":0,"seconds_since_seen":0.0,"outputs":[{"name":"detection.v1","value":{"detections":[]}}]})");
}

Json with(Json record, const char* key, const Json& value) {
  record[key] = value;
  return record;
}

Json without(Json record, const char* key) {
  record.erase(key);
  return record;
}

TEST(RecordSchema, IsPrintedAsItIsShipped) {
  const ProgramResult result = runProgram({"schema", "records"});
  EXPECT_EQ(result.status, 0);
  EXPECT_EQ(result.out, host::kRecordsSchema);
  EXPECT_EQ(Json::parse(result.out)["properties"]["version"]["const"], 1);
}

TEST(RecordSchema, TakesAProperRecord) {
  EXPECT_EQ(recordFault(tracked()), "");
}

TEST(RecordSchema, RefusesWhatARecordMustNotBe) {
  for (const char* key : {"schema", "version", "target", "frame", "time_s", "call", "pace", "update_ms", "state",
                          "box_from", "frames_since_seen", "seconds_since_seen", "outputs"}) {
    EXPECT_NE(recordFault(without(tracked(), key)), "") << key;
  }
  EXPECT_NE(recordFault(with(tracked(), "surprise", 1)), "");
  EXPECT_NE(recordFault(with(tracked(), "version", 2)), "");
  EXPECT_NE(recordFault(with(tracked(), "state", "found")), "");
  EXPECT_NE(recordFault(with(tracked(), "frames_since_seen", 1)), "") << "a tracked frame is a seen one";
  EXPECT_NE(recordFault(with(tracked(), "box_from", "none")), "") << "no box may come from nowhere";
  EXPECT_NE(recordFault(without(tracked(), "box")), "") << "where a box comes from one must be";
  EXPECT_NE(recordFault(with(tracked(), "state", "rebuilt")), "") << "a score that was not measured";
  EXPECT_NE(recordFault(with(tracked(), "score", 1.5)), "");
  EXPECT_NE(recordFault(with(tracked(), "started", true)), "") << "only init starts";
  EXPECT_NE(recordFault(with(tracked(), "call", "init")), "") << "init says whether it started";
}

TEST(RecordSchema, AStartNamesTheNetworkThatTheGuardAsks) {
  host::CallRecord start;
  start.target = "t";
  start.isInit = start.started = true;
  start.givenBox = cv::Rect(1, 2, 30, 40);
  EXPECT_FALSE(host::toJson(start).contains("guard_model_sha256"));
  start.guardModelSha256 = std::string(64, '7');
  const Json json = host::toJson(start);
  EXPECT_EQ(json["guard_model_sha256"], start.guardModelSha256);
  EXPECT_EQ(recordFault(json), "");
  EXPECT_NE(recordFault(with(json, "guard_model_sha256", "7")), "") << "that is no sum";
  EXPECT_NE(recordFault(with(tracked(), "guard_model_sha256", start.guardModelSha256)), "") << "only a start has it";
}

}  // namespace
}  // namespace host_test
