// OpenCV's KCF tracker, watched by the guard: prints what can be said of the target in each frame. Any tracker that can
// be started on a box goes in its place.
//   guarded-host VIDEO X,Y,W,H [--alone]      --alone: the tracker's own answers, for comparison
#include <csrt_guard/csrt_guard.h>

#include <cstdio>
#include <cstring>
#include <opencv2/tracking.hpp>
#include <opencv2/videoio.hpp>

static cv::Ptr<cv::Tracker> trackerOn(const cv::Mat& frame, const cv::Rect& box) {
  const cv::Ptr<cv::Tracker> tracker = cv::tracking::TrackerKCF::create();
  tracker->init(frame, box & cv::Rect({}, frame.size()));
  return tracker;
}

static csrt_guard::Answer answerOf(cv::Tracker& tracker, const cv::Mat& frame) {
  cv::Rect box;
  if (!tracker.update(frame, box)) return {};  // neither a box nor seen
  return {box, true};
}

static void print(int frame, const csrt_guard::Verdict& verdict) {
  const cv::Rect box = verdict.box.value_or(cv::Rect());
  std::printf("%d %s %s %d,%d,%d,%d: %s\n", frame, csrt_guard::name(verdict.state), verdict.seen ? "seen" : "unseen",
              box.x, box.y, box.width, box.height, verdict.reason);
}

int main(int argc, char** argv) {
  cv::Rect box;
  if (argc < 3 || std::sscanf(argv[2], "%d,%d,%d,%d", &box.x, &box.y, &box.width, &box.height) != 4) {
    std::fprintf(stderr, "usage: guarded-host VIDEO X,Y,W,H [--alone]\n");
    return 2;
  }
  const bool alone = argc > 3 && std::strcmp(argv[3], "--alone") == 0;
  cv::VideoCapture video(argv[1]);
  cv::Mat frame;
  if (!video.read(frame) || (box & cv::Rect({}, frame.size())).empty()) {
    std::fprintf(stderr, "guarded-host: no picture in '%s', or nothing of the box in it\n", argv[1]);
    return 1;
  }

  cv::Ptr<cv::Tracker> tracker = trackerOn(frame, box);
  csrt_guard::Guard guard;
  if (!alone && !guard.start(frame, box)) std::fprintf(stderr, "guarded-host: nothing to judge by in this box\n");

  for (int number = 1; video.read(frame); ++number) {
    const csrt_guard::Verdict verdict = guard.judge(frame, answerOf(*tracker, frame));
    if (verdict.restart) tracker = trackerOn(frame, *verdict.box);
    print(number, verdict);
  }
}
