// csrt-track serve: a camera that a ground station can track with, over MAVLink.
#include <CLI/CLI.hpp>
#include <atomic>
#include <condition_variable>
#include <cstdio>
#include <filesystem>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <thread>
#include <vector>

#include "base/host_error.h"
#include "base/interrupt.h"
#include "base/text_output.h"
#include "commands/commands.h"
#include "commands/help_footer.h"
#include "config/config_text.h"
#include "input/file_plan.h"
#include "input/frame_source.h"
#include "input/y4m.h"
#include "link/tracking_server.h"
#include "plugin/plugin_library.h"

namespace host {
namespace {

struct ServeOptions {
  std::string source;
  std::vector<std::string> lines;
  ConfigOptions config;
  std::string records;
  std::string plugin;
  std::string panFrame = "vehicle";
  std::string streamUri;
  int system = 1;
  double hfov = 60.0;
  double vfov = 0.0;
  double videoDelay_s = 0.0;
  double orderDelay_s = 0.04;
  double motorLag_s = 0.05;
  double maxRate = 60.0;
  double maxAccel = 240.0;
  double panGain = 1.0;
  double tiltGain = 1.0;
  double seconds = 0.0;
  bool noGimbal = false;
  bool calibrate = false;
  bool ground = false;
  bool quiet = false;
};

struct LiveFrame {
  cv::Mat bgr;
  double captured_s = 0.0;
};

/// Takes frames as they come and keeps the newest one only.
class NewestFrame {
 public:
  explicit NewestFrame(const ServeOptions& options) : options_(options) {
    std::error_code ignored;
    isPipe_ = options.source == "-" || std::filesystem::is_fifo(options.source, ignored) ||
              std::filesystem::path(options.source).extension() == ".y4m";
    if (isPipe_) {
      pipe_ = std::make_unique<Y4mReader>(options.source);
    } else {
      SourceOptions file;
      file.source = options.source;
      files_ = openFrameSource(file);
    }
    thread_ = std::thread([this] { take_(); });
  }
  ~NewestFrame() {
    stop_ = true;
    if (pipe_) pipe_->stop();
    thread_.join();
  }
  NewestFrame(const NewestFrame&) = delete;
  NewestFrame& operator=(const NewestFrame&) = delete;

  /// @return false at the end. @throws what reading threw
  bool next(LiveFrame& frame) {
    std::unique_lock<std::mutex> lock(mutex_);
    while (!frame_ && !ended_ && interruptSignal() == 0) arrived_.wait_for(lock, std::chrono::milliseconds(100));
    if (interruptSignal() != 0) return false;
    if (!frame_) {
      if (error_) std::rethrow_exception(error_);
      return false;
    }
    frame = std::move(*frame_);
    frame_.reset();
    return true;
  }

  long dropped() const { return dropped_; }

 private:
  void take_() {
    try {
      LiveFrame frame;
      while (!stop_ && read_(frame)) {
        const std::lock_guard<std::mutex> lock(mutex_);
        if (frame_) ++dropped_;
        frame_ = std::move(frame);
        frame = {};
        arrived_.notify_one();
      }
    } catch (...) {
      const std::lock_guard<std::mutex> lock(mutex_);
      error_ = std::current_exception();
    }
    const std::lock_guard<std::mutex> lock(mutex_);
    ended_ = true;
    arrived_.notify_one();
  }

  bool read_(LiveFrame& frame) {
    if (pipe_) {
      Y4mFrame got;
      if (!pipe_->read(got)) return false;
      frame = {got.bgr, got.captured_s.value_or(link::TrackingServer::monotonic() - options_.videoDelay_s)};
      return true;
    }
    SourceFrame got;
    if (!files_->read(got)) return false;
    // A file is played at its own rate; a camera gives frames when it has them.
    const double now_s = link::TrackingServer::monotonic();
    if (!begin_s_) begin_s_ = now_s - got.time_s;
    const double wait_s = *begin_s_ + got.time_s - now_s;
    if (wait_s > 0 && wait_s < 10.0) std::this_thread::sleep_for(std::chrono::duration<double>(wait_s));
    frame = {got.bgr, link::TrackingServer::monotonic() - options_.videoDelay_s};
    return true;
  }

