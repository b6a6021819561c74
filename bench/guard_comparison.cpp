// What does a guard add to the plug-in: how often is each walker on target, what is found again after a loss, how long
// are the wrong runs, and what does it cost? The built plug-in with and without the guard, over the same frames.
//
// usage: guard_comparison walkers CLIP --truth FILE [--half developed|held-back|all] [--starts 0,1,2] [--presets ,robust]
//        guard_comparison losses  CLIP --truth FILE [--half ...] [--sequence FOLDER]
//        guard_comparison cost
// The halves are those of `csrt-track tune`: sorted by their number of marks, every second one from the top is held back.
// A start of 1 or 2 begins that many marks later. Frames are decoded once; the boxes are the same in every run.
#include <CLI/CLI.hpp>
#include <algorithm>
#include <atomic>
#include <cmath>
#include <cstdio>
#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <opencv2/core/utils/logger.hpp>
#include <opencv2/imgproc.hpp>
#include <set>
#include <string>
#include <thread>
#include <vector>

#include "config_text.h"
#include "csrt_guard/csrt_guard.h"
#include "evaluation/evaluation_run.h"
#include "evaluation/follower.h"
#include "evaluation/metrics.h"
#include "evaluation/sequence.h"
#include "evaluation/truth.h"
#include "frame_source.h"
#include "host_error.h"
#include "plugin_library.h"
#include "presets.h"

namespace {

struct Footage {
  std::vector<host::SourceFrame> frames;
  explicit Footage(const std::string& source) {
    const auto reader = host::openFrameSource({source, 0, 0, 0.0});
    host::SourceFrame frame;
    while (reader->read(frame)) frames.push_back(frame);
  }
};

double env(const char* key, double fallback) {
  const char* text = std::getenv(key);
  return text != nullptr ? std::atof(text) : fallback;
}

csrt_guard::Settings settings() {
  csrt_guard::Settings s;
  s.doubtBelow = env("G_DOUBT", s.doubtBelow);
  s.doubtFrames = static_cast<int>(env("G_DOUBTF", s.doubtFrames));
  s.acceptNear = env("G_NEAR", s.acceptNear);
  s.acceptFar = env("G_FAR", s.acceptFar);
  s.confirmFrames = static_cast<int>(env("G_CONFIRM", s.confirmFrames));
  s.learnFrom = env("G_LEARNFROM", s.learnFrom);
  s.learnRate = env("G_LEARN", s.learnRate);
  s.learnFrames = static_cast<int>(env("G_LEARNF", s.learnFrames));
  s.checkEvery = static_cast<int>(env("G_CHECK", s.checkEvery));
  s.betterBy = env("G_BETTER", s.betterBy);
  s.standOut = env("G_STAND", s.standOut);
  s.jump = env("G_JUMP", s.jump);
  return s;
}

using Frames = std::function<host::SourceFrame(long)>;

/// What the plug-in answered, by where it was started: after init() it depends on nothing that was before, so runs that
/// differ only in what the guard asks for share their beginnings. Kept in a file between runs.
class AnswerCache {
 public:
  using Run = std::map<long, host::FollowerAnswer>;
  void load(const std::string& path) {
    path_ = path;
    FILE* file = path.empty() ? nullptr : std::fopen(path.c_str(), "r");
    if (file == nullptr) return;
    char key[512];
    long frame = 0;
    int has = 0, seen = 0;
    double x = 0, y = 0, w = 0, h = 0, ms = 0;
    while (std::fscanf(file, "%511s %ld %d %d %lf %lf %lf %lf %lf", key, &frame, &has, &seen, &x, &y, &w, &h, &ms) == 9) {
      host::FollowerAnswer& answer = runs_[key][frame];
      if (has != 0) answer.box = cv::Rect2d(x, y, w, h);
      answer.seen = seen != 0;
      answer.cpu_ms = ms;
    }
    std::fclose(file);
  }
  void save() {
    if (path_.empty()) return;
    FILE* file = std::fopen((path_ + ".part").c_str(), "w");
    if (file == nullptr) return;
    for (const auto& [key, run] : runs_) {
      for (const auto& [frame, a] : run) {
        const cv::Rect2d box = a.box.value_or(cv::Rect2d());
        std::fprintf(file, "%s %ld %d %d %.0f %.0f %.0f %.0f %.3f\n", key.c_str(), frame, a.box.has_value(), a.seen, box.x, box.y,
                     box.width, box.height, a.cpu_ms);
      }
    }
    std::fclose(file);
    std::rename((path_ + ".part").c_str(), path_.c_str());
  }
  std::optional<host::FollowerAnswer> find(const std::string& key, long frame) {
    const std::lock_guard<std::mutex> lock(mutex_);
    const auto run = runs_.find(key);
    if (run == runs_.end()) return std::nullopt;
    const auto at = run->second.find(frame);
    return at == run->second.end() ? std::nullopt : std::optional<host::FollowerAnswer>(at->second);
  }
  void put(const std::string& key, long frame, const host::FollowerAnswer& answer) {
    const std::lock_guard<std::mutex> lock(mutex_);
    runs_[key][frame] = answer;
  }

