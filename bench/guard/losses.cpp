// guard_comparison losses: 26 losses made from footage, how soon each is over and what is claimed meanwhile.
#include <algorithm>
#include <cstdio>
#include <nlohmann/json.hpp>
#include <optional>

#include "base/host_error.h"
#include "base/text_output.h"
#include "made_losses.h"
#include "options.h"

namespace bench {
namespace {

using Json = nlohmann::ordered_json;

/// One column pair of the table.
struct Contestant {
  const Engine* engine = nullptr;
  std::string preset, guard;
  host::GuardChoice choice;
  std::vector<LossOutcome> outcomes;  ///< One per loss.

  std::string name() const { return engine->name + ", " + presetWord(preset) + ", " + guard; }
};

LossOutcome outcomeOf(const MadeLoss& loss, const Contestant& who, host::PluginLibrary& library, AnswerCache& cache) {
  const Base base{&library, who.preset, loss.footage->scene() + "," + loss.target + "," + loss.what,
                  [&loss](long i) { return loss.frame(i); }, &cache};
  Watched watched(base, who.choice);
  return suffer(loss, {[&](const auto& frame, const cv::Rect& box) { watched.start(frame, box); },
                       [&](const auto& frame) { return watched.step(frame); }});
}

struct Totals {
  long losses = 0, found = 0, falseBoxes = 0, hidden = 0;
  double falseShare() const { return static_cast<double>(falseBoxes) / static_cast<double>(std::max(1L, hidden)); }
};

Totals totalsOf(const Contestant& who, const std::vector<MadeLoss>& losses) {
  Totals totals;
  for (std::size_t i = 0; i < losses.size(); ++i) {
    ++totals.losses;
    totals.found += who.outcomes[i].delay >= 0;
    totals.falseBoxes += who.outcomes[i].falseBoxes;
    totals.hidden += losses[i].hidden;
  }
  return totals;
}

void printTable(const std::vector<MadeLoss>& losses, const std::vector<Contestant>& contestants) {
  std::printf("| target | loss |");
  for (const Contestant& who : contestants) std::printf(" %s: found after | boxes while hidden |", who.name().c_str());
  std::printf("\n|---|---|");
  for (std::size_t i = 0; i < contestants.size(); ++i) std::printf("---:|---:|");
  for (std::size_t i = 0; i < losses.size(); ++i) {
    std::printf("\n| %s | %s |", losses[i].target.c_str(), losses[i].what.c_str());
    for (const Contestant& who : contestants) {
      const LossOutcome& o = who.outcomes[i];
      std::printf(" %s | %d |", o.delay < 0 ? "never" : std::to_string(o.delay).c_str(), o.falseBoxes);
    }
  }
  std::printf("\n| all | %zu |", losses.size());
  for (const Contestant& who : contestants) {
    const Totals totals = totalsOf(who, losses);
    std::printf(" %ld found | %.3f of the frames |", totals.found, totals.falseShare());
  }
  std::printf("\n");
}

Json jsonOf(const std::vector<MadeLoss>& losses, const std::vector<Contestant>& contestants) {
  Json all = Json::array();
  for (const Contestant& who : contestants) {
    const Totals totals = totalsOf(who, losses);
    Json one = {{"engine", who.engine->name}, {"preset", presetWord(who.preset)},
                {"guard", who.guard},         {"losses", totals.losses},
                {"found", totals.found},      {"seen_while_hidden", totals.falseShare()},
                {"each", Json::array()}};
    for (std::size_t i = 0; i < losses.size(); ++i) {
      const LossOutcome& o = who.outcomes[i];
      one["each"].push_back({{"target", losses[i].target},
                             {"loss", losses[i].what},
                             {"found_after", o.delay < 0 ? Json() : Json(o.delay)},
                             {"hidden", losses[i].hidden},
                             {"boxes_while_hidden", o.falseBoxes}});
    }
    all.push_back(std::move(one));
  }
  return {{"losses", all}};
}

}  // namespace

void compareLosses(const GuardOptions& options, AnswerCache& cache) {
  std::optional<host::WholeText> json;
  if (!options.json.empty()) json.emplace(options.json, "--json");
  const Footage clip(options.clip, options.footage);
  const std::vector<host::TruthTarget> targets = targetsOf(options, clip);
  const LossScenes scenes(clip, targets, options.second, options.secondTruth);
  const std::vector<Engine> engines = enginesOf(options);
  std::vector<Contestant> contestants;
  const std::size_t count = scenes.all().size();
  for (const Engine& engine : engines) {
    const std::size_t before = contestants.size();
    for (const std::string& preset : options.presets) {
      for (const std::string& guard : options.guards) {
        contestants.push_back({&engine, preset, guard, options.choices.at(guard), std::vector<LossOutcome>(count)});
      }
    }
    host::PluginLibrary library(engine.path);
    inThreads(options.threads, count * (contestants.size() - before), [&](std::size_t i) {
      Contestant& who = contestants[before + i / count];
      who.outcomes[i % count] = outcomeOf(scenes.all()[i % count], who, library, cache);
    });
  }
  printTable(scenes.all(), contestants);
  if (json) json->write(jsonOf(scenes.all(), contestants).dump(1));
}

}  // namespace bench
