// Two videos of the same frames beside one another, each with a caption above it, and the last frame as a picture. Ends
// with the shorter one.
//   side_by_side LEFT CAPTION RIGHT CAPTION VIDEO PICTURE
#include <algorithm>
#include <cstdio>
#include <opencv2/imgproc.hpp>
#include <opencv2/videoio.hpp>
#include <string>

#include "base/host_error.h"
#include "picture/picture_output.h"

namespace {

struct Side {
  cv::VideoCapture video;
  std::string caption;
  cv::Mat frame;
};

void open(Side& side, const char* path, const char* caption) {
  side.caption = caption;
  if (!side.video.open(path)) throw host::HostError(host::ExitCode::Source, std::string("cannot open '") + path + "'");
}

/// The frame below its caption, `bar` pixels high.
void draw(const Side& side, int bar, cv::Mat part) {
  side.frame.copyTo(part.rowRange(bar, bar + side.frame.rows));
  const auto width = [&side](double size) {
    int baseline = 0;
    return cv::getTextSize(side.caption, cv::FONT_HERSHEY_SIMPLEX, size, 1, &baseline).width;
  };
  const double size = std::min(bar / 44.0, (part.cols - bar) / std::max(1.0, static_cast<double>(width(1.0))));
  cv::putText(part, side.caption, {bar / 3, bar * 2 / 3}, cv::FONT_HERSHEY_SIMPLEX, size, cv::Scalar(255, 255, 255), 1,
              cv::LINE_AA);
}

void join(Side& left, Side& right, const char* videoPath, const char* picturePath) {
  host::PendingFile videoFile(videoPath, "the video");
  host::PendingFile pictureFile(picturePath, "the picture");
  const cv::Size size(static_cast<int>(left.video.get(cv::CAP_PROP_FRAME_WIDTH)),
                      static_cast<int>(left.video.get(cv::CAP_PROP_FRAME_HEIGHT)));
  const int bar = size.height / 32 * 2;  // even, as encoders want it
  cv::Mat both(size.height + bar, 2 * size.width, CV_8UC3);
  host::VideoOutput out(videoFile, both.size(), left.video.get(cv::CAP_PROP_FPS));
  bool any = false;
  while (left.video.read(left.frame) && right.video.read(right.frame)) {
    if (left.frame.size() != size || right.frame.size() != size) {
      throw host::HostError(host::ExitCode::Source, "the two videos differ in size");
    }
    both.setTo(cv::Scalar(25, 25, 25));
    draw(left, bar, both.colRange(0, size.width));
    draw(right, bar, both.colRange(size.width, 2 * size.width));
    out.write(both);
    any = true;
  }
  if (!any) throw host::HostError(host::ExitCode::Source, "one of the two videos has no frames");
  out.close();
  host::writePicture(pictureFile, both);
}

}  // namespace

int main(int argc, char** argv) {
  if (argc != 7) {
    std::fprintf(stderr, "usage: side_by_side LEFT CAPTION RIGHT CAPTION VIDEO PICTURE\n");
    return 2;
  }
  try {
    Side left, right;
    open(left, argv[1], argv[2]);
    open(right, argv[3], argv[4]);
    join(left, right, argv[5], argv[6]);
  } catch (const host::HostError& error) {
    std::fprintf(stderr, "side_by_side: %s\n", error.what());
    return static_cast<int>(error.code());
  }
}