 private:
  std::string path_;
  std::map<std::string, Run> runs_;
  std::mutex mutex_;
};

AnswerCache cache;

/// The plug-in on one scene, started anew with every init(); steps only where the answers are not known yet.
class Base {
 public:
  Base(host::PluginLibrary& library, const std::string& preset, const std::string& scene, const Frames& frames)
      : library_(library), preset_(preset), scene_(scene), frames_(frames) {}
  bool init(long frame, const cv::Rect& box) {
    begin_ = frame;
    box_ = box;
    live_.reset();
    char key[512];
    std::snprintf(key, sizeof key, "%s|%s|%ld|%d,%d,%d,%d", preset_.c_str(), scene_.c_str(), frame, box.x, box.y, box.width, box.height);
    key_ = key;
    return true;
  }
  host::FollowerAnswer update(long frame) {
    if (const auto known = cache.find(key_, frame)) return *known;
    if (live_ == nullptr) {
      static std::mutex loading;
      {
        const std::lock_guard<std::mutex> lock(loading);
        live_ = host::makePluginFollower(library_, preset_.empty() ? "" : host::presetText(preset_), true);
      }
      const host::SourceFrame first = frames_(begin_);
      live_->init(std::make_shared<ocula::OculaPicture>(first.bgr), first, box_);
      at_ = begin_;
    }
    host::FollowerAnswer answer;
    while (at_ < frame) {
      const host::SourceFrame next = frames_(++at_);
      answer = live_->update(std::make_shared<ocula::OculaPicture>(next.bgr), next);
      cache.put(key_, at_, answer);
    }
    return answer;
  }

 private:
  host::PluginLibrary& library_;
  std::string preset_, scene_, key_;
  Frames frames_;
  long begin_ = 0, at_ = 0;
  cv::Rect box_;
  std::unique_ptr<host::Follower> live_;
};

/// The plug-in, and perhaps a guard beside it.
class Watched {
 public:
  Watched(host::PluginLibrary& library, const std::string& preset, const std::string& scene, const Frames& frames, bool guarded)
      : plugin_(library, preset, scene, frames) {
    if (guarded) guard_.emplace(settings());
  }
  bool start(const host::SourceFrame& frame, const cv::Rect& box) {
    if (guard_) guard_->start(frame.bgr, box);
    return plugin_.init(frame.index, box);
  }
  host::FollowerAnswer step(const host::SourceFrame& frame) {
    host::FollowerAnswer answer = plugin_.update(frame.index);
    tracker_ms += answer.cpu_ms;
    ++steps;
    base = answer;
    if (!guard_) return answer;
    const double begin = host::threadMilliseconds();
    csrt_guard::Answer told;
    if (answer.box) told.box = cv::Rect(*answer.box);
    told.seen = answer.seen;
    verdict = guard_->judge(frame.bgr, told);
    const double spent = host::threadMilliseconds() - begin;
    (verdict.state == csrt_guard::State::Agreed ? seen_ms : lost_ms).push_back(spent);
    guard_ms += spent;
    if (verdict.restart) {
      ++restarts;
      plugin_.init(frame.index, *verdict.box);
    }
    host::FollowerAnswer mine = answer;
    mine.box = verdict.box ? std::optional<cv::Rect2d>(*verdict.box) : std::nullopt;
    mine.seen = verdict.seen && verdict.box;
    return mine;
  }
  std::optional<double> likenessOf(const cv::Mat& frame, const cv::Rect& box) const {
    return guard_ ? guard_->likenessOf(frame, box) : std::nullopt;
  }
  csrt_guard::Verdict verdict;
  host::FollowerAnswer base;
  std::vector<double> seen_ms, lost_ms;
  double guard_ms = 0.0, tracker_ms = 0.0;
  int restarts = 0, steps = 0;

