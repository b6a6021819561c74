// csrt-track draw-scene: writes a small drawn video, for a first look where no clip is at hand.
#include <fmt/format.h>

#include <CLI/CLI.hpp>
#include <memory>
#include <string>

#include "base/host_error.h"
#include "base/interrupt.h"
#include "commands/commands.h"
#include "commands/help_footer.h"
#include "picture/street_scene.h"

namespace host {
namespace {

constexpr double kFps = 25.0;
const cv::Size kSize(640, 360);

struct DrawOptions {
  std::string path;
  int frames = 200;
  int sign = 0;
};

void checkRange(const char* option, int value, int least, int most) {
  if (value >= least && value <= most) return;
  throw HostError(ExitCode::Usage, fmt::format("{} {} is not between {} and {}", option, value, least, most));
}

int draw(const DrawOptions& options) {
  checkRange("--frames", options.frames, 1, 100000);
  checkRange("--sign", options.sign, 0, kSize.width / 3);
  writeStreetScene(options.path, kSize, options.frames, kFps, options.sign);
  return interruptSignal() != 0 ? 128 + interruptSignal() : static_cast<int>(ExitCode::Done);
}

}  // namespace

void addDrawSceneCommand(CLI::App& app, int& status) {
  const auto options = std::make_shared<DrawOptions>();
  CLI::App& command = *app.add_subcommand(
      "draw-scene", "Write a small drawn video to try things on; its figure starts in 116,165,32,60");
  command.add_option("file", options->path, "The video to write, such as scene.avi")->required()->type_name("FILE");
  command.add_option("--frames", options->frames, "Length, frames")->type_name("N")->capture_default_str();
  command.add_option("--sign", options->sign, "The figure passes behind a sign so wide, pixels; 0: behind a lamp post")
      ->type_name("N")
      ->capture_default_str();
  command.footer(helpFooter({"draw-scene scene.avi", "track scene.avi --box 116,165,32,60 --video out.mp4",
                             "draw-scene lost.avi --sign 90", "track lost.avi --box 116,165,32,60 --guard colour"},
                            {{6, "the video could not be written to its end"}, {130, kInterrupted}}));
  command.callback([options, &status] { status = draw(*options); });
}

}  // namespace host
