#include "simulator/scenario_reader.h"

#include <filesystem>
#include <system_error>

#include "base/host_error.h"
#include "base/json_text.h"
#include "base/text_file.h"
#include "input/metadata_keys.h"
#include "ocula/ocula_picture.h"
#include "plugin/track_state.h"
#include "simulator/checked_json.h"
#include "simulator/shipped_scenarios.h"

namespace host::sim {
namespace {

namespace fs = std::filesystem;
using Json = CheckedObject::Json;

constexpr Range kSeconds{0.0, 3600.0};
constexpr Range kTurns{-720.0, 720.0};  // pan may go round
constexpr Range kTilt{-90.0, 90.0};
constexpr Range kFov{1.0, 180.0};
constexpr Range kShare{0.0, 1.0};
constexpr Range kCount{0.0, 1e6};

void readAngles(CheckedObject& object, Angles& angles) {
  object.read("pan_deg", kTurns, angles.pan);
  object.read("tilt_deg", kTilt, angles.tilt);
}

void readScene(CheckedObject scene, SceneParams& params) {
  scene.read("picture", params.picture);
  scene.read("tilt_span_deg", {20.0, 180.0}, params.tilt_span_deg);
  scene.read("pixels_per_deg", {4.0, 40.0}, params.pixels_per_deg);
  scene.finish();
}

void readAxis(CheckedObject axis, bool hasStops, AxisLimits& limits) {
  axis.read("max_rate_dps", {0.1, 1000.0}, limits.max_rate_dps);
  axis.read("max_accel_dps2", {1.0, 1e5}, limits.max_accel_dps2);
  axis.read("lag_s", {0.0, 2.0}, limits.lag_s);
  if (hasStops) {
    axis.read("min_deg", kTilt, limits.min_deg);
    axis.read("max_deg", kTilt, limits.max_deg);
    if (limits.min_deg >= limits.max_deg) axis.fail("min_deg", "this is not below max_deg");
  }
  axis.finish();
}

void readShake(CheckedObject object, ShakeParams& shake) {
  object.read("pan_deg", {0.0, 10.0}, shake.pan_deg);
  object.read("tilt_deg", {0.0, 10.0}, shake.tilt_deg);
  object.read("hz", {0.05, 20.0}, shake.hz);
  object.read("from_s", kSeconds, shake.from_s);
  object.finish();
}

ZoomOrder zoomOf(CheckedObject object) {
  ZoomOrder order;
  std::string after = "beginning";
  object.read("after", {"beginning", "following"}, after);
  order.after = after == "following" ? ZoomStart::Following : ZoomStart::Beginning;
  object.read("at_s", kSeconds, order.at_s);
  if (!object.has("hfov_deg")) object.fail("hfov_deg", "this is missing");
  object.read("hfov_deg", kFov, order.hfov_deg);
  object.read("over_s", kSeconds, order.over_s);
  object.finish();
  return order;
}

void readCamera(CheckedObject camera, CameraParams& params) {
  readAngles(camera, params.start);
  camera.read("hfov_deg", kFov, params.hfov_deg);
  if (auto axis = camera.object("pan")) readAxis(*axis, false, params.pan);
  if (auto axis = camera.object("tilt")) readAxis(*axis, true, params.tilt);
  camera.read("delay_s", {0.0, 5.0}, params.delay_s);
  camera.read("video_delay_s", {0.0, 5.0}, params.video_delay_s);
  camera.read("noise", {0.0, 100.0}, params.noise);
  if (auto shake = camera.object("shake")) readShake(*shake, params.shake);
  for (CheckedObject& order : camera.objects("zoom")) params.zoom.push_back(zoomOf(std::move(order)));
  camera.finish();
}

std::vector<Waypoint> pathOf(CheckedObject& actor) {
  std::vector<Waypoint> path;
  for (CheckedObject& object : actor.objects("path")) {
    Waypoint waypoint;
    object.read("t_s", kSeconds, waypoint.t_s);
    for (const char* key : {"pan_deg", "tilt_deg"}) {
      if (!object.has(key)) object.fail(key, "this is missing");
    }
    readAngles(object, waypoint.at);
    object.finish();
    if (!path.empty() && waypoint.t_s <= path.back().t_s) object.fail("t_s", "this is not later than the one before");
    path.push_back(waypoint);
  }
  if (path.empty()) actor.fail("path", "there must be at least one place");
  return path;
}

Actor actorOf(CheckedObject object) {
  Actor actor;
  object.read("look", {"car", "person", "drone", "wall"}, actor.look);
  object.read("like_target", actor.likeTarget);
  object.read("size_deg", {0.05, 180.0}, actor.size.width, actor.size.height);
  actor.path = pathOf(object);
  object.read("from_s", kSeconds, actor.from_s);
  object.read("until_s", kSeconds, actor.until_s);
  if (actor.until_s <= actor.from_s) object.fail("until_s", "this is not later than from_s");
  object.finish();
  return actor;
}

MetadataFault faultOf(CheckedObject object) {
  using Kind = MetadataFault::Kind;
  MetadataFault fault;
  std::string kind = "missing";
  object.read("kind", {"missing", "text", "int", "nan"}, kind);
  fault.kind = kind == "text"  ? Kind::Text
               : kind == "int" ? Kind::WholeInt
               : kind == "nan" ? Kind::NotFinite
                               : Kind::Missing;
  object.read("from_s", kSeconds, fault.from_s);
  object.read("until_s", kSeconds, fault.until_s);
  if (fault.until_s <= fault.from_s) object.fail("until_s", "this is not later than from_s");
  using Keys = ocula::OculaPicture::BaseMetadata::Keys;
  object.read("keys", {Keys::kPanDeg, Keys::kTiltDeg, Keys::kHfovDeg, Keys::kVfovDeg, Keys::kFollowMeEnabledCommand},
              fault.keys);
  object.finish();
  return fault;
}

void readMetadata(CheckedObject object, MetadataParams& params) {
  object.read("noise_deg", {0.0, 10.0}, params.noise_deg);
  object.read("delay_s", {0.0, 5.0}, params.delay_s);
  for (CheckedObject& fault : object.objects("faults")) params.faults.push_back(faultOf(std::move(fault)));
  object.finish();
}

void readFollow(CheckedObject object, FollowParams& follow) {
  object.read("gain_per_s", {0.0, 50.0}, follow.gain_per_s);
  object.read("integral_per_s2", {0.0, 50.0}, follow.integral_per_s2);
  object.read("max_rate_dps", {0.1, 1000.0}, follow.max_rate_dps);
  object.read("coast_s", kSeconds, follow.coast_s);
  object.finish();
}

void readHost(CheckedObject object, HostParams& params) {
  object.read("follow_me", params.follow_me);
  object.read("box_offset", {-2.0, 2.0}, params.box_offset.x, params.box_offset.y);
  object.read("mark_again_after_s", kSeconds, params.mark_again_after_s);
  if (auto follow = object.object("follow")) readFollow(*follow, params.follow);
  std::string controller = "proportional";
  object.read("controller", {"proportional", "predicting"}, controller);
  params.predicting = controller == "predicting";
  object.finish();
}

std::vector<std::string> stateNames() {
  std::vector<std::string> names;
  for (const TrackState state :
       {TrackState::Waiting, TrackState::Tracked, TrackState::Rebuilt, TrackState::Redetected, TrackState::Predicted,
        TrackState::Reseeded, TrackState::Lost, TrackState::Inactive, TrackState::Reacquired}) {
    names.emplace_back(name(state));
  }
  return names;
}

void readExpectations(CheckedObject object, Expectations& expect) {
  object.read("armed", expect.armed);
  object.read("armed_within_frames", kCount, expect.armed_within_frames);
  object.read("first_iou_min", kShare, expect.first_iou_min);
  object.read("mean_iou_min", kShare, expect.mean_iou_min);
  object.read("pointing_error_armed_deg_max", kFov, expect.pointing_error_armed_deg_max);
  object.read("pointing_error_p95_deg_max", {0.0, 180.0}, expect.pointing_error_p95_deg_max);
  object.read("pointing_error_p95_px_max", {0.0, 1e5}, expect.pointing_error_p95_px_max);
  object.read("seconds_lost_max", kSeconds, expect.seconds_lost_max);
  object.read("false_boxes_max", kCount, expect.false_boxes_max);
  object.read("zoom_reseeds_min", kCount, expect.zoom_reseeds_min);
  object.read("redetections_min", kCount, expect.redetections_min);
  object.read("state_right_min", kShare, expect.state_right_min);
  object.read("wrong_claims_max", kShare, expect.wrong_claims_max);
  object.read("final_state", stateNames(), expect.final_state);
  object.finish();
}

void readRun(CheckedObject& file, Scenario& scenario) {
  file.read("title", scenario.title);
  int seed = 1;
  file.read("seed", {0.0, 2147483647.0}, seed);
  scenario.seed = static_cast<std::uint64_t>(seed);
  file.read("duration_s", {0.1, 3600.0}, scenario.duration_s);
  file.read("fps", {1.0, 240.0}, scenario.fps);
  if (auto size = file.object("frame")) {
    size->read("width", {64.0, 7680.0}, scenario.frame.width);
    size->read("height", {64.0, 4320.0}, scenario.frame.height);
    size->finish();
  }
}

/// A target that the first frame does not show cannot be pointed at.
void checkStart(const CheckedObject& file, const Scenario& scenario) {
  const double hfov = scenario.camera.hfov_deg;
  const View view{scenario.camera.start, hfov, vfovOf(hfov, scenario.frame)};
  const cv::Point2d at = pixelOf(placeOf(scenario.target, 0.0), view, scenario.frame);
  const bool inside = at.x >= 0 && at.y >= 0 && at.x < scenario.frame.width && at.y < scenario.frame.height;
  if (!inside || !isThere(scenario.target, 0.0)) file.fail("target", "it is not in the picture of the first frame");
}

Json parseJson(const std::string& text, const std::string& file) {
  try {
    if (tooDeepAt(text) == std::string::npos) return Json::parse(text);
    throw HostError(ExitCode::Usage, "scenario '" + file + "' is nested too deeply");
  } catch (const Json::parse_error& e) {
    std::string what = e.what();
    const std::size_t begin = what.find("parse error");
    throw HostError(ExitCode::Usage,
                    "scenario '" + file + "' is not JSON: " + (begin == std::string::npos ? what : what.substr(begin)));
  }
}

}  // namespace

Scenario parseScenario(const std::string& text, const std::string& file) {
  const Json json = parseJson(text, file);
  CheckedObject root(json, file, "");
  Scenario scenario;
  scenario.name = fs::path(file).stem().string();
  readRun(root, scenario);
  if (auto scene = root.object("scene")) readScene(*scene, scenario.scene);
  if (auto camera = root.object("camera")) readCamera(*camera, scenario.camera);
  const auto target = root.object("target");
  if (!target) root.fail("target", "this is missing");
  scenario.target = actorOf(*target);
  for (CheckedObject& decoy : root.objects("decoys")) scenario.decoys.push_back(actorOf(std::move(decoy)));
  for (CheckedObject& wall : root.objects("occluders")) scenario.occluders.push_back(actorOf(std::move(wall)));
  if (auto metadata = root.object("metadata")) readMetadata(*metadata, scenario.metadata);
  if (auto host = root.object("host")) readHost(*host, scenario.host);
  scenario.config = root.rawObject("config").dump();
  if (auto expect = root.object("expect")) readExpectations(*expect, scenario.expect);
  root.finish();
  checkStart(root, scenario);
  return scenario;
}

Scenario loadScenario(const std::string& nameOrFile) {
  std::error_code ignored;
  if (!fs::exists(nameOrFile, ignored)) {
    const ShippedScenario* shipped = findShippedScenario(nameOrFile);
    if (shipped != nullptr) return parseScenario(shipped->text, shipped->name);
    throw HostError(ExitCode::Usage,
                    "there is no file and no shipped scenario '" + nameOrFile + "'; see 'csrt-track simulate --list'");
  }
  Scenario scenario = parseScenario(readTextFile(nameOrFile), nameOrFile);
  const fs::path picture(scenario.scene.picture);
  if (!picture.empty() && picture.is_relative()) {
    scenario.scene.picture = (fs::path(nameOrFile).parent_path() / picture).string();
  }
  return scenario;
}

}  // namespace host::sim
