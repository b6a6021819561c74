// What does a guard add to the plug-in: how often is each walker on target, what is found again after a loss, how long
// are the wrong runs, and what does it cost? The built plug-in with and without the guard, over the same frames.
//
// usage: guard_comparison walkers CLIP --truth FILE [--half developed|held-back|all] [--starts 0,1,2]
//                                 [--presets defaults,robust] [--guards off,colour,network --guard-model FILE]
//                                 [--cache FILE] [--per-target]
//        guard_comparison finds   CLIP --truth FILE [--half ...]   what the guard finds by itself, without a tracker
//        guard_comparison losses  CLIP --truth FILE --second SOURCE --second-truth FILE   26 losses made from footage
// The halves are those of `csrt-track tune`: sorted by their number of marks, every second one from the top is held
// back. A start of 1 or 2 begins that many marks later. Frames are decoded once; the boxes are the same in every run.
#include <CLI/CLI.hpp>
#include <algorithm>
#include <array>
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

#include "base/host_error.h"
#include "config/config_text.h"
#include "config/presets.h"
#include "csrt_guard/csrt_guard.h"
#ifdef CSRT_HAS_GUARD_NETWORK
#include "csrt_guard/network_opinion.h"
#endif
#include "evaluation/evaluation_run.h"
#include "evaluation/follower.h"
#include "evaluation/metrics.h"
#include "evaluation/sequence.h"
#include "evaluation/truth.h"
#include "input/frame_source.h"
#include "plugin/plugin_library.h"