 private:
  Base plugin_;
  std::optional<csrt_guard::Guard> guard_;
};

std::set<std::string> heldBack(std::vector<host::TruthTarget> targets) {
  std::stable_sort(targets.begin(), targets.end(),
                   [](const auto& a, const auto& b) { return a.marks.size() > b.marks.size(); });
  std::set<std::string> names;
  for (std::size_t i = 0; i < targets.size(); i += 2) names.insert(targets[i].name);
  return names;
}

cv::Rect whole(const cv::Rect2d& b) {
  return {cvRound(b.x), cvRound(b.y), std::max(1, cvRound(b.width)), std::max(1, cvRound(b.height))};
}

/// The truth between two marks; empty before the first and after the last.
std::optional<cv::Rect2d> truthAt(const host::TruthTarget& target, long frame) {
  const auto& m = target.marks;
  for (std::size_t i = 0; i < m.size(); ++i) {
    if (m[i].frame == frame) return m[i].absent ? std::nullopt : std::optional<cv::Rect2d>(m[i].box);
    if (i + 1 == m.size() || m[i].frame > frame || m[i + 1].frame < frame) continue;
    if (m[i].absent || m[i + 1].absent) return std::nullopt;
    const double s = static_cast<double>(frame - m[i].frame) / static_cast<double>(m[i + 1].frame - m[i].frame);
    const cv::Rect2d &a = m[i].box, &b = m[i + 1].box;
    return cv::Rect2d(a.x + s * (b.x - a.x), a.y + s * (b.y - a.y), a.width + s * (b.width - a.width),
                      a.height + s * (b.height - a.height));
  }
  return std::nullopt;
}

struct Job {
  const host::TruthTarget* target = nullptr;
  std::string preset;
  int start = 0;
  bool guarded = false;
  host::MetricSums sums;
  int longestWrong = 0;
  int restarts = 0, restartsRight = 0;
  double auc = 0.0;
  std::vector<double> seen_ms, lost_ms;
  double guard_ms = 0.0, tracker_ms = 0.0;
};

bool trace = false;

void follow(Job& job, const Footage& footage, host::PluginLibrary& library) {
  const Frames frames = [&footage](long i) { return footage.frames.at(static_cast<std::size_t>(i)); };
  auto watched = std::make_unique<Watched>(library, job.preset, "clip", frames, job.guarded);
  const auto& marks = job.target->marks;
  const std::size_t first = std::min(marks.size() - 1, static_cast<std::size_t>(job.target->firstVisibleMark() + job.start));
  host::TargetSamples samples;
  const long begin = marks[first].frame;
  samples.started = watched->start(footage.frames.at(static_cast<std::size_t>(begin)), whole(marks[first].box));
  int wrong = 0;
  for (long i = begin + 1; i <= marks.back().frame && i < static_cast<long>(footage.frames.size()); ++i) {
    const host::SourceFrame& frame = footage.frames[static_cast<std::size_t>(i)];
    const host::FollowerAnswer answer = watched->step(frame);
    const auto truth = truthAt(*job.target, i);
    const double iou = truth && answer.box ? host::overlapOf(*truth, *answer.box) : 0.0;
    wrong = answer.seen && iou < 0.1 ? wrong + 1 : 0;
    job.longestWrong = std::max(job.longestWrong, wrong);
    if (watched->verdict.restart && iou >= 0.3) ++job.restartsRight;
    if (trace) {
      std::printf("truthlike %.2f ", truth ? watched->likenessOf(frame.bgr, whole(*truth)).value_or(-1) : -1.0);
      const auto& v = watched->verdict;
      std::printf("  %s+%d f%ld base seen%d iou %.2f | %s iou %.2f like %.2f usual %.2f around %.2f lost %d %s%s\n",
                  job.target->name.c_str(), job.start, i, watched->base.seen,
                  truth && watched->base.box ? host::overlapOf(*truth, *watched->base.box) : 0.0,
                  csrt_guard::name(v.state), iou, v.likeness.value_or(-1), v.usual.value_or(-1), v.around.value_or(-1),
                  v.framesLost, v.reason, v.restart ? " RESTART" : "");
    }
    const auto mark = std::find_if(marks.begin(), marks.end(), [i](const auto& m) { return m.frame == i; });
    if (mark == marks.end()) continue;
    samples.judgements.push_back(host::judge(i, frame.time_s, mark->absent ? std::nullopt : std::optional<cv::Rect2d>(mark->box),
                                             answer.box, answer.seen));
  }
  job.sums = host::sumsOf(samples);
  job.auc = host::metricsOf(job.sums).successAuc;
  job.restarts = watched->restarts;
  job.seen_ms = watched->seen_ms;
  job.lost_ms = watched->lost_ms;
  job.guard_ms = watched->guard_ms;
  job.tracker_ms = watched->tracker_ms;
}

void inThreads(int threads, std::size_t count, const std::function<void(std::size_t)>& work) {
  std::atomic<std::size_t> next{0};
  std::vector<std::thread> all;
  for (int t = 0; t < threads; ++t) {
    all.emplace_back([&] {
      for (std::size_t i = next++; i < count; i = next++) work(i);
    });
  }
  for (std::thread& thread : all) thread.join();
}

double quantile(std::vector<double> values, double share) {
  if (values.empty()) return 0.0;
  std::sort(values.begin(), values.end());
  return values[std::min(values.size() - 1, static_cast<std::size_t>(share * static_cast<double>(values.size())))];
}

struct Options {
  std::string clip, truth, half = "developed", sequence, plugin, only, cache;
  std::vector<int> starts = {0, 1, 2};
  std::vector<std::string> presets = {""};
  std::vector<std::string> guards = {"off", "colour"};
  int threads = 2;
  bool perTarget = false;
};

std::vector<host::TruthTarget> chosen(const Options& options) {
  const auto all = host::readTruth(options.truth, host::TruthOptions(), "target");
  const std::set<std::string> held = heldBack(all);
  std::vector<host::TruthTarget> targets;
  for (const auto& target : all) {
    if (options.half == "developed" && held.count(target.name) != 0) continue;
    if (options.half == "held-back" && held.count(target.name) == 0) continue;
    if (!options.only.empty() && target.name != options.only) continue;
    targets.push_back(target);
  }
  return targets;
}

void walkers(const Options& options) {
  const Footage footage(options.clip);
  const auto targets = chosen(options);
  host::PluginLibrary library(options.plugin);
  std::vector<Job> jobs;
  for (const std::string& preset : options.presets) {
    for (const std::string& guard : options.guards) {
      for (const int start : options.starts) {
        for (const auto& target : targets) {
          Job job;
          job.target = &target;
          job.preset = preset;
          job.guarded = guard != "off";
          job.start = start;
          jobs.push_back(job);
        }
      }
    }
  }
  inThreads(trace ? 1 : options.threads, jobs.size(), [&](std::size_t i) { follow(jobs[i], footage, library); });
  std::printf("| base | guard | start | on target | held | success AUC | called seen, elsewhere | wrong runs > 30 | restarts (right) | guard ms seen, median | lost, p95 | guard / tracker |\n");
  std::printf("|---|---|---|---:|---:|---:|---:|---:|---:|---:|---:|---:|\n");
  std::size_t at = 0;
  for (const std::string& preset : options.presets) {
    for (const std::string& guard : options.guards) {
      double onTargetSum = 0.0, heldSum = 0.0, aucSum = 0.0;
      for (const int start : options.starts) {
        host::MetricSums sums;
        int wrong = 0, restarts = 0, right = 0;
        std::vector<double> seen, lost;
        double guardTime = 0.0, trackerTime = 0.0;
        for (std::size_t t = 0; t < targets.size(); ++t, ++at) {
          const Job& job = jobs[at];
          sums += job.sums;
          wrong += job.longestWrong > 30;
          restarts += job.restarts;
          right += job.restartsRight;
          seen.insert(seen.end(), job.seen_ms.begin(), job.seen_ms.end());
          lost.insert(lost.end(), job.lost_ms.begin(), job.lost_ms.end());
          guardTime += job.guard_ms;
          trackerTime += job.tracker_ms;
          if (options.perTarget) {
            std::printf("    %s %s+%d: on %ld of %ld held %ld wrong %d restarts %d (%d)\n", guard.c_str(), job.target->name.c_str(), start,
                        job.sums.onTarget, job.sums.present, job.sums.heldAtEnd, job.longestWrong, job.restarts, job.restartsRight);
          }
        }
        const host::Metrics m = host::metricsOf(sums);
        std::printf("| %s | %s | %d | %.3f | %ld of %ld | %.3f | %.3f | %d | %d (%d) | %.2f | %.2f | %.2f |\n",
                    preset.empty() ? "defaults" : preset.c_str(), guard.c_str(), start, m.onTarget, sums.heldAtEnd, sums.targets,
                    m.successAuc, m.seenElsewhere, wrong, restarts, right, quantile(seen, 0.5), quantile(lost, 0.95), guardTime / trackerTime);
        onTargetSum += m.onTarget;
        heldSum += static_cast<double>(sums.heldAtEnd);
        aucSum += m.successAuc;
      }
      const double n = static_cast<double>(options.starts.size());
      std::printf("| %s | %s | mean | %.3f | %.1f | %.3f |\n", preset.empty() ? "defaults" : preset.c_str(), guard.c_str(), onTargetSum / n,
                  heldSum / n, aucSum / n);
    }
  }
}

}  // namespace

