#include "evaluation/evaluation_run.h"

#include <algorithm>
#include <cmath>
#include <cstddef>
#include <utility>

#include "base/host_error.h"
#include "run/run_loop.h"

namespace host {
namespace {

cv::Rect wholePixels(const cv::Rect2d& box) {
  const auto whole = [](double v) { return static_cast<int>(std::lround(std::clamp(v, -1e6, 1e6))); };
  return {whole(box.x), whole(box.y), std::max(1, whole(box.width)), std::max(1, whole(box.height))};
}

/// Follows a job's target from its first visible mark to its last mark.
class FollowSession : public RunSession {
 public:
  explicit FollowSession(const FollowJob& job) : job_(job), last_(lastFrameOf(job)) {}

  bool wants(long frame) const { return frame >= firstFrameOf(job_) && worked_ < last_; }

  CallRecord step(const FramePicture& picture, const SourceFrame& frame) override {
    CallRecord record;
    record.frame = worked_ = frame.index;
    record.time_s = frame.time_s;
    record.target = job_.truth.name;
    answer_ = {};
    if (!std::exchange(tried_, true)) {
      start_(picture, frame, record);
    } else if (follower_ != nullptr) {
      answer_ = follower_->update(picture, frame);
      record.update_ms = answer_.wall_ms;
      record.seen = answer_.seen;
      if (answer_.box) record.box = cv::Rect(*answer_.box);
      record.state = answer_.seen ? TrackState::Tracked : answer_.box ? TrackState::Predicted : TrackState::Lost;
    }
    if (worked_ >= last_) follower_.reset();  // a tracker is large, and there may be many jobs
    return record;
  }

  const std::string& name() const { return job_.truth.name; }
  bool workedOn(long frame) const { return worked_ == frame; }
  bool started() const { return started_; }                 ///< False: the tracker refused the box.
  bool isComplete() const { return worked_ >= last_; }      ///< No frame is left to be worked on.
  const FollowerAnswer& answer() const { return answer_; }  ///< To the frame last worked on.

 private:
  void start_(const FramePicture& picture, const SourceFrame& frame, CallRecord& record) {
    const TruthMark& mark = job_.truth.marks[static_cast<std::size_t>(job_.truth.firstVisibleMark())];
    record.isInit = true;
    record.givenBox = wholePixels(mark.box);
    follower_ = job_.makeFollower();
    record.started = started_ = follower_->init(picture, frame, *record.givenBox);
    if (!started_) follower_.reset();
  }

  const FollowJob& job_;
  long last_;
  long worked_ = -1;
  bool tried_ = false;
  bool started_ = false;
  std::unique_ptr<Follower> follower_;
  FollowerAnswer answer_;
};

/// Holds a session's answers against the truth.
class Judge : public RunObserver {
 public:
  Judge(const FollowJob& job, const FollowSession& session)
      : job_(job), session_(session), nextMark_(static_cast<std::size_t>(job.truth.firstVisibleMark())) {}

  void frame(const SourceFrame& frame, const std::vector<CallRecord>& /*records*/) override {
    if (!session_.workedOn(frame.index)) return;
    if (!begun_) {
      begin_(frame);
    } else {
      judge_(frame);
    }
    result_.complete = session_.isComplete();
  }

  FollowResult take() { return std::move(result_); }

 private:
  void begin_(const SourceFrame& frame) {
    begun_ = true;
    result_.samples.startTime_s = frame.time_s;
    result_.samples.started = session_.started();
    ++nextMark_;
  }

  void judge_(const SourceFrame& frame) {
    const FollowerAnswer& answer = session_.answer();
    if (session_.started()) {
      result_.samples.wall_ms.push_back(answer.wall_ms);
      result_.samples.cpu_ms.push_back(answer.cpu_ms);
    }
    if (nextMark_ >= job_.truth.marks.size() || job_.truth.marks[nextMark_].frame != frame.index) return;
    const TruthMark& mark = job_.truth.marks[nextMark_++];
    const std::optional<cv::Rect2d> truth = mark.absent ? std::nullopt : std::optional<cv::Rect2d>(mark.box);
    result_.samples.judgements.push_back(judge(frame.index, frame.time_s, truth, answer.box, answer.seen));
  }

  const FollowJob& job_;
  const FollowSession& session_;
  std::size_t nextMark_;
  bool begun_ = false;
  FollowResult result_;
};

/// Gives each frame to the jobs whose marks lie around it.
class FollowDirector : public RunDirector {
 public:
  explicit FollowDirector(const std::vector<FollowJob>& jobs) : sessions_(jobs.begin(), jobs.end()) {}

  void begin(const SourceFrame& /*first*/, RunInfo& info) override {
    for (const FollowSession& session : sessions_) info.targets.push_back(session.name());
  }
  std::vector<RunSession*> sessions(SourceFrame& frame) override {
    std::vector<RunSession*> active;
    for (FollowSession& session : sessions_) {
      if (session.wants(frame.index)) active.push_back(&session);
    }
    return active;
  }
  const std::vector<FollowSession>& all() const { return sessions_; }

 private:
  std::vector<FollowSession> sessions_;
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
  FollowDirector director(jobs);
  std::vector<Judge> judges;
  for (std::size_t i = 0; i < jobs.size(); ++i) judges.emplace_back(jobs[i], director.all()[i]);
  std::vector<RunObserver*> observers;
  for (Judge& judge : judges) observers.push_back(&judge);
  observers.insert(observers.end(), options.observers.begin(), options.observers.end());
  runLoop({*frames, director, observers, options.pace, options.threads, {}});
  std::vector<FollowResult> results;
  for (Judge& judge : judges) results.push_back(judge.take());
  return results;
}

}  // namespace host
