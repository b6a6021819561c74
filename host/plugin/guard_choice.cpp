#include "plugin/guard_choice.h"

#include <cstdio>
#include <filesystem>

#include "base/captured_stderr.h"
#include "base/host_error.h"
#include "plugin/guard_model.h"
#include "plugin/guard_network.h"

namespace host {
namespace {

GuardKind kindOf(const std::string& word) {
  for (const GuardKind kind : {GuardKind::Off, GuardKind::Colour, GuardKind::Network}) {
    if (word == name(kind)) return kind;
  }
  throw HostError(ExitCode::Usage, "--guard '" + word + "' is neither off, colour nor network");
}

/// @throws HostError (Usage) when it is no network that the guard can ask
void tryNetwork(const std::string& file) {
  if (std::filesystem::path(file).extension() != ".onnx") {
    throw HostError(ExitCode::Usage,
                    "--guard-model '" + file + "' must have a name that ends in .onnx: OpenCV goes by it");
  }
  std::string fault;
  const CapturedStderr captured;  // OpenCV says at length what we say in one sentence
  if (readNetwork(file, fault) == nullptr) {
    throw HostError(ExitCode::Usage,
                    "--guard-model '" + file + "' is no tracker network that OpenCV can run (" + fault + ")");
  }
}

/// The network, as long as its file is the one that the sum was taken of. @param fault  why there is none
std::unique_ptr<csrt_guard::SecondOpinion> sameNetwork(const GuardChoice& choice, std::string& fault) {
  const std::string option = "--guard-model '" + choice.model + "'";
  try {
    if (readGuardModel(choice.model).sha256 != choice.sha256) {
      fault = option + " is another file by now";
      return nullptr;
    }
  } catch (const HostError& e) {
    fault = e.what();
    return nullptr;
  }
  std::string why;
  std::unique_ptr<csrt_guard::SecondOpinion> network = readNetwork(choice.model, why);
  if (network == nullptr) fault = option + " can no longer be read (" + why + ")";
  return network;
}

}  // namespace

const char* name(GuardKind kind) {
  switch (kind) {
    case GuardKind::Colour:
      return "colour";
    case GuardKind::Network:
      return "network";
    case GuardKind::Off:
      break;
  }
  return "off";
}

GuardChoice guardChoiceOf(const GuardOptions& options) {
  GuardChoice choice;
  choice.kind = kindOf(options.which);
  if (choice.kind != GuardKind::Network) {
    if (!options.model.empty()) throw HostError(ExitCode::Usage, "--guard-model is of use with --guard network only");
    return choice;
  }
  if (const std::string missing = whyNoNetworkGuard(); !missing.empty()) {
    throw HostError(ExitCode::Usage, "--guard network: " + missing);
  }
  if (options.model.empty()) {
    throw HostError(ExitCode::Usage, "--guard network needs --guard-model FILE, ViTTrack's ONNX file");
  }
  const GuardModel model = readGuardModel(options.model);
  tryNetwork(options.model);
  choice.model = options.model;
  choice.sha256 = model.sha256;
  choice.note = model.note;
  return choice;
}

std::optional<csrt_guard::Guard> makeGuard(const GuardChoice& choice, std::string* asked) {
  if (asked != nullptr) asked->clear();
  if (choice.kind == GuardKind::Off) return std::nullopt;
  csrt_guard::Guard guard;
  if (choice.kind == GuardKind::Colour) return guard;
  std::string fault;
  std::unique_ptr<csrt_guard::SecondOpinion> network = sameNetwork(choice, fault);
  if (network == nullptr) {
    std::fprintf(stderr, "csrt-track: %s: the guard goes by colour alone\n", fault.c_str());
  } else if (asked != nullptr) {
    *asked = choice.sha256;
  }
  guard.consult(std::move(network));
  return guard;
}

}  // namespace host
