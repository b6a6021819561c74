// The plug-in with a guard beside it, the way a host runs the two, and what each of them cost.
#pragma once

#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "answer_cache.h"
#include "csrt_guard/csrt_guard.h"
#include "evaluation/follower.h"
#include "footage.h"
#include "plugin/guard_choice.h"
#include "plugin/plugin_library.h"

namespace bench {

/// What runs: everything that the plug-in's answers depend on but the start.
struct Base {
  host::PluginLibrary* library = nullptr;
  std::string preset;  ///< Empty: the defaults.
  std::string scene;   ///< Names what `frames` gives.
  Frames frames;
  AnswerCache* cache = nullptr;
};

/// The plug-in on one scene, started anew with every init(); it steps only where its answers are not known yet.
class CachedPlugin {
 public:
  explicit CachedPlugin(Base base) : base_(std::move(base)) {}
  void init(long frame, const cv::Rect& box);
  /// @param frame  after that of init(); frames in between that were left out are stepped over as well
  host::FollowerAnswer update(long frame);

 private:
  void startLive_();

  Base base_;
  std::string start_;
  long begin_ = 0, at_ = 0;
  cv::Rect box_;
  std::unique_ptr<host::Follower> live_;
};

/// The plug-in, and perhaps a guard beside it.
class Watched {
 public:
  Watched(const Base& base, const host::GuardChoice& guard);
  void start(const host::SourceFrame& frame, const cv::Rect& box);
  /// What a host would report of this frame.
  host::FollowerAnswer step(const host::SourceFrame& frame);
  /// Empty without a guard.
  std::optional<double> likenessOf(const cv::Mat& frame, const cv::Rect& box) const;

  csrt_guard::Verdict verdict;  ///< Of the last step.
  host::FollowerAnswer plain;   ///< The plug-in's own answer in the last step.
  std::vector<double> seen_ms;  ///< The guard's processor time in each frame that it agreed on ...
  std::vector<double> lost_ms;  ///< ... and in each other one.
  double guard_ms = 0.0;        ///< Both together.
  double tracker_ms = 0.0;      ///< Processor time of the plug-in's steps.
  int restarts = 0;

 private:
  CachedPlugin plugin_;
  std::optional<csrt_guard::Guard> guard_;
};

}  // namespace bench
