#include "evaluation/tuning.h"

#include <algorithm>
#include <cmath>
#include <cstddef>
#include <limits>
#include <map>
#include <optional>
#include <tuple>

namespace host {
namespace {

using Json = nlohmann::json;
// One candidate in so many is drawn from everywhere: seldom good, but the way out of a dead end.
constexpr int kRandomEvery = 6;

using TrialKey = std::tuple<long, int, int>;

std::map<TrialKey, Trial> byKey(const std::vector<Trial>& trials) {
  std::map<TrialKey, Trial> known;
  for (const Trial& trial : trials) known.emplace(TrialKey(trial.bracket, trial.candidate, trial.rung), trial);
  return known;
}

/// One search under way.
class Search {
 public:
  Search(const TuneSettings& settings, const SearchSpace& space, const TuneHooks& hooks,
         const std::vector<Trial>& known)
      : settings_(settings), space_(space), hooks_(hooks), known_(byKey(known)) {}

  std::vector<Trial> run() {
    for (long done = 0; settings_.brackets == 0 || done < settings_.brackets; ++done) {
      const long bracket = settings_.shard.index - 1 + done * settings_.shard.count;
      if (!runBracket_(bracket, done == 0)) break;
    }
    return trials_;
  }

 private:
  struct Candidate {
    int number = 0;
    Json config;
    double score = 0.0;
  };

  bool runBracket_(long bracket, bool isFirst) {
    std::vector<Candidate> candidates = candidatesOf_(bracket, isFirst);
    for (const Rung& rung : defaultRungs()) {
      if (!scoreAll_(bracket, rung, candidates)) return false;
      std::stable_sort(candidates.begin(), candidates.end(),
                       [](const Candidate& a, const Candidate& b) { return a.score > b.score; });
      const std::size_t keep = candidates.size() / static_cast<std::size_t>(std::max(2, settings_.keepOneOf));
      candidates.resize(std::max<std::size_t>(1, keep));
    }
    return true;
  }

  std::vector<Candidate> candidatesOf_(long bracket, bool isFirst) {
    SeededRandom random(settings_.seed * 1000003u + static_cast<std::uint64_t>(bracket));
    const Json base = settings_.starts.empty() ? Json::object() : settings_.starts.back();
    const Trial* const best = bestOf(trials_);
    const Json parent = best == nullptr ? base : best->config;
    std::vector<Candidate> all;
    for (int i = 0; i < settings_.candidates; ++i) {
      const bool isStart = isFirst && i < static_cast<int>(settings_.starts.size());
      const Json neighbour = neighbourOf(space_, parent, random);
      const Json anywhere = randomConfig(space_, base, random);
      all.push_back({i,
                     isStart                                ? settings_.starts[static_cast<std::size_t>(i)]
                     : i % kRandomEvery == kRandomEvery - 1 ? anywhere
                                                            : neighbour,
                     0.0});
    }
    return all;
  }

  /// False when the time was up before all were scored.
  bool scoreAll_(long bracket, const Rung& rung, std::vector<Candidate>& candidates) {
    std::vector<Candidate*> open;
    for (Candidate& candidate : candidates) {
      if (!recall_(bracket, rung, candidate)) open.push_back(&candidate);
    }
    for (std::size_t i = 0; i < open.size(); i += std::max<std::size_t>(1, hooks_.batch)) {
      const std::size_t end = std::min(open.size(), i + std::max<std::size_t>(1, hooks_.batch));
      if (!scoreBatch_(
              bracket, rung,
              {open.begin() + static_cast<std::ptrdiff_t>(i), open.begin() + static_cast<std::ptrdiff_t>(end)})) {
        return false;
      }
    }
    return true;
  }

  bool recall_(long bracket, const Rung& rung, Candidate& candidate) {
    const auto found = known_.find({bracket, candidate.number, rung.number});
    if (found == known_.end() || found->second.config != candidate.config) return false;
    candidate.score = found->second.score.score;
    trials_.push_back(found->second);
    return true;
  }

  bool scoreBatch_(long bracket, const Rung& rung, const std::vector<Candidate*>& batch) {
    if (hooks_.timeIsUp()) return false;
    std::vector<Json> configs;
    for (const Candidate* candidate : batch) configs.push_back(candidate->config);
    const std::vector<TrialScore> scores = hooks_.evaluate(configs, rung);
    if (scores.size() != batch.size()) return false;
    for (std::size_t i = 0; i < batch.size(); ++i) {
      batch[i]->score = scores[i].score;
      trials_.push_back({bracket, batch[i]->number, rung.number, batch[i]->config, scores[i]});
      hooks_.onTrial(trials_.back());
    }
    return true;
  }

