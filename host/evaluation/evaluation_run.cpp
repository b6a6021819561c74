#include "evaluation/evaluation_run.h"

#include <algorithm>
#include <chrono>
#include <cmath>
#include <cstddef>
#include <thread>
#include <utility>

#include "base/host_error.h"
#include "base/interrupt.h"
#include "base/worker_pool.h"

namespace host {
namespace {

using Clock = std::chrono::steady_clock;

cv::Rect wholePixels(const cv::Rect2d& box) {
  const auto whole = [](double v) { return static_cast<int>(std::lround(std::clamp(v, -1e6, 1e6))); };
  return {whole(box.x), whole(box.y), std::max(1, whole(box.width)), std::max(1, whole(box.height))};
}

/// A job under way: which mark comes next, and the tracker between start and end.
class RunningJob {
 public:
  explicit RunningJob(const FollowJob& job)
      : job_(job), nextMark_(static_cast<std::size_t>(job.truth.firstVisibleMark())), last_(lastFrameOf(job)) {}

  bool wants(long frame) const { return !done_ && frame >= firstFrameOf(job_); }

  void step(const Follower::Picture& picture, const SourceFrame& frame) {
    if (follower_ == nullptr && result.samples.started) {
      start_(picture, frame);
    } else {
      follow_(picture, frame);
    }
    if (frame.index >= last_) finish_();
  }

  FollowResult result;

 private:
  void start_(const Follower::Picture& picture, const SourceFrame& frame) {
    follower_ = job_.makeFollower();
    result.samples.startTime_s = frame.time_s;
    result.samples.started = follower_->init(picture, frame, wholePixels(job_.truth.marks[nextMark_].box));
    if (!result.samples.started) follower_.reset();
    ++nextMark_;
  }

  void follow_(const Follower::Picture& picture, const SourceFrame& frame) {
    FollowerAnswer answer;
    if (follower_ != nullptr) {
      answer = follower_->update(picture, frame);
      result.samples.wall_ms.push_back(answer.wall_ms);
      result.samples.cpu_ms.push_back(answer.cpu_ms);
    }
    if (nextMark_ >= job_.truth.marks.size() || job_.truth.marks[nextMark_].frame != frame.index) return;
    const TruthMark& mark = job_.truth.marks[nextMark_++];
    const std::optional<cv::Rect2d> truth = mark.absent ? std::nullopt : std::optional<cv::Rect2d>(mark.box);
    result.samples.judgements.push_back(judge(frame.index, frame.time_s, truth, answer.box, answer.seen));
  }

  void finish_() {
    done_ = result.complete = true;
    follower_.reset();  // a tracker is large, and there may be many jobs
  }

  const FollowJob& job_;
  std::size_t nextMark_;
  long last_;
  bool done_ = false;
  std::unique_ptr<Follower> follower_;
};

SourceOptions neededPart(SourceOptions source, const std::vector<FollowJob>& jobs) {
  long first = firstFrameOf(jobs.front());
  long last = 0;
  for (const FollowJob& job : jobs) {
    first = std::min(first, firstFrameOf(job));
    last = std::max(last, lastFrameOf(job));
  }
  source.start = first;
  source.frames = last - first + 1;
  return source;
}

/// A source that ends before the first mark most likely got the wrong truth; its own complaint would not say so.
std::unique_ptr<FrameSource> openPart(const SourceOptions& whole, const SourceOptions& part) {
  try {
    return openFrameSource(part);
  } catch (const HostError&) {
    if (isReadableOnce(whole.source)) throw;
    openFrameSource(whole);  // cannot be opened at all: that is then what is said
    throw HostError(ExitCode::Source, "'" + whole.source + "' ends before frame " + std::to_string(part.start) +
                                          " (counted from 0), where its truth begins");
  }
}

std::vector<RunningJob*> activeIn(std::vector<RunningJob>& jobs, long frame) {
  std::vector<RunningJob*> active;
  for (RunningJob& job : jobs) {
    if (job.wants(frame)) active.push_back(&job);
  }
  return active;
}

}  // namespace

long firstFrameOf(const FollowJob& job) {
  return job.truth.marks[static_cast<std::size_t>(job.truth.firstVisibleMark())].frame;
}

long lastFrameOf(const FollowJob& job) {
  const long last = job.truth.marks.back().frame;
  return job.maxFrames > 0 ? std::min(last, firstFrameOf(job) + job.maxFrames) : last;
}

std::vector<FollowResult> followAll(const SourceOptions& source, const std::vector<FollowJob>& jobs,
                                    const FollowOptions& options) {
  if (jobs.empty()) return {};
  const std::unique_ptr<FrameSource> frames = openPart(source, neededPart(source, jobs));
  if (options.onNote && !frames->note().empty()) options.onNote(frames->note());
  std::vector<RunningJob> running(jobs.begin(), jobs.end());
  WorkerPool pool(options.threads);
  PaceKeeper pace(options.pace == Pace::Source);
  SourceFrame frame;
  while (interruptSignal() == 0 && frames->read(frame)) {
    pace.wait(frame.time_s);
    const auto picture = std::make_shared<ocula::OculaPicture>(frame.bgr);
    const std::vector<RunningJob*> active = activeIn(running, frame.index);
    pool.forEach(active.size(), [&](std::size_t i) { active[i]->step(picture, frame); });
    if (options.onFrame) options.onFrame();
  }
  std::vector<FollowResult> results;
  for (RunningJob& job : running) results.push_back(std::move(job.result));
  return results;
}

}  // namespace host
