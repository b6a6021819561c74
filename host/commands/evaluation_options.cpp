#include "commands/evaluation_options.h"

#include <CLI/CLI.hpp>

#include "base/host_error.h"

namespace host {

void SequenceArguments::addTo(CLI::App& command) {
  command
      .add_option(
          "sequences", sources,
          "Folders with pictures and truth (OTB, VOT, GOT-10k), or videos and folders of pictures with a --truth each")
      ->required()
      ->type_name("SEQUENCE");
  command
      .add_option(
          "--truth", truths,
          "Truth of a sequence that brings none; for several, in their order. A row per frame with a box or polygon "
          "in pixels, or a table with the columns frame,id,x,y,w,h for several targets")
      ->type_name("FILE")
      ->take_all()
      ->allow_extra_args(false);
  command.add_option("--format", format, "Format of the truth: auto, otb, got10k, vot or csv")
      ->type_name("FORMAT")
      ->capture_default_str();
  command
      .add_option("--first-number", firstNumber,
                  "The number that a table of several targets gives to the first frame of its clip")
      ->type_name("N")
      ->capture_default_str();
  command.add_option("--targets", only, "Use only these targets; comma-separated")->type_name("NAME")->delimiter(',');
  command.add_option("--fps", fps, "Frames per second; default: what the source says, 25 for pictures")
      ->type_name("RATE");
}

SequenceOptions SequenceArguments::read() const {
  SequenceOptions options;
  options.sources = sources;
  options.truths = truths;
  options.only = only;
  options.truth.format = truthFormatOf(format);
  options.truth.firstNumber = firstNumber;
  if (!(fps >= 0) || fps > 1e6)
    throw HostError(ExitCode::Usage, "--fps " + std::to_string(fps) + " is not a frame rate");
  options.fps = fps;
  return options;
}

void addConfigOptions(CLI::App& command, ConfigOptions& config) {
  command.add_option("--preset", config.preset, "A configuration that comes with the program; see 'config preset'")
      ->type_name("NAME");
  command.add_option("--config", config.file, "Configuration file (JSON), over the preset")->type_name("FILE");
  command.add_option("--set", config.sets, "One configuration value, over preset and file; may be repeated")
      ->type_name("GROUP.KEY=VALUE")
      ->take_all()
      ->allow_extra_args(false);
}

}  // namespace host