namespace {

struct Footage {
  std::vector<host::SourceFrame> frames;
  std::string scene = "clip";
  explicit Footage(const std::string& source, bool backwards) {
    host::SourceOptions options;
    options.source = source;
    const auto reader = host::openFrameSource(options);
    host::SourceFrame frame;
    while (reader->read(frame)) frames.push_back(frame);
    if (!backwards) return;
    scene = "backwards";
    for (std::size_t i = 0, j = frames.size(); i + 1 < j; ++i) std::swap(frames[i].bgr, frames[--j].bgr);
  }
};

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
    while (std::fscanf(file, "%511s %ld %d %d %lf %lf %lf %lf %lf", key, &frame, &has, &seen, &x, &y, &w, &h, &ms) ==
           9) {
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
        std::fprintf(file, "%s %ld %d %d %.0f %.0f %.0f %.0f %.3f\n", key.c_str(), frame, a.box.has_value(), a.seen,
                     box.x, box.y, box.width, box.height, a.cpu_ms);
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
    std::snprintf(key, sizeof key, "%s|%s|%ld|%d,%d,%d,%d", preset_.c_str(), scene_.c_str(), frame, box.x, box.y,
                  box.width, box.height);
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

std::string guardModel;  // of the network guard

std::optional<csrt_guard::Guard> guardOf(const std::string& which) {
  if (which == "off") return std::nullopt;
  csrt_guard::Guard guard;
  if (which != "network") return guard;
#ifdef CSRT_HAS_GUARD_NETWORK
  std::string fault;
  auto opinion = csrt_guard::readNetworkOpinion(guardModel, fault);
  if (opinion == nullptr) throw host::HostError(host::ExitCode::Usage, "--guard-model: " + fault);
  guard.consult(std::move(opinion));
  return guard;
#else
  throw host::HostError(host::ExitCode::Usage, "--guards network needs OpenCV 4.9 or later");
#endif
}

/// The plug-in, and perhaps a guard beside it.
class Watched {
 public:
  Watched(host::PluginLibrary& library, const std::string& preset, const std::string& scene, const Frames& frames,
          const std::string& guard)
      : plugin_(library, preset, scene, frames), guard_(guardOf(guard)) {}
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
  std::string guard;
  host::MetricSums sums;
  int longestWrong = 0;
  int restarts = 0, restartsRight = 0;
  double auc = 0.0;
  std::vector<double> seen_ms, lost_ms;
  double guard_ms = 0.0, tracker_ms = 0.0;
};

bool trace = false;
std::vector<host::TruthTarget> everybody;

void follow(Job& job, const Footage& footage, host::PluginLibrary& library) {
  const Frames frames = [&footage](long i) { return footage.frames.at(static_cast<std::size_t>(i)); };
  auto watched = std::make_unique<Watched>(library, job.preset, footage.scene, frames, job.guard);
  const auto& marks = job.target->marks;
  const std::size_t first =
      std::min(marks.size() - 1, static_cast<std::size_t>(job.target->firstVisibleMark() + job.start));
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
      if (truth) std::printf("truth at (%.0f,%.0f)\n", truth->x + truth->width / 2, truth->y + truth->height / 2);
      std::printf("truthlike %.2f ", truth ? watched->likenessOf(frame.bgr, whole(*truth)).value_or(-1) : -1.0);
      const auto& v = watched->verdict;
      const auto whoIs = [&](const std::optional<cv::Rect2d>& box) {
        std::string who = "-";
        double best = 0.2;
        for (const auto& other : everybody) {
          const auto there = truthAt(other, i);
          const double common = there && box ? host::overlapOf(*there, *box) : 0.0;
          if (common > best) best = common, who = other.name;
        }
        return who;
      };
      std::printf("on %s base %s ", whoIs(answer.box).c_str(), whoIs(watched->base.box).c_str());
      std::printf("  %s+%d f%ld base seen%d iou %.2f | %s iou %.2f like %.2f usual %.2f around %.2f lost %d %s%s\n",
                  job.target->name.c_str(), job.start, i, watched->base.seen,
                  truth && watched->base.box ? host::overlapOf(*truth, *watched->base.box) : 0.0,
                  csrt_guard::name(v.state), iou, v.likeness.value_or(-1), v.usual.value_or(-1), v.around.value_or(-1),
                  v.framesLost, v.reason, v.restart ? " RESTART" : "");
      if (v.opinion) {
        std::printf("  opinion %.2f iou %.2f on %s\n", v.opinion->score,
                    truth ? host::overlapOf(*truth, cv::Rect2d(v.opinion->box)) : 0.0,
                    whoIs(cv::Rect2d(v.opinion->box)).c_str());
      }
    }
    const auto mark = std::find_if(marks.begin(), marks.end(), [i](const auto& m) { return m.frame == i; });
    if (mark == marks.end()) continue;
    samples.judgements.push_back(host::judge(
        i, frame.time_s, mark->absent ? std::nullopt : std::optional<cv::Rect2d>(mark->box), answer.box, answer.seen));
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
  std::string second, secondTruth;
  std::string clip, truth, half = "developed", plugin, only, cache;
  std::vector<int> starts = {0, 1, 2};
  std::vector<std::string> presets = {""};
  std::vector<std::string> guards = {"off", "colour"};
  int threads = 2;
  bool perTarget = false, backwards = false;
};

std::vector<host::TruthTarget> chosen(const Options& options, const Footage& footage) {
  const auto all = host::readTruth(options.truth, host::TruthOptions(), "target");
  const std::set<std::string> held = heldBack(all);
  std::vector<host::TruthTarget> targets;
  for (const auto& target : all) {
    if (options.half == "developed" && held.count(target.name) != 0) continue;
    if (options.half == "held-back" && held.count(target.name) == 0) continue;
    if (!options.only.empty() && target.name != options.only) continue;
    targets.push_back(target);
    if (!options.backwards) continue;
    auto& marks = targets.back().marks;
    std::reverse(marks.begin(), marks.end());
    for (auto& mark : marks) mark.frame = static_cast<long>(footage.frames.size()) - 1 - mark.frame;
  }
  return targets;
}

std::vector<host::TruthTarget> everybodyOf(Options options, const Footage& footage) {
  options.half = "all";
  options.only.clear();
  return chosen(options, footage);
}

void walkers(const Options& options) {
  const Footage footage(options.clip, options.backwards);
  const auto targets = chosen(options, footage);
  host::PluginLibrary library(options.plugin);
  std::vector<Job> jobs;
  for (const std::string& preset : options.presets) {
    for (const std::string& guard : options.guards) {
      for (const int start : options.starts) {
        for (const auto& target : targets) {
          Job job;
          job.target = &target;
          job.preset = preset;
          job.guard = guard;
          job.start = start;
          jobs.push_back(job);
        }
      }
    }
  }
  if (trace) everybody = everybodyOf(options, footage);
  inThreads(trace ? 1 : options.threads, jobs.size(), [&](std::size_t i) { follow(jobs[i], footage, library); });
  std::printf(
      "| base | guard | start | on target | held | success AUC | called seen, elsewhere | wrong runs > 30 | restarts "
      "(right) | guard ms seen, median | lost, p95 | guard / tracker |\n");
  std::printf("|---|---|---|---:|---:|---:|---:|---:|---:|---:|---:|---:|\n");
  std::size_t at = 0;
  for (const std::string& preset : options.presets) {
    for (const std::string& guard : options.guards) {
      double onTargetSum = 0.0, heldSum = 0.0, aucSum = 0.0, elsewhereSum = 0.0, wrongSum = 0.0;
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
            std::printf("    %s %s+%d: on %ld of %ld held %ld wrong %d restarts %d (%d)\n", guard.c_str(),
                        job.target->name.c_str(), start, job.sums.onTarget, job.sums.present, job.sums.heldAtEnd,
                        job.longestWrong, job.restarts, job.restartsRight);
          }
        }
        const host::Metrics m = host::metricsOf(sums);
        std::printf("| %s | %s | %d | %.3f | %ld of %ld | %.3f | %.3f | %d | %d (%d) | %.2f | %.2f | %.2f |\n",
                    preset.empty() ? "defaults" : preset.c_str(), guard.c_str(), start, m.onTarget, sums.heldAtEnd,
                    sums.targets, m.successAuc, m.seenElsewhere, wrong, restarts, right, quantile(seen, 0.5),
                    quantile(lost, 0.95), guardTime / trackerTime);
        onTargetSum += m.onTarget;
        heldSum += static_cast<double>(sums.heldAtEnd);
        aucSum += m.successAuc;
        elsewhereSum += m.seenElsewhere;
        wrongSum += wrong;
      }
      const double n = static_cast<double>(options.starts.size());
      std::printf("| %s | %s | mean | %.3f | %.1f | %.3f | %.3f | %.1f |\n",
                  preset.empty() ? "defaults" : preset.c_str(), guard.c_str(), onTargetSum / n, heldSum / n, aucSum / n,
                  elsewhereSum / n, wrongSum / n);
    }
  }
}

