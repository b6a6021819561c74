#include "dlib_follower.h"

// clang-format off
#include <dlib/image_transforms.h>  // first: the tracker's header leaves its features to it
#include <dlib/image_processing/correlation_tracker.h>
// clang-format on
#include <dlib/opencv/cv_image.h>

#include <chrono>

namespace bench {
namespace {

using Pixels = dlib::cv_image<dlib::bgr_pixel>;  // the frame's own pixels, not a copy

class DlibFollower : public host::Follower {
 public:
  bool init(const Picture& picture, const host::SourceFrame& /*frame*/, const cv::Rect& box) override {
    const cv::Mat frame = picture->getBGR();
    const cv::Rect inside = box & cv::Rect({}, frame.size());
    if (inside.empty()) return false;
    tracker_.start_track(Pixels(frame), dlib::drectangle(inside.x, inside.y, inside.br().x - 1, inside.br().y - 1));
    return true;
  }

  host::FollowerAnswer update(const Picture& picture, const host::SourceFrame& /*frame*/) override {
    using Clock = std::chrono::steady_clock;
    const Clock::time_point begin = Clock::now();
    const double cpuBegin = host::threadMilliseconds();
    tracker_.update(Pixels(picture->getBGR()));
    host::FollowerAnswer answer;
    answer.cpu_ms = host::threadMilliseconds() - cpuBegin;
    answer.wall_ms = std::chrono::duration<double, std::milli>(Clock::now() - begin).count();
    const dlib::drectangle at = tracker_.get_position();  // its corners are pixels, both inside
    answer.box = cv::Rect2d(at.left(), at.top(), at.width(), at.height());
    answer.seen = true;
    return answer;
  }

 private:
  dlib::correlation_tracker tracker_;
};

}  // namespace

std::unique_ptr<host::Follower> makeDlibFollower() {
  return std::make_unique<DlibFollower>();
}

}  // namespace bench
