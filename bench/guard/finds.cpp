// guard_comparison finds: how good are the guard's finds by themselves? It is told where the target is up to a frame,
// then nothing any more, and for so many frames a board covers the target. No tracker.
#include <algorithm>
#include <array>
#include <cstdio>

#include "made_losses.h"
#include "options.h"

namespace bench {
namespace {

constexpr std::array<int, 3> kCovered = {0, 8, 30};
constexpr long kPatience = 60;

/// One loss and the first find after it.
struct Find {
  const host::TruthTarget* target = nullptr;
  std::size_t mark = 0;  ///< The last one that the guard is told.
  int covered = 0;       ///< Frames.
  bool found = false;
  bool whileCovered = false;
  int delay = 0;     ///< Frames after the cover is gone.
  double iou = 0.0;  ///< With the truth.
  double like = 0.0, truthLike = 0.0, usual = 0.0, around = 0.0;
};

csrt_guard::Guard taughtUpTo(const Find& find, const Footage& footage) {
  csrt_guard::Guard guard;
  const auto& marks = find.target->marks;
  const long first = marks[static_cast<std::size_t>(find.target->firstVisibleMark())].frame;
  guard.start(footage.at(first).bgr, whole(*truthAt(*find.target, first)));
  for (long i = first + 1; i <= marks[find.mark].frame; ++i) {
    const auto truth = truthAt(*find.target, i);
    csrt_guard::Answer told;
    if (truth) told = {whole(*truth), true};
    if (guard.judge(footage.at(i).bgr, told).restart) guard.judge(footage.at(i).bgr, told);
  }
  return guard;
}

void loseAndFind(Find& find, const Footage& footage) {
  csrt_guard::Guard guard = taughtUpTo(find, footage);
  const long lost = find.target->marks[find.mark].frame;
  for (long i = lost + 1; i < lost + find.covered + kPatience && i < footage.count(); ++i) {
    const auto truth = truthAt(*find.target, i);
    if (!truth) return;
    const bool hidden = i <= lost + find.covered;
    const cv::Mat frame = hidden ? covered(footage.at(i).bgr, *truth) : footage.at(i).bgr;
    const csrt_guard::Verdict v = guard.judge(frame, {});
    if (!v.restart) continue;
    find.found = true;
    find.whileCovered = hidden;
    find.delay = static_cast<int>(i - lost - find.covered);
    find.iou = host::overlapOf(*v.box, *truth);
    find.like = v.likeness.value_or(0);
    find.usual = v.usual.value_or(0);
    find.around = v.around.value_or(0);
    find.truthLike = guard.likenessOf(frame, whole(*truth)).value_or(0);
    return;
  }
}

void printWrong(const std::vector<Find>& finds) {
  for (const Find& f : finds) {
    if (!f.found || f.iou >= 0.3) continue;
    std::printf("  %s mark %zu covered %d delay %d iou %.2f like %.2f truth %.2f usual %.2f around %.2f\n",
                f.target->name.c_str(), f.mark, f.covered, f.delay, f.iou, f.like, f.truthLike, f.usual, f.around);
  }
}

void printLine(int covered, const std::vector<Find>& finds) {
  int n = 0, right = 0, wrong = 0, near = 0, none = 0, early = 0;
  double delay = 0.0, iou = 0.0;
  for (const Find& f : finds) {
    if (f.covered != covered) continue;
    ++n;
    early += f.whileCovered;
    if (!f.found) {
      ++none;
    } else if (f.iou >= 0.3) {
      ++right;
      delay += f.delay;
      iou += f.iou;
    } else {
      ++(f.iou >= 0.1 ? near : wrong);
    }
  }
  const auto share = [n](int count) { return static_cast<double>(count) / std::max(1, n); };
  std::printf(
      "covered %2d: %d losses: right %.2f near %.2f wrong %.2f none %.2f; while covered %.2f; delay %.1f iou %.2f\n",
      covered, n, share(right), share(near), share(wrong), share(none), share(early), delay / std::max(1, right),
      iou / std::max(1, right));
}

}  // namespace

void judgeFinds(const GuardOptions& options) {
  const Footage footage(options.clip, options.footage);
  const auto targets = targetsOf(options, footage);
  std::vector<Find> finds;
  for (const host::TruthTarget& target : targets) {
    for (std::size_t m = 2; m + 2 < target.marks.size(); m += 2) {
      for (const int covered : kCovered) {
        Find find;
        find.target = &target;
        find.mark = m;
        find.covered = covered;
        finds.push_back(find);
      }
    }
  }
  inThreads(options.threads, finds.size(), [&](std::size_t i) { loseAndFind(finds[i], footage); });
  if (options.trace) printWrong(finds);
  for (const int covered : kCovered) printLine(covered, finds);
}

}  // namespace bench
