// Prints everything that the plug-in answers on a video, and its log without times: what a change made for speed must
// leave as it is. compare_answers.sh runs it at two revisions.
#include <cstdio>
#include <cstdlib>
#include <opencv2/core.hpp>
#include <opencv2/imgproc.hpp>
#include <opencv2/videoio.hpp>
#include <string>
#include <vector>

#include "csrt_tracking_algo.h"

namespace {

/// One track from start to end.
struct Run {
  const char* name;
  const char* config;
  cv::Rect2d box;  ///< Share of the frame.
  int frames;
  cv::Size frame;    ///< Resized to it; empty: as it is.
  int hiddenFrom;    ///< Black frames from here on ...
  int hiddenFrames;  ///< ... so many.
};

const std::vector<Run>& runs() {
  static const std::vector<Run> list{
      {"default", "{}", {0.49, 0.17, 0.030, 0.11}, 120, {}, 60, 14},
      {"eager",
       R"({"redetect": {"coarse_factor": 1.0, "re_detect_threshold": 0.6, "frames_lost_before_reset": 2}})",
       {0.49, 0.17, 0.030, 0.11},
       120,
       {},
       40,
       10},
      {"refined", R"({"input": {"refine_init": true}})", {0.60, 0.55, 0.06, 0.16}, 60, {}, 1000, 0},
      {"unfrozen",
       R"({"roi": {"freeze_input_size": false, "round_to": 8}, "predict": {"bbox_smooth_enable": true}})",
       {0.30, 0.30, 0.08, 0.20},
       80,
       {},
       30,
       3},
      {"whole_frame",
       R"({"roi": {"enable": false}, "csrt": {"template_size": 100}})",
       {0.30, 0.40, 0.05, 0.12},
       40,
       {},
       20,
       2},
      {"gray_small",
       R"({"csrt": {"use_gray": true, "filter_lr": 0.02}, "redetect": {"frames_lost_before_reset": 1}})",
       {0.70, 0.20, 0.025, 0.08},
       80,
       {},
       30,
       6},
      {"large_frame",
       R"({"redetect": {"frames_lost_before_reset": 1}})",
       {0.49, 0.17, 0.030, 0.11},
       30,
       {3840, 2160},
       10,
       5},
      {"hd_frame",
       R"({"redetect": {"frames_lost_before_reset": 1, "coarse_factor": 0.9}})",
       {0.49, 0.17, 0.030, 0.11},
       40,
       {1920, 1080},
       10,
       6},
  };
  return list;
}

class Answers : public CSRTTrackingAlgo {
 public:
  void print(int frame) const {
    std::printf("%d track=%d,%d,%d,%d window=%d,%d,%d,%d score=%.17g lost=%d attempts=%d velocity=%.9g,%.9g\n", frame,
                trackBox_.x, trackBox_.y, trackBox_.width, trackBox_.height, procRoi_.x, procRoi_.y, procRoi_.width,
                procRoi_.height, lastScore_, lostFrames_, redetectAttempts_, static_cast<double>(velocity_.x),
                static_cast<double>(velocity_.y));
  }
};

bool tryRead(cv::VideoCapture& video, const Run& run, int index, cv::Mat& frame) {
  if (!video.read(frame)) return false;
  if (!run.frame.empty()) cv::resize(frame, frame, run.frame, 0.0, 0.0, cv::INTER_CUBIC);
  if (index >= run.hiddenFrom && index < run.hiddenFrom + run.hiddenFrames) frame.setTo(0);
  return true;
}

void track(const std::string& path, const Run& run) {
  cv::VideoCapture video(path);
  Answers algo;
  algo.setConfig(run.config);
  algo.enableDebug(true);
  cv::Mat frame;
  std::printf("== %s\n", run.name);
  for (int i = 0; i < run.frames && tryRead(video, run, i, frame); ++i) {
    const CSRTTrackingAlgo::Frames frames{std::make_shared<ocula::OculaPicture>(frame.clone())};
    if (i == 0) {
      const BBox box{cvRound(run.box.x * frame.cols), cvRound(run.box.y * frame.rows),
                     cvRound(run.box.width * frame.cols), cvRound(run.box.height * frame.rows)};
      bool started = false;
      algo.init(frames, box, &started);
    } else {
      algo.update(frames, nullptr);
    }
    algo.print(i);
  }
}

}  // namespace

int main(int argc, char** argv) {
  if (argc < 2 || !cv::VideoCapture(argv[1]).isOpened()) {
    std::fprintf(stderr, "answers: give a video that can be read\n");
    return 2;
  }
  for (const Run& run : runs()) {
    if (argc < 3 || std::string(argv[2]) == run.name) track(argv[1], run);
  }
  return 0;
}