  const TuneSettings& settings_;
  const SearchSpace& space_;
  const TuneHooks& hooks_;
  std::map<TrialKey, Trial> known_;
  std::vector<Trial> trials_;
};

/// A value as a number, so that halves can be made; on is 1.
std::optional<double> numberOf(const SearchKey& k, const Json& config) {
  if (!config.contains(k.group) || !config[k.group].contains(k.key)) return std::nullopt;
  const Json& value = config[k.group][k.key];
  if (value.is_boolean()) return value.get<bool>() ? 1.0 : 0.0;
  return value.is_number() ? std::optional<double>(value.get<double>()) : std::nullopt;
}

struct Mean {
  double mean = 0.0;
  double squaredError = 0.0;
};

Mean meanOf(const std::vector<double>& values) {
  const auto n = static_cast<double>(values.size());
  Mean m;
  for (const double v : values) m.mean += v / n;
  for (const double v : values) m.squaredError += (v - m.mean) * (v - m.mean) / (n * std::max(1.0, n - 1));
  return m;
}

/// The first rung's trials with their score less the mean of their bracket: later brackets are better as a whole, and
/// no single key shall get the credit for that.
std::vector<Trial> withinBrackets(const std::vector<Trial>& trials) {
  std::map<long, std::vector<double>> scores;
  std::vector<Trial> first;
  for (const Trial& trial : trials) {
    if (trial.rung != 0) continue;
    scores[trial.bracket].push_back(trial.score.score);
    first.push_back(trial);
  }
  for (Trial& trial : first) trial.score.score -= meanOf(scores[trial.bracket]).mean;
  return first;
}

std::optional<KeyEffect> effectOf(const SearchKey& k, const std::vector<Trial>& trials) {
  std::vector<std::pair<double, double>> points;
  for (const Trial& trial : trials) {
    const std::optional<double> value = numberOf(k, trial.config);
    if (value) points.emplace_back(*value, trial.score.score);
  }
  std::sort(points.begin(), points.end());
  if (points.size() < 4 || points.front().first == points.back().first) return std::nullopt;
  const double middle = (points.front().first + points.back().first) / 2;
  const double median = points[points.size() / 2].first;
  // With few values, such as on and off, the median may be the lowest of them: nothing would lie below it.
  const double limit = median > points.front().first ? median : middle;
  std::vector<double> low;
  std::vector<double> high;
  for (const auto& [value, score] : points) (value < limit ? low : high).push_back(score);
  if (low.size() < 2 || high.size() < 2) return std::nullopt;
  const Mean a = meanOf(low);
  const Mean b = meanOf(high);
  return KeyEffect{k.path(), b.mean - a.mean, std::sqrt(a.squaredError + b.squaredError),
                   static_cast<int>(points.size())};
}

double certainty(const KeyEffect& e) {
  return std::abs(e.effect) / std::max(e.error, 1e-9);
}

}  // namespace

std::vector<Rung> defaultRungs() {
  return {{0, 1.0, 0.2}, {1, 1.0, 0.5}, {2, 1.0, 1.0}};
}

std::vector<Trial> runTuning(const TuneSettings& settings, const SearchSpace& space, const TuneHooks& hooks,
                             const std::vector<Trial>& known) {
  return Search(settings, space, hooks, known).run();
}

const Trial* bestOf(const std::vector<Trial>& trials) {
  const Trial* best = nullptr;
  for (const Trial& trial : trials) {
    const bool better = best == nullptr || trial.rung > best->rung ||
                        (trial.rung == best->rung && trial.score.score > best->score.score);
    if (better) best = &trial;
  }
  return best;
}

std::vector<KeyEffect> keyEffects(const SearchSpace& space, const std::vector<Trial>& trials) {
  const std::vector<Trial> first = withinBrackets(trials);
  std::vector<KeyEffect> effects;
  for (const SearchKey& k : space) {
    const std::optional<KeyEffect> effect = effectOf(k, first);
    if (effect) effects.push_back(*effect);
  }
  std::stable_sort(effects.begin(), effects.end(),
                   [](const KeyEffect& a, const KeyEffect& b) { return certainty(a) > certainty(b); });
  return effects;
}

Json toJson(const TrialScore& s) {
  return {{"score", s.score}, {"on_target", s.onTarget}, {"success_auc", s.successAuc}, {"cpu_ms", s.cpu_ms}};
}

TrialScore trialScoreOf(const Json& json) {
  TrialScore s;
  json.at("score").get_to(s.score);
  json.at("on_target").get_to(s.onTarget);
  json.at("success_auc").get_to(s.successAuc);
  json.at("cpu_ms").get_to(s.cpu_ms);
  return s;
}

Json toJson(const Trial& t) {
  Json json = {{"bracket", t.bracket}, {"candidate", t.candidate}, {"rung", t.rung}, {"config", t.config}};
  json.update(toJson(t.score));
  return json;
}

Trial trialOf(const Json& json) {
  Trial t;
  json.at("bracket").get_to(t.bracket);
  json.at("candidate").get_to(t.candidate);
  json.at("rung").get_to(t.rung);
  t.config = json.at("config");
  t.score = trialScoreOf(json);
  return t;
}

}  // namespace host
