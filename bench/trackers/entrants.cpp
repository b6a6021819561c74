#include "entrants.h"

#include <algorithm>
#include <memory>
#include <utility>

#include "base/host_error.h"
#include "base/interrupt.h"
#include "evaluation/evaluation_run.h"

namespace bench {
namespace {

constexpr int kLongRun = 30;  // frames

/// Counts how long a follower claims to see its target elsewhere: in every frame, not only in the marked ones.
class WrongRunFollower : public host::Follower {
 public:
  WrongRunFollower(std::unique_ptr<host::Follower> real, const host::TruthTarget& truth, int& longest)
      : real_(std::move(real)), truth_(truth), longest_(longest) {}
  bool init(const Picture& picture, const host::SourceFrame& frame, const cv::Rect& box) override {
    return real_->init(picture, frame, box);
  }
  host::FollowerAnswer update(const Picture& picture, const host::SourceFrame& frame) override {
    const host::FollowerAnswer answer = real_->update(picture, frame);
    const auto truth = truthAt(truth_, frame.index);
    const double iou = truth && answer.box ? host::overlapOf(*truth, *answer.box) : 0.0;
    wrong_ = answer.seen && iou < host::kElsewhereIou ? wrong_ + 1 : 0;
    longest_ = std::max(longest_, wrong_);
    return answer;
  }

 private:
  std::unique_ptr<host::Follower> real_;
  const host::TruthTarget& truth_;
  int& longest_;
  int wrong_ = 0;
};

/// The entries that go together, in one loaded plug-in.
using Party = std::vector<Entry*>;

void followSequence(const host::Sequence& sequence, const Party& party, host::PluginLibrary* library, long maxFrames) {
  host::FollowOptions options;
  options.pace = host::Pace::Video;
  std::vector<int> longest(sequence.targets.size() * party.size(), 0);
  std::vector<host::FollowJob> jobs;
  for (const host::TruthTarget& target : sequence.targets) {
    for (const Entry* entry : party) {
      jobs.push_back({target, maxFrames, [entry, library, &target, &wrong = longest[jobs.size()]] {
                        return std::make_unique<WrongRunFollower>(entry->contestant.make(library), target, wrong);
                      }});
    }
  }
  std::vector<host::FollowResult> followed = host::followAll(sequence.source, jobs, options);
  if (host::interruptSignal() != 0) throw host::HostError(host::ExitCode::Interrupted, "interrupted");
  for (std::size_t i = 0; i < followed.size(); ++i) {
    Entry& entry = *party[i % party.size()];
    entry.results.push_back({sequence.name, sequence.targets[i / party.size()].name, entry.contestant.name,
                             followed[i].complete, std::move(followed[i].samples)});
    entry.longestWrong.push_back(longest[i]);
  }
}

LossOutcome lose(const MadeLoss& loss, host::Follower& follower) {
  const auto picture = [](const host::SourceFrame& frame) { return std::make_shared<ocula::OculaPicture>(frame.bgr); };
  return suffer(
      loss, {[&](const host::SourceFrame& frame, const cv::Rect& box) { follower.init(picture(frame), frame, box); },
             [&](const host::SourceFrame& frame) { return follower.update(picture(frame), frame); }});
}

}  // namespace

int Entry::longRuns() const {
  return static_cast<int>(
      std::count_if(longestWrong.begin(), longestWrong.end(), [](int frames) { return frames > kLongRun; }));
}

std::vector<Entry> follow(const std::vector<host::Sequence>& sequences, const std::vector<Contestant>& contestants,
                          const std::vector<PluginFile>& files, long maxFrames, const LossScenes* losses) {
  std::vector<Entry> entries;
  for (const Contestant& contestant : contestants) entries.push_back({contestant, {}, {}, {}});
  for (std::size_t f = 0; f < files.size(); ++f) {
    Party party;
    bool plugin = false;
    for (Entry& entry : entries) {
      const std::string& engine = entry.contestant.engine;
      if (engine == files[f].engine || (engine.empty() && f == 0)) party.push_back(&entry);
      plugin = plugin || engine == files[f].engine;
    }
    if (party.empty()) continue;
    const auto library = plugin ? std::make_unique<host::PluginLibrary>(files[f].path) : nullptr;
    for (const host::Sequence& sequence : sequences) followSequence(sequence, party, library.get(), maxFrames);
    if (losses == nullptr) continue;
    for (Entry* entry : party) {
      for (const MadeLoss& loss : losses->all()) {
        entry->losses.push_back(lose(loss, *entry->contestant.make(library.get())));
        if (host::interruptSignal() != 0) throw host::HostError(host::ExitCode::Interrupted, "interrupted");
      }
    }
  }
  return entries;
}

}  // namespace bench