/// How good are the finds? The guard is told where the target is up to a frame, then nothing any more; for so many
/// frames a board covers the target. No tracker: only whether, when and where the guard finds it.
struct Loss {
  const host::TruthTarget* target = nullptr;
  std::size_t mark = 0;
  int covered = 0;
  bool found = false;
  int delay = 0;
  double iou = 0.0;
  bool absentFind = false;
  double like = 0.0, truthLike = 0.0, usual = 0.0, around = 0.0;
};

void loseAndFind(Loss& loss, const Footage& footage) {
  csrt_guard::Guard guard;
  const auto& marks = loss.target->marks;
  const long first = marks[static_cast<std::size_t>(loss.target->firstVisibleMark())].frame;
  const long lost = marks[loss.mark].frame;
  guard.start(footage.frames[static_cast<std::size_t>(first)].bgr, whole(*truthAt(*loss.target, first)));
  for (long i = first + 1; i <= lost; ++i) {
    const csrt_guard::Answer told{whole(*truthAt(*loss.target, i)), true};
    const csrt_guard::Verdict v = guard.judge(footage.frames[static_cast<std::size_t>(i)].bgr, told);
    if (v.restart) guard.judge(footage.frames[static_cast<std::size_t>(i)].bgr, told);
  }
  for (long i = lost + 1; i < lost + loss.covered + 60 && i < static_cast<long>(footage.frames.size()); ++i) {
    const auto truth = truthAt(*loss.target, i);
    if (!truth) return;
    cv::Mat frame = footage.frames[static_cast<std::size_t>(i)].bgr;
    if (i <= lost + loss.covered) {
      frame = frame.clone();
      const cv::Rect board(cvRound(truth->x - truth->width * 0.3), cvRound(truth->y - truth->height * 0.1),
                           cvRound(truth->width * 1.6), cvRound(truth->height * 1.2));
      cv::rectangle(frame, board, cv::Scalar(70, 95, 120), cv::FILLED);
    }
    const csrt_guard::Verdict v = guard.judge(frame, {});
    if (!v.restart) continue;
    loss.found = true;
    loss.delay = static_cast<int>(i - lost - loss.covered);
    loss.absentFind = i <= lost + loss.covered;
    loss.iou = host::overlapOf(*v.box, *truth);
    loss.like = v.likeness.value_or(0);
    loss.usual = v.usual.value_or(0);
    loss.around = v.around.value_or(0);
    loss.truthLike = guard.likenessOf(frame, whole(*truth)).value_or(0);
    return;
  }
}