int main(int argc, char** argv) {
  cv::utils::logging::setLogLevel(cv::utils::logging::LOG_LEVEL_SILENT);
  cv::setNumThreads(1);
  Options options;
  CLI::App app("What a guard adds to the plug-in.");
  app.require_subcommand(1);
  const auto add = [&options](CLI::App& command) {
    command.add_option("clip", options.clip)->required();
    command.add_option("--truth", options.truth)->required();
    command.add_option("--half", options.half);
    command.add_option("--starts", options.starts)->delimiter(',');
    command.add_option("--presets", options.presets)->delimiter(',');
    command.add_option("--guards", options.guards)->delimiter(',');
    command.add_option("--sequence", options.sequence);
    command.add_option("--plugin", options.plugin);
    command.add_option("--threads", options.threads);
    command.add_option("--cache", options.cache);
    command.add_option("--only", options.only);
    command.add_flag("--per-target", options.perTarget);
    command.add_flag("--trace", trace);
  };
  CLI::App* walkersCommand = app.add_subcommand("walkers");
  add(*walkersCommand);
  CLI11_PARSE(app, argc, argv);
  for (std::string& preset : options.presets) {
    if (preset == "defaults") preset.clear();
  }
  cache.load(options.cache);
  try {
    if (*walkersCommand) walkers(options);
    cache.save();
  } catch (const host::HostError& e) {
    std::fprintf(stderr, "guard_comparison: %s\n", e.what());
    return static_cast<int>(e.code());
  }
  return 0;
}
