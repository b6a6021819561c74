// csrt-track grid: a frame of a source with labelled lines, to read a box or a point off without a window.
#include <CLI/CLI.hpp>
#include <cstdio>
#include <filesystem>
#include <memory>
#include <string>

#include "base/host_error.h"
#include "base/pending_file.h"
#include "commands/commands.h"
#include "commands/help_footer.h"
#include "commands/live_options.h"
#include "input/file_plan.h"
#include "picture/grid.h"
#include "picture/picture_output.h"

namespace host {
namespace {

struct GridOptions {
  SourceOptions source;
  LiveTrackOptions live;
  std::string picture = "grid.png";
};

int writeGrid(const GridOptions& options) {
  if (options.source.source.empty() == options.source.pipeline.empty()) {
    throw HostError(ExitCode::Usage, "one source is needed: SOURCE, or --gstreamer PIPELINE");
  }
  checkPictureName(options.picture, "--out");
  FilePlan plan;
  plan.readsSource("the source", options.source.source);
  plan.writes("--out", options.picture);
  plan.check();
  PendingFile file(options.picture, "--out");
  std::unique_ptr<FrameSource> source;
  if (isLive(options.source)) {
    source = openLiveSource(options.source, options.live, "", true);
  } else {
    source = openFrameSource(options.source);
  }
  SourceFrame frame;
  if (!source->read(frame)) throw HostError(ExitCode::Source, "'" + options.source.source + "' has no frame");
  writePicture(file, drawGrid(frame.bgr));
  std::printf("%s: %d x %d pixels\n", std::filesystem::absolute(options.picture).lexically_normal().c_str(),
              frame.bgr.cols, frame.bgr.rows);
  return static_cast<int>(ExitCode::Done);
}

}  // namespace

void addGridCommand(CLI::App& app, int& status) {
  const auto options = std::make_shared<GridOptions>();
  CLI::App& command =
      *app.add_subcommand("grid", "Write a frame with labelled lines, to read a box or a point off without a window");
  command.add_option("source", options->source.source, "As for 'track': a video, pictures, a camera, a live address")
      ->type_name("SOURCE");
  addReceiveOptions(command, options->source, options->live);
  command.add_option("--start", options->source.start, "The frame, counted from 0")->type_name("N");
  command.add_option("--out", options->picture, "The picture to write")->type_name("FILE")->capture_default_str();
  command.footer(helpFooter({"grid street.mp4 --out grid.png", "grid rtsp://127.0.0.1:8554/test",
                             "track street.mp4 --point 40%,55% --video out.mp4"},
                            {{3, "the source cannot be opened or has no frame"}}));
  command.callback([options, &status] { status = writeGrid(*options); });
}

}  // namespace host