void finds(const Options& options) {
  const Footage footage(options.clip, options.backwards);
  const auto targets = chosen(options, footage);
  std::vector<Loss> losses;
  for (const auto& target : targets) {
    for (std::size_t m = 2; m + 2 < target.marks.size(); m += 2) {
      for (const int covered : {0, 8, 30}) {
        Loss loss;
        loss.target = &target;
        loss.mark = m;
        loss.covered = covered;
        losses.push_back(loss);
      }
    }
  }
  inThreads(options.threads, losses.size(), [&](std::size_t i) { loseAndFind(losses[i], footage); });
  for (const int covered : {0, 8, 30}) {
    int n = 0, right = 0, wrong = 0, near = 0, none = 0, early = 0;
    double delay = 0.0, iou = 0.0;
    for (const Loss& l : losses) {
      if (l.covered != covered) continue;
      ++n;
      if (trace && l.found && l.iou < 0.3)
        std::printf("  %s mark %zu covered %d delay %d iou %.2f like %.2f truth %.2f usual %.2f around %.2f\n",
                    l.target->name.c_str(), l.mark, covered, l.delay, l.iou, l.like, l.truthLike, l.usual, l.around);
      if (!l.found)
        ++none;
      else if (l.iou >= 0.3)
        ++right, delay += l.delay, iou += l.iou;
      else if (l.iou >= 0.1)
        ++near;
      else
        ++wrong;
      early += l.absentFind;
    }
    std::printf(
        "covered %2d: %d losses: right %.2f near %.2f wrong %.2f none %.2f; while covered %.2f; delay %.1f iou %.2f\n",
        covered, n, double(right) / n, double(near) / n, double(wrong) / n, double(none) / n, double(early) / n,
        delay / std::max(1, right), iou / std::max(1, right));
  }
}

/// Losses made from footage: what happens to the picture, and where the target is then.
enum class Event { Covered, Black, Jump, Elsewhere };

struct MadeLoss {
  std::string name;
  const Footage* footage = nullptr;
  const host::TruthTarget* target = nullptr;
  long begin = 0;  ///< The first frame that shows nothing of the target.
  long hidden = 0;
  Event event = Event::Covered;
  std::string guard;
  int delay = -1;  ///< Frames from the return to the first box called seen on it; -1: not within kPatience.
  int falseBoxes = 0;
};

constexpr long kRunUp = 40;  // frames before the loss
constexpr long kPatience = 60;