  const ServeOptions& options_;
  bool isPipe_ = false;
  std::unique_ptr<Y4mReader> pipe_;
  std::unique_ptr<FrameSource> files_;
  std::optional<double> begin_s_;
  std::mutex mutex_;
  std::condition_variable arrived_;
  std::optional<LiveFrame> frame_;
  std::exception_ptr error_;
  bool ended_ = false;
  std::atomic<long> dropped_{0};
  std::atomic<bool> stop_{false};
  std::thread thread_;
};

link::ServerOptions serverOptions(const ServeOptions& options) {
  link::ServerOptions server;
  server.lines = options.lines;
  server.configText = buildConfigText(options.config);
  server.camera.system = static_cast<std::uint8_t>(options.system);
  server.camera.hfov_deg = options.hfov;
  server.camera.vfov_deg = options.vfov;
  server.camera.streamUri = options.streamUri;
  server.camera.knowsGround = options.ground;
  server.gimbal = !options.noGimbal;
  server.calibrate = options.calibrate;
  server.panFrame = options.panFrame == "earth" ? link::PanFrame::Earth : link::PanFrame::Vehicle;
  for (gimbal::AxisParams* axis : {&server.controller.pan, &server.controller.tilt}) {
    axis->max_rate_dps = options.maxRate;
    axis->max_accel_dps2 = options.maxAccel;
    axis->delay_s = options.orderDelay_s;
    axis->lag_s = options.motorLag_s;
  }
  server.controller.pan.gain = options.panGain;
  server.controller.tilt.gain = options.tiltGain;
  return server;
}

nlohmann::ordered_json toJson(const link::ServedFrame& served, double age_s) {
  nlohmann::ordered_json json = toJson(*served.record);
  json["age_ms"] = 1000.0 * age_s;
  if (served.angles) {
    json["gimbal"] = {{"pan_deg", gimbal::wrapped(served.angles->pan)}, {"tilt_deg", served.angles->tilt}};
  }
  json["gimbal_state"] = served.gimbalState;
  if (served.stale_s) json["angles_stale_ms"] = 1000.0 * *served.stale_s;
  if (served.ground) {
    const gimbal::GroundPoint& ground = *served.ground;
    json["ground"] = {{"lat_deg", ground.lat_deg},
                      {"lon_deg", ground.lon_deg},
                      {"alt_m", ground.alt_m},
                      {"distance_m", ground.distance_m},
                      {"major_m", ground.error.major_m},
                      {"minor_m", ground.error.minor_m},
                      {"azimuth_deg", ground.error.azimuth_deg}};
  }
  return json;
}

void checkFiles(const ServeOptions& options) {
  FilePlan plan;
  plan.readsSource("the source", options.source);
  plan.reads("--config", options.config.file);
  plan.reads("--plugin", options.plugin);
  plan.writes("--records", options.records);
  plan.check();
}

int serve(ServeOptions options) {
  checkFiles(options);
  PluginLibrary library(options.plugin);
  NewestFrame source(options);
  std::optional<TextOutput> records;
  if (!options.records.empty()) records.emplace(options.records, "--records");
  LiveFrame frame;
  if (!source.next(frame)) {
    if (interruptSignal() != 0) return 128 + interruptSignal();
    throw HostError(ExitCode::Source, "'" + options.source + "' has no frame");
  }
  if (options.vfov <= 0) options.vfov = options.hfov * frame.bgr.rows / frame.bgr.cols;
  link::TrackingServer server(serverOptions(options), library);
  const double begin_s = link::TrackingServer::monotonic();
  long frames = 0;
  do {
    const link::ServedFrame served = server.frame(frame.bgr, frame.captured_s);
    ++frames;
    const double now_s = link::TrackingServer::monotonic();
    if (records && served.record) records->writeLine(toJson(served, now_s - frame.captured_s).dump());
    if (options.seconds > 0 && now_s - begin_s >= options.seconds) break;
  } while (source.next(frame));
  if (!options.quiet) {
    std::fprintf(stderr, "csrt-track: served %ld frames, %ld were passed over\n", frames, source.dropped());
    if (!server.problem().empty()) std::fprintf(stderr, "csrt-track: %s\n", server.problem().c_str());
  }
  return interruptSignal() != 0 ? 128 + interruptSignal() : static_cast<int>(ExitCode::Done);
}

void addGimbalOptions(CLI::App& command, ServeOptions& options) {
  command.add_flag("--no-gimbal", options.noGimbal, "Track only; never turn a gimbal");
  command.add_flag("--calibrate", options.calibrate,
                   "Try the gimbal with small motions for 10 s first; it is not turned when it does not fit");
  command.add_option("--pan-frame", options.panFrame, "What pan counts from: vehicle (its nose) or earth (north)")
      ->check(CLI::IsMember({"vehicle", "earth"}))
      ->capture_default_str();
  command.add_option("--max-rate", options.maxRate, "Fastest the gimbal is turned, degrees per second")
      ->check(CLI::Range(0.1, 1000.0))
      ->capture_default_str();
  command.add_option("--max-accel", options.maxAccel, "What its motors can, degrees per second and second")
      ->check(CLI::Range(1.0, 100000.0))
      ->capture_default_str();
  command.add_option("--order-delay", options.orderDelay_s, "From an order until the gimbal hears it, seconds")
      ->check(CLI::Range(0.0, 2.0))
      ->capture_default_str();
  command.add_option("--motor-lag", options.motorLag_s, "Time constant of its motors, seconds")
      ->check(CLI::Range(0.0, 2.0))
      ->capture_default_str();
  command.add_option("--pan-gain", options.panGain, "Rate that comes for a rate ordered; negative: the other way")
      ->check(CLI::Range(-10.0, 10.0))
      ->capture_default_str();
  command.add_option("--tilt-gain", options.tiltGain, "The same for tilt")
      ->check(CLI::Range(-10.0, 10.0))
      ->capture_default_str();
}

}  // namespace

void addServeCommand(CLI::App& app, int& status) {
  const auto options = std::make_shared<ServeOptions>();
  CLI::App& command = *app.add_subcommand("serve", "Be a tracking camera for a ground station (MAVLink)");
  command
      .add_option("source", options->source,
                  "A camera's number, a video file (played at its rate), uncompressed video through a named pipe or - "
                  "(YUV4MPEG2)")
      ->required()
      ->type_name("SOURCE");
  command
      .add_option("--mavlink", options->lines,
                  "Line to speak over: udp:[HOST:]PORT, udp-listen:[ADDRESS:]PORT[,PEER], tcp:HOST:PORT, "
                  "tcp-listen:[ADDRESS:]PORT[,PEER], serial:DEVICE[:BAUD]; may be repeated")
      ->required()
      ->take_all()
      ->allow_extra_args(false)
      ->type_name("LINE");
  command.add_option("--system", options->system, "MAVLink number of the vehicle the camera is on")
      ->check(CLI::Range(1, 255))
      ->capture_default_str();
  command.add_option("--stream-uri", options->streamUri, "Where the ground station finds the video")->type_name("URI");
  command.add_option("--hfov", options->hfov, "Horizontal field of view, degrees")
      ->check(CLI::Range(1.0, 180.0))
      ->capture_default_str();
  command.add_option("--vfov", options->vfov, "Vertical field of view, degrees; default: square pixels")
      ->check(CLI::Range(1.0, 180.0));
  command.add_option("--video-delay", options->videoDelay_s, "From a frame's capture until it arrives here, seconds")
      ->check(CLI::Range(0.0, 5.0))
      ->capture_default_str();
  addGimbalOptions(command, *options);
  command.add_flag("--ground", options->ground, "Say where the target is on the ground, from the vehicle's position");
  command.add_option("--records", options->records, "One JSON line per frame with a target; -: standard output")
      ->type_name("FILE");
  command.add_option("--seconds", options->seconds, "End after so long; 0: with the source")
      ->check(CLI::Range(0.0, 1e6));
  command.add_option("--preset", options->config.preset, "A shipped configuration")->type_name("NAME");
  command.add_option("--config", options->config.file, "Configuration file (JSON), over it")->type_name("FILE");
  command.add_option("--set", options->config.sets, "One configuration value, over both; may be repeated")
      ->type_name("GROUP.KEY=VALUE")
      ->take_all()
      ->allow_extra_args(false);
  command.add_option("--plugin", options->plugin, "The plug-in library; default: beside this program")
      ->type_name("PATH");
  command.add_flag("--quiet", options->quiet, "No closing line");
  command.footer(
      helpFooter({"serve 0 --mavlink udp:14550", "serve street.mp4 --mavlink udp:192.168.1.20:14550 --no-gimbal",
                  "serve - --mavlink serial:/dev/ttyACM0:115200 --calibrate < pipe"},
                 {{2, "a line, an option or a value cannot be used"},
                  {3, "the source or a line cannot be opened, or the source has no frame"},
                  {4, "the plug-in cannot be loaded"},
                  {6, "an output could not be written to its end"},
                  {130, "interrupted (143: terminated)"}}));
  command.callback([options, &status] { status = serve(*options); });
}

}  // namespace host
