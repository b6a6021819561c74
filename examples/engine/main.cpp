// OpenCV's tracker, replaced: one other include, one other create().
//   engine-example VIDEO X,Y,W,H
#include <csrt_engine/csrt_engine.h>

#include <cstdio>
#include <opencv2/videoio.hpp>

int main(int argc, char** argv) {
  cv::Rect box;
  if (argc != 3 || std::sscanf(argv[2], "%d,%d,%d,%d", &box.x, &box.y, &box.width, &box.height) != 4) return 2;
  cv::VideoCapture video(argv[1]);
  cv::Mat frame;
  if (!video.read(frame)) return 3;

  const cv::Ptr<cv::Tracker> tracker = csrt_engine::create();  // was: cv::tracking::TrackerCSRT::create()
  tracker->init(frame, box);
  while (video.read(frame)) {
    if (tracker->update(frame, box)) std::printf("%d,%d,%d,%d\n", box.x, box.y, box.width, box.height);
  }
}
