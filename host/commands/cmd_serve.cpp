// csrt-track serve: a camera that a ground station can track with, over MAVLink, or a person in a browser.
#include <CLI/CLI.hpp>
#include <chrono>
#include <cstdio>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "base/host_error.h"
#include "base/interrupt.h"
#include "base/json_text.h"
#include "base/masked_address.h"
#include "base/text_file.h"
#include "base/text_output.h"
#include "commands/commands.h"
#include "commands/help_footer.h"
#include "commands/live_options.h"
#include "commands/plugin_choice.h"
#include "commands/run_options.h"
#include "commands/serve_source.h"
#include "config/config_text.h"
#include "input/file_plan.h"
#include "link/mavlink_front.h"
#include "plugin/plugin_library.h"
#include "run/control_front.h"
#include "run/serve_run.h"
#include "web/web_server.h"

namespace host {
namespace {

struct ServeOptions {
  SourceOptions source;
  LiveTrackOptions live;
  std::vector<std::string> lines;
  std::string http;
  std::string httpTokenFile;
  std::vector<std::string> httpNames;
  std::string httpSave;
  ConfigOptions config;
  PluginChoice plugin;
  std::string metadata;
  std::string records;
  std::string pace = "source";
  GuardOptions guard;
  std::string panFrame = "vehicle";
  std::string streamUri;
  std::string clock = "machine";
  int threads = 1;
  int system = 1;
  double hfov = 60.0;
  double vfov = 0.0;
  double videoDelay_s = 0.0;
  double shownDelay_s = 0.0;
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
  bool debug = false;
  bool quiet = false;
};

/// One line per call.
class ServedRecords : public RunObserver {
 public:
  explicit ServedRecords(const std::string& path) : output_(path, "--records") {}
  void frame(const SourceFrame& /*frame*/, const std::vector<CallRecord>& records) override { write_(records); }
  void noSignal(const std::vector<CallRecord>& records) override { write_(records); }
  void restarted(const CallRecord& record) override { write_({record}); }