/// A frame of the scene, by its number in the scene: after a jump the footage is that many frames ahead.
host::SourceFrame sceneFrame(const MadeLoss& loss, long i) {
  const bool after = i >= loss.begin + loss.hidden;
  const bool during = i >= loss.begin && !after;
  const long at = loss.event == Event::Jump && i >= loss.begin ? i + 25 : i;
  const auto last = static_cast<long>(loss.footage->frames.size()) - 1;
  host::SourceFrame frame = loss.footage->frames[static_cast<std::size_t>(std::min(at, last))];
  frame.index = i;
  if (during && loss.event == Event::Black) frame.bgr = cv::Mat::zeros(frame.bgr.size(), frame.bgr.type());
  if (during && loss.event != Event::Black && loss.event != Event::Jump) {
    frame.bgr = frame.bgr.clone();
    if (const auto truth = truthAt(*loss.target, at)) {
      const cv::Rect board(cvRound(truth->x - truth->width * 0.3), cvRound(truth->y - truth->height * 0.1),
                           cvRound(truth->width * 1.6), cvRound(truth->height * 1.2));
      cv::rectangle(frame.bgr, board, cv::Scalar(70, 95, 120), cv::FILLED);
    }
  }
  if (after && loss.event == Event::Elsewhere) {  // the view has moved a fifth of its width
    const cv::Mat shift = (cv::Mat_<double>(2, 3) << 1, 0, -frame.bgr.cols / 5.0, 0, 1, frame.bgr.rows / 12.0);
    cv::Mat moved;
    cv::warpAffine(frame.bgr, moved, shift, frame.bgr.size(), cv::INTER_LINEAR, cv::BORDER_REPLICATE);
    frame.bgr = moved;
  }
  return frame;
}

std::optional<cv::Rect2d> sceneTruth(const MadeLoss& loss, long i) {
  const bool after = i >= loss.begin + loss.hidden;
  if (i >= loss.begin && !after) return std::nullopt;
  auto truth = truthAt(*loss.target, loss.event == Event::Jump && after ? i + 25 : i);
  if (truth && after && loss.event == Event::Elsewhere) {
    const cv::Size size = loss.footage->frames.front().bgr.size();
    *truth += cv::Point2d(-size.width / 5.0, size.height / 12.0);
  }
  return truth;
}

void suffer(MadeLoss& loss, host::PluginLibrary& library, const std::string& preset) {
  const Frames frames = [&loss](long i) { return sceneFrame(loss, i); };
  Watched watched(library, preset, loss.name, frames, loss.guard);
  const long first = loss.begin - kRunUp;
  const auto start = truthAt(*loss.target, first);
  if (!start || !watched.start(sceneFrame(loss, first), whole(*start))) return;
  const long back = loss.begin + loss.hidden;
  for (long i = first + 1; i < back + kPatience; ++i) {
    const auto truth = sceneTruth(loss, i);
    if (i >= back && !truth) return;
    const host::FollowerAnswer answer = watched.step(sceneFrame(loss, i));
    if (!answer.seen || !answer.box) continue;
    if (i >= loss.begin && i < back) ++loss.falseBoxes;
    if (i < back || host::overlapOf(*truth, *answer.box) < 0.3) continue;
    loss.delay = static_cast<int>(i - back);
    return;
  }
}

/// All that happens to one target: six losses, or five where the view cannot move.
void addLosses(std::vector<MadeLoss>& losses, const Footage& footage, const host::TruthTarget& target, long begin,
               bool elsewhere, const std::string& guard) {
  const auto add = [&](const char* what, Event event, long hidden) {
    for (const std::string& which : {std::string("off"), guard}) {
      losses.push_back({target.name + "," + what, &footage, &target, begin, hidden, event, which});
    }
  };
  add("covered-15", Event::Covered, 15);
  add("covered-30", Event::Covered, 30);
  add("covered-60", Event::Covered, 60);
  add("black-8", Event::Black, 8);
  add("jump-25", Event::Jump, 0);
  if (elsewhere) add("elsewhere-30", Event::Elsewhere, 30);
}

