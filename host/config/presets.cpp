#include "config/presets.h"

#include "base/embedded.h"
#include "base/host_error.h"

namespace host {

std::vector<std::string> presetNames() {
  std::vector<std::string> names;
  for (const EmbeddedText* preset = kPresets; preset->name != nullptr; ++preset) names.emplace_back(preset->name);
  return names;
}

std::string presetText(const std::string& name) {
  std::string all;
  for (const EmbeddedText* preset = kPresets; preset->name != nullptr; ++preset) {
    if (name == preset->name) return preset->text;
    all += (all.empty() ? "" : ", ") + std::string(preset->name);
  }
  throw HostError(ExitCode::Usage, "there is no preset '" + name + "'; there are: " + all);
}

}  // namespace host