 private:
  void write_(const std::vector<CallRecord>& records) {
    for (const CallRecord& record : records) output_.writeLine(jsonText(toJson(record)));
  }
  TextOutput output_;
};

/// True from then on; 0 seconds: never.
std::function<bool()> endAfter(double seconds) {
  const auto begin = std::chrono::steady_clock::now();
  return [begin, seconds] {
    const double passed = std::chrono::duration<double>(std::chrono::steady_clock::now() - begin).count();
    return interruptSignal() != 0 || (seconds > 0 && passed >= seconds);
  };
}

link::MavlinkOptions mavlinkOptions(const ServeOptions& options) {
  link::MavlinkOptions server;
  server.lines = options.lines;
  server.camera.system = static_cast<std::uint8_t>(options.system);
  server.camera.hfov_deg = options.hfov;
  server.camera.vfov_deg = options.vfov;
  server.camera.streamUri = options.streamUri;
  server.camera.knowsGround = options.ground;
  server.gimbal = !options.noGimbal;
  server.calibrate = options.calibrate;
  server.shownDelay_s = options.shownDelay_s;
  server.clockFromLink = options.clock == "link";
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

void checkOptions(const ServeOptions& options) {
  if (options.source.source.empty() == options.source.pipeline.empty()) {
    throw HostError(ExitCode::Usage, "one source is needed: SOURCE, or --gstreamer PIPELINE");
  }
  if (options.lines.empty() && options.live.control.empty() && options.http.empty()) {
    throw HostError(ExitCode::Usage, "who is to be served? Give --http ADDRESS:PORT, --mavlink LINE or --control PATH");
  }
}

/// The page of a run: what it knows, its front, its server.
struct ServedPage {
  ServedPage(const ServeOptions& options, const web::WebOptions& where, const std::string& configText,
             const std::string& schema)
      : parts(configText, options.config.preset, schema, options.httpSave, paceOf(options.pace)),
        front(parts),
        server(where, parts) {
    if (!options.quiet) std::fprintf(stderr, "csrt-track: open %s\n", server.url().c_str());
  }
  web::WebParts parts;
  web::WebFront front;
  web::WebServer server;
};

web::WebOptions webOptions(const ServeOptions& options) {
  web::WebOptions where;
  where.address = web::listenAddressOf(options.http);
  where.names = options.httpNames;
  bool made = false;
  if (!options.httpTokenFile.empty()) where.token = web::tokenOfFile(options.httpTokenFile, made);
  if (made) std::fprintf(stderr, "csrt-track: the token is in '%s'\n", options.httpTokenFile.c_str());
  return where;
}

void checkFiles(const ServeOptions& options) {
  FilePlan plan;
  plan.readsSource("the source", options.source.source);
  plan.reads("--config", options.config.file);
  plan.reads("--metadata", options.metadata);
  plan.reads("--plugin", pathOf(options.plugin));
  plan.reads("--guard-model", options.guard.model);
  plan.writes("--records", options.records);
  plan.check();
}

ServeRun runOf(const ServeOptions& options) {
  ServeRun run;
  run.sourceName =
      withPasswordsMasked(options.source.pipeline.empty() ? options.source.source : options.source.pipeline);
  run.configText = buildConfigText(options.config);
  if (!options.metadata.empty() && !isLive(options.source)) run.metadata = readMetadataFile(options.metadata);
  run.pace = paceOf(options.pace);
  run.guard = chosenGuard(options.guard, options.quiet);
  run.threads = options.threads;
  run.logToStderr = options.debug || asksForDebug(run.configText);
  run.videoDelay_s = options.videoDelay_s;
  return run;
}

int serve(ServeOptions options) {
  checkOptions(options);
  checkFiles(options);
  if (!options.config.file.empty()) options.config.fileText = readTextFile(options.config.file);
  const ServeRun run = runOf(options);
  PluginLibrary library(pathOf(options.plugin));
  checkSets(options.config.sets, library.create()->getConfigList());
  std::optional<ServedRecords> records;
  if (!options.records.empty()) records.emplace(options.records);
  ServedSource source = openServedSource(options.source, options.live, run.pace, options.metadata, options.quiet,
                                         endAfter(options.seconds));
  std::vector<Front*> fronts;
  std::optional<link::MavlinkFront> mavlink;
  if (!options.lines.empty()) fronts.push_back(&mavlink.emplace(mavlinkOptions(options)));
  std::optional<ControlFront> control;
  if (!options.live.control.empty()) fronts.push_back(&control.emplace(options.live.control, source.past.kept));
  std::optional<ServedPage> page;
  if (!options.http.empty()) {
    fronts.push_back(
        &page.emplace(options, webOptions(options), run.configText, library.create()->getConfigList()).front);
  }
  std::vector<RunObserver*> observers;
  if (records) observers.push_back(&*records);
  const ServeResult result = runServe(*source.frames, source.past, library, run, observers, fronts);
  if (!options.quiet) {
    std::fprintf(stderr, "csrt-track: served %ld frames, %ld were passed over\n", result.frames, result.dropped);
    if (mavlink && !mavlink->problem().empty()) std::fprintf(stderr, "csrt-track: %s\n", mavlink->problem().c_str());
    if (mavlink && !mavlink->delaySentence().empty()) {
      std::fprintf(stderr, "csrt-track: %s\n", mavlink->delaySentence().c_str());
    }
    for (const std::string& fault : result.sourceFaults)
      std::fprintf(stderr, "csrt-track: source: %s\n", fault.c_str());
  }
  return result.interrupted ? 128 + interruptSignal() : static_cast<int>(ExitCode::Done);
}

void addSourceOptions(CLI::App& command, ServeOptions& options) {
  command
      .add_option("source", options.source.source,
                  "Whatever 'track' takes: rtsp://, udp://, rtp://, http://, FILE.sdp, /dev/video0, a camera number, - "
                  "for standard input; or a recorded video or pictures, played at their rate; also uncompressed video "
                  "through a named pipe (YUV4MPEG2)")
      ->type_name("SOURCE");
  command.add_option("--start", options.source.start, "First frame to use, counted from 0")->type_name("N");
  command.add_option("--frames", options.source.frames, "Use at most so many frames")->type_name("N");
  command.add_option("--fps", options.source.fps, "Frames per second, instead of the time stamps of the source")
      ->type_name("RATE");
  addLiveOptions(command, options.source, options.live);
  command
      .add_option("--metadata", options.metadata,
                  "What the camera said per frame, or, of a live source, a growing file of it by time")
      ->type_name("FILE");
  addPaceOption(command, options.pace);
  command.add_option("--video-delay", options.videoDelay_s, "From a frame's capture until it arrives here, seconds")
      ->check(CLI::Range(0.0, 5.0))
      ->capture_default_str();
}

void addTrackerOptions(CLI::App& command, ServeOptions& options) {
  addConfigOptions(command, options.config);
  addGuardOptions(command, options.guard);
  addPluginOptions(command, options.plugin);
  addThreadsOption(command, options.threads);
}

void addHttpOptions(CLI::App& command, ServeOptions& options) {
  command
      .add_option("--http", options.http,
                  "Serve a page to watch and pick on, such as 127.0.0.1:8080; beyond this machine a token is needed")
      ->type_name("ADDRESS:PORT");
  command
      .add_option("--http-token-file", options.httpTokenFile,
                  "The token that everybody must give, in the file's first line; a missing file is made with a new one")
      ->type_name("FILE");
  command
      .add_option("--http-name", options.httpNames,
                  "Host name under which the page is reached too, such as a reverse proxy's; may be repeated")
      ->take_all()
      ->allow_extra_args(false)
      ->type_name("NAME");
  command.add_option("--http-save", options.httpSave, "Folder for runs that are saved from the page, for 'replay'")
      ->type_name("FOLDER");
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
  CLI::App& command =
      *app.add_subcommand("serve", "Be a tracking camera for a ground station (MAVLink), or steered from a browser");
  addSourceOptions(command, *options);
  command
      .add_option("--mavlink", options->lines,
                  "Line to speak over: udp:[HOST:]PORT, udp-listen:[ADDRESS:]PORT[,PEER], tcp:HOST:PORT, "
                  "tcp-listen:[ADDRESS:]PORT[,PEER], serial:DEVICE[:BAUD]; may be repeated")
      ->take_all()
      ->allow_extra_args(false)
      ->type_name("LINE");
  addHttpOptions(command, *options);
  command.add_option("--system", options->system, "MAVLink number of the vehicle the camera is on")
      ->check(CLI::Range(1, 255))
      ->capture_default_str();
  command.add_option("--stream-uri", options->streamUri, "Where the ground station finds the video")->type_name("URI");
  command
      .add_option("--clock", options->clock,
                  "machine; or link: time stands still between TIMESYNC messages, for 'simulate --lock-step'")
      ->check(CLI::IsMember({"machine", "link"}))
      ->capture_default_str();
  command.add_option("--hfov", options->hfov, "Horizontal field of view, degrees")
      ->check(CLI::Range(1.0, 180.0))
      ->capture_default_str();
  command.add_option("--vfov", options->vfov, "Vertical field of view, degrees; default: square pixels")
      ->check(CLI::Range(1.0, 180.0));
  command
      .add_option("--shown-delay", options->shownDelay_s,
                  "How old the picture is at the ground station when somebody clicks into it, seconds, at most 1: the "
                  "target is taken from the picture of that time")
      ->check(CLI::Range(0.0, 1.0))
      ->capture_default_str();
  addGimbalOptions(command, *options);
  command.add_flag("--ground", options->ground, "Say where the target is on the ground, from the vehicle's position");
  command.add_option("--records", options->records, "One JSON line per frame with a target; -: standard output")
      ->type_name("FILE");
  command.add_option("--seconds", options->seconds, "End after so long; 0: with the source")
      ->check(CLI::Range(0.0, 1e6));
  addTrackerOptions(command, *options);
  command.add_flag("--debug", options->debug, "Show the plug-in's log lines on standard error");
  command.add_flag("--quiet", options->quiet, "No closing line");
  command.footer(helpFooter({"serve 0 --http 127.0.0.1:8080", "serve 0 --mavlink udp:14550",
                             "serve street.mp4 --mavlink udp:192.168.1.20:14550 --no-gimbal",
                             "serve rtsp://192.168.1.10/stream --mavlink serial:/dev/ttyACM0:115200 --calibrate"},
                            {{2, "a line, an option or a value cannot be used"},
                             {3, "the source or a line cannot be opened, or the source has no frame"},
                             {4, "the plug-in cannot be loaded"},
                             {6, "an output could not be written to its end"},
                             {130, "interrupted (143: terminated)"}}));
  command.callback([options, &status] { status = serve(*options); });
}

}  // namespace host
