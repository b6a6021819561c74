#include "walk.h"

#include <algorithm>
#include <cstdio>

namespace bench {
namespace {

/// Whose truth the box overlaps most.
std::string whoIs(const std::optional<cv::Rect2d>& box, long frame, const std::vector<host::TruthTarget>& everybody) {
  std::string who = "-";
  double best = 0.2;
  for (const host::TruthTarget& other : everybody) {
    const auto there = truthAt(other, frame);
    const double common = there && box ? host::overlapOf(*there, *box) : 0.0;
    if (common <= best) continue;
    best = common;
    who = other.name;
  }
  return who;
}

void printTrace(const Walk& walk, const Watched& watched, const host::SourceFrame& frame,
                const host::FollowerAnswer& answer, const std::vector<host::TruthTarget>& everybody) {
  const auto truth = truthAt(*walk.target, frame.index);
  const auto overlap = [&truth](const std::optional<cv::Rect2d>& box) {
    return truth && box ? host::overlapOf(*truth, *box) : 0.0;
  };
  const csrt_guard::Verdict& v = watched.verdict;
  if (truth) std::printf("truth at (%.0f,%.0f)\n", truth->x + truth->width / 2, truth->y + truth->height / 2);
  std::printf("truthlike %.2f on %s base %s ", truth ? watched.likenessOf(frame.bgr, whole(*truth)).value_or(-1) : -1.0,
              whoIs(answer.box, frame.index, everybody).c_str(),
              whoIs(watched.plain.box, frame.index, everybody).c_str());
  std::printf(
      "  %s+%d f%ld base seen%d iou %.2f | %s iou %.2f like %.2f usual %.2f around %.2f belief %.2f lost %d %s%s\n",
      walk.target->name.c_str(), walk.start, frame.index, watched.plain.seen, overlap(watched.plain.box),
      csrt_guard::name(v.state), overlap(answer.box), v.likeness.value_or(-1), v.usual.value_or(-1),
      v.around.value_or(-1), v.belief.value_or(-1), v.framesLost, v.reason, v.restart ? " RESTART" : "");
  if (!v.opinion) return;
  const cv::Rect2d there(v.opinion->box);
  std::printf("  opinion %.2f iou %.2f on %s\n", v.opinion->score, overlap(there),
              whoIs(there, frame.index, everybody).c_str());
}

}  // namespace

void follow(Walk& walk, host::PluginLibrary& library, AnswerCache& cache, const std::vector<host::TruthTarget>& trace) {
  const Footage& footage = *walk.footage;
  const auto& marks = walk.target->marks;
  const Base base{&library, walk.preset, footage.scene(), [&footage](long i) { return footage.at(i); }, &cache};
  Watched watched(base, walk.choice);
  const std::size_t first =
      std::min(marks.size() - 1, static_cast<std::size_t>(walk.target->firstVisibleMark() + walk.start));
  const long begin = marks[first].frame;
  watched.start(footage.at(begin), whole(marks[first].box));
  host::TargetSamples samples;
  int wrong = 0;
  std::size_t next = first + 1;
  for (long i = begin + 1; i <= marks.back().frame && i < footage.count(); ++i) {
    const host::SourceFrame frame = footage.at(i);
    const host::FollowerAnswer answer = watched.step(frame);
    walk.answers.push_back(answer);
    const auto truth = truthAt(*walk.target, i);
    const double iou = truth && answer.box ? host::overlapOf(*truth, *answer.box) : 0.0;
    wrong = answer.seen && iou < host::kElsewhereIou ? wrong + 1 : 0;
    walk.longestWrong = std::max(walk.longestWrong, wrong);
    if (watched.verdict.restart && iou >= kRightOverlap) ++walk.restartsRight;
    if (!trace.empty()) printTrace(walk, watched, frame, answer, trace);
    if (next == marks.size() || marks[next].frame != i) continue;
    const host::TruthMark& mark = marks[next++];
    samples.judgements.push_back(host::judge(
        i, frame.time_s, mark.absent ? std::nullopt : std::optional<cv::Rect2d>(mark.box), answer.box, answer.seen));
  }
  walk.sums = host::sumsOf(samples);
  walk.restarts = watched.restarts;
  walk.seen_ms = watched.seen_ms;
  walk.lost_ms = watched.lost_ms;
  walk.guard_ms = watched.guard_ms;
  walk.tracker_ms = watched.tracker_ms;
}

bool sameAnswers(const Walk& a, const Walk& b) {
  return std::equal(a.answers.begin(), a.answers.end(), b.answers.begin(), b.answers.end(),
                    [](const auto& x, const auto& y) { return x.box == y.box && x.seen == y.seen; });
}

}  // namespace bench
