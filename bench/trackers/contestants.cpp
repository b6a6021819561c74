#include "contestants.h"

#include <algorithm>
#include <opencv2/tracking.hpp>

#include "base/host_error.h"
#include "config/presets.h"
#include "csrt_engine/csrt_engine.h"
#include "dlib_follower.h"
#include "plugin/guard_choice.h"
#include "vit_follower.h"

namespace bench {
namespace {

using Followers = std::unique_ptr<host::Follower>;

/// A contestant that is no plug-in.
Contestant bare(const std::string& name, const std::string& words, std::function<Followers()> make) {
  return {name, words, "", [make = std::move(make)](host::PluginLibrary*) { return make(); }};
}

/// The plug-in with its defaults and every preset, under one guard.
void addPlugins(std::vector<Contestant>& all, const ContestantOptions& options, const std::string& engine,
                const std::string& guard) {
  const host::GuardChoice choice = host::guardChoiceOf({guard, guard == "network" ? options.model : ""});
  const auto add = [&](const std::string& name, const std::string& words, const std::string& config) {
    const std::string at = options.engines.size() > 1 ? "@" + engine : "";
    const std::string by = options.engines.size() > 1 ? ", engine " + engine : "";
    const std::string beside = guard == "off" ? "" : "/" + guard;
    const std::string with = guard == "off" ? "" : ", guard " + guard;
    all.push_back(
        {name + beside + at, "plug-in, " + words + with + by, engine, [config, choice](host::PluginLibrary* library) {
           return host::makePluginFollower(*library, config, true, choice);
         }});
  };
  add("plugin", "defaults", "");
  for (const std::string& preset : host::presetNames()) add(preset, "`" + preset + "`", host::presetText(preset));
}

void addBareTrackers(std::vector<Contestant>& all) {
  static const std::string kDefaults;
  all.push_back(bare("csrt-plugin", "bare CSRT, the plug-in's parameters",
                     [] { return host::makeReferenceFollower(&kDefaults); }));
  all.push_back(bare("csrt", "bare CSRT, OpenCV's parameters", [] { return host::makeReferenceFollower(nullptr); }));
  all.push_back(bare("engine-plugin", "bare engine, the plug-in's parameters",
                     [] { return host::makeReferenceFollower(&kDefaults, csrt_engine::create); }));
  all.push_back(bare("engine", "bare engine, OpenCV's parameters",
                     [] { return host::makeReferenceFollower(nullptr, csrt_engine::create); }));
  all.push_back(
      bare("kcf", "cv::TrackerKCF", [] { return host::makeTrackerFollower(cv::tracking::TrackerKCF::create()); }));
  all.push_back(bare("mil", "cv::TrackerMIL", [] { return host::makeTrackerFollower(cv::TrackerMIL::create()); }));
  if (makeDlibFollower() != nullptr) all.push_back(bare("dlib", "dlib::correlation_tracker", makeDlibFollower));
}

void addNetwork(std::vector<Contestant>& all, const std::string& model) {
  if (model.empty()) return;
  if (!canRunVit()) {
    throw host::HostError(host::ExitCode::Usage, "--guard-model needs OpenCV 4.9 or later; this is " CV_VERSION);
  }
  all.push_back(bare("network", "cv::TrackerVit", [model] { return makeVitFollower(model); }));
}

}  // namespace

std::vector<Contestant> contestantsOf(const ContestantOptions& options) {
  std::vector<Contestant> all;
  for (const std::string& engine : options.engines) {
    for (const std::string& guard : options.guards) addPlugins(all, options, engine, guard);
  }
  addBareTrackers(all);
  addNetwork(all, options.model);
  if (options.names.empty()) return all;
  std::vector<Contestant> chosen;
  for (const std::string& name : options.names) {
    const auto found = std::find_if(all.begin(), all.end(), [&name](const Contestant& c) { return c.name == name; });
    if (found == all.end()) throw host::HostError(host::ExitCode::Usage, "there is no contestant '" + name + "'");
    chosen.push_back(*found);
  }
  return chosen;
}

}  // namespace bench