/// 26 losses: the four walkers of the half with the most marks, a third into their tracks, and a second sequence.
void losses(const Options& options) {
  const Footage clip(options.clip, options.backwards);
  const Footage crossing(options.second, false);
  auto targets = chosen(options, clip);
  std::stable_sort(targets.begin(), targets.end(),
                   [](const auto& a, const auto& b) { return a.marks.size() > b.marks.size(); });
  targets.resize(std::min<std::size_t>(targets.size(), 4));
  const auto crosser = host::readTruth(options.secondTruth, host::TruthOptions(), "crossing");
  std::vector<MadeLoss> all;
  for (const auto& target : targets) {
    const long begin =
        target.marks.front().frame + kRunUp + (target.marks.back().frame - target.marks.front().frame - kRunUp) / 4;
    addLosses(all, clip, target, begin, false, options.guards.back());
  }
  addLosses(all, crossing, crosser.front(), kRunUp, true, options.guards.back());
  host::PluginLibrary library(options.plugin);
  inThreads(options.threads, all.size(), [&](std::size_t i) { suffer(all[i], library, options.presets.front()); });
  std::printf("| target, loss | off: found after | boxes while hidden | %s: found after | boxes while hidden |\n",
              options.guards.back().c_str());
  std::printf("|---|---:|---:|---:|---:|\n");
  std::array<int, 2> found{}, boxes{};
  long hidden = 0;
  for (std::size_t i = 0; i < all.size(); i += 2) {
    std::printf("| %s |", all[i].name.c_str());
    hidden += all[i].hidden;
    for (std::size_t g = 0; g < 2; ++g) {
      const MadeLoss& loss = all[i + g];
      found[g] += loss.delay >= 0;
      boxes[g] += loss.falseBoxes;
      std::printf(" %s | %d |", loss.delay < 0 ? "never" : std::to_string(loss.delay).c_str(), loss.falseBoxes);
    }
    std::printf("\n");
  }
  const auto share = [hidden](int n) { return static_cast<double>(n) / static_cast<double>(std::max(1L, hidden)); };
  std::printf("| all %zu | %d found | %.3f | %d found | %.3f |\n", all.size() / 2, found[0], share(boxes[0]), found[1],
              share(boxes[1]));
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
    command.add_option("--guard-model", guardModel, "The network's file, for --guards network");
    command.add_option("--plugin", options.plugin);
    command.add_option("--threads", options.threads);
    command.add_option("--cache", options.cache);
    command.add_option("--only", options.only);
    command.add_flag("--per-target", options.perTarget);
    command.add_flag("--backwards", options.backwards, "The clip from its end to its beginning");
    command.add_flag("--trace", trace);
  };
  CLI::App* walkersCommand = app.add_subcommand("walkers");
  add(*walkersCommand);
  CLI::App* findsCommand = app.add_subcommand("finds");
  add(*findsCommand);
  CLI::App* lossesCommand = app.add_subcommand("losses");
  add(*lossesCommand);
  lossesCommand->add_option("--second", options.second, "Another sequence: a pattern of pictures or a video")
      ->required();
  lossesCommand->add_option("--second-truth", options.secondTruth)->required();
  CLI11_PARSE(app, argc, argv);
  for (std::string& preset : options.presets) {
    if (preset == "defaults") preset.clear();
  }
  cache.load(options.cache);
  try {
    if (*walkersCommand) walkers(options);
    if (*findsCommand) finds(options);
    if (*lossesCommand) losses(options);
    cache.save();
  } catch (const host::HostError& e) {
    std::fprintf(stderr, "guard_comparison: %s\n", e.what());
    return static_cast<int>(e.code());
  }
  return 0;
}
