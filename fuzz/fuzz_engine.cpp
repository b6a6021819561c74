// The tracking engine beside OpenCV's tracker: any picture, any box, any switches, pictures that change size and type.
// Both throw or neither does, both find the target or neither does, and the boxes are at most a pixel apart.
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <opencv2/imgproc.hpp>
#include <opencv2/tracking.hpp>
#include <optional>

#include "csrt_engine/csrt_engine.h"

namespace {

using Tracker = cv::tracking::TrackerCSRT;

class Bytes {
 public:
  Bytes(const std::uint8_t* data, std::size_t size) : data_(data), size_(size) {}
  bool done() const { return size_ == 0; }
  int next() {
    if (done()) return 0;
    --size_;
    return *data_++;
  }
  int between(int low, int high) { return low + next() % (high - low + 1); }

 private:
  const std::uint8_t* data_;
  std::size_t size_;
};

cv::Mat drawnPicture(Bytes& bytes) {
  const int kind = bytes.next();
  if (kind == 255) return {};
  const int type = kind < 160 ? CV_8UC3 : kind < 240 ? CV_8UC1 : kind < 248 ? CV_16UC3 : CV_8UC4;
  cv::Mat picture(bytes.between(1, 100), bytes.between(1, 100), type);
  cv::RNG random(static_cast<std::uint64_t>(bytes.next()));
  const int contrast = bytes.next();
  random.fill(picture, cv::RNG::UNIFORM, 0, contrast + 1);
  if (kind % 2) cv::blur(picture, picture, {1 + kind % 7, 1 + kind % 5});
  return picture;
}

Tracker::Params drawnParams(Bytes& bytes) {
  Tracker::Params p;
  const int switches = bytes.next();
  p.use_hog = (switches & 1) == 0;
  p.use_color_names = (switches & 2) == 0;
  p.use_gray = (switches & 4) == 0 || (switches & 3) == 3;
  p.use_rgb = (switches & 8) != 0;
  p.use_segmentation = (switches & 16) == 0;
  p.use_channel_weights = (switches & 32) == 0;
  if (switches & 64) p.window_function = "kaiser";
  if (switches & 128) {
    p.num_hog_channels_used = bytes.between(1, 32);
    p.template_size = static_cast<float>(bytes.between(20, 220));
    p.number_of_scales = bytes.between(1, 40);
    p.histogram_bins = bytes.between(2, 20);
    p.background_ratio = bytes.between(1, 4);
    p.admm_iterations = bytes.between(0, 5);
  }
  return p;
}

struct Answer {
  bool threw = false, found = false;
  cv::Rect box;
};

template <typename Action>
Answer answerOf(Action&& action) {
  Answer answer;
  try {
    action(answer);
  } catch (const cv::Exception&) {
    answer.threw = true;
  }
  return answer;
}

bool alike(const Answer& a, const Answer& b) {
  return a.threw == b.threw && a.found == b.found && std::abs(a.box.x - b.box.x) <= 1 &&
         std::abs(a.box.y - b.box.y) <= 1 && std::abs(a.box.width - b.box.width) <= 1 &&
         std::abs(a.box.height - b.box.height) <= 1;
}

void require(bool holds, const char* what, const Answer& a, const Answer& b) {
  if (holds) return;
  std::fprintf(stderr, "fuzz_engine: %s: engine %d %d [%d %d %d %d], OpenCV %d %d [%d %d %d %d]\n", what, a.threw,
               a.found, a.box.x, a.box.y, a.box.width, a.box.height, b.threw, b.found, b.box.x, b.box.y, b.box.width,
               b.box.height);
  std::abort();
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  static const bool quiet = [] {
    cv::setNumThreads(1);
    cv::redirectError([](int, const char*, const char*, const char*, int, void*) { return 0; });
    return true;
  }();
  (void)quiet;
  Bytes bytes(data, size);
  const Tracker::Params params = drawnParams(bytes);
  const cv::Ptr<Tracker> ours = csrt_engine::create(params), theirs = Tracker::create(params);
  const cv::Mat first = drawnPicture(bytes);
  const cv::Rect box(bytes.between(-40, 100), bytes.between(-40, 100), bytes.between(-2, 120), bytes.between(-2, 120));
  const Answer a = answerOf([&](Answer&) { ours->init(first, box); });
  const Answer b = answerOf([&](Answer&) { theirs->init(first, box); });
  require(alike(a, b), "init", a, b);
  if (a.threw) return 0;
  for (int frame = 0; frame < 3 && !bytes.done(); ++frame) {
    const cv::Mat next = bytes.next() % 2 ? first : drawnPicture(bytes);
    const auto step = [&next](Tracker& tracker) {
      return answerOf([&](Answer& answer) { answer.found = tracker.update(next, answer.box); });
    };
    const Answer mine = step(*ours);
    if (next.depth() != CV_8U || next.channels() > 3) return 0;  // OpenCV's reads beside the picture there
    const Answer other = step(*theirs);
    require(alike(mine, other), "update", mine, other);
    if (mine.threw) return 0;
  }
  return 0;
}
