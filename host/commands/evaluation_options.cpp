#include "commands/evaluation_options.h"

#include <CLI/CLI.hpp>
#include <filesystem>
#include <system_error>

#include "base/host_error.h"
#include "input/file_plan.h"

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
  addTruthFormatOptions(command, format, firstNumber);
  command.add_option("--targets", only, "Use only these targets; comma-separated")->type_name("NAME")->delimiter(',');
  command
      .add_option("--fps", fps, "Frames per second, instead of the time stamps of the source; default for pictures: 25")
      ->type_name("RATE");
}

void SequenceArguments::addTo(FilePlan& plan) const {
  namespace fs = std::filesystem;
  for (const std::string& source : sources) {
    plan.readsSource("the sequence", source);
    for (const char* pictures : {"img", "color", "imgs"}) {
      const std::string inner = (fs::path(source) / pictures).string();
      std::error_code ignored;
      if (fs::is_directory(inner, ignored)) plan.readsSource("a picture of the sequence '" + source + "':", inner);
    }
    for (const char* file : {"groundtruth_rect.txt", "groundtruth.txt", "absence.label"}) {
      const fs::path path = fs::path(source) / file;
      std::error_code ignored;
      if (fs::exists(path, ignored)) plan.reads("the truth", path.string());
    }
  }
  for (const std::string& truth : truths) plan.reads("--truth", truth);
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

void addTruthFormatOptions(CLI::App& command, std::string& format, long& firstNumber) {
  command.add_option("--format", format, "Format of the truth: auto, otb, got10k, vot, mot or csv")
      ->type_name("FORMAT")
      ->check(CLI::IsMember({"auto", "otb", "got10k", "vot", "mot", "csv"}))
      ->capture_default_str();
  command
      .add_option("--first-number", firstNumber,
                  "The number that a table of several targets gives to the first frame of its clip")
      ->type_name("N")
      ->capture_default_str();
}

}  // namespace host
