#include "bench_support.h"

#include <algorithm>
#include <cmath>
#include <cstdlib>
#include <ctime>
#include <opencv2/imgproc.hpp>
#include <stdexcept>

namespace bench {
namespace {

constexpr int kShortSteps = 3;
constexpr double kFrameSeconds = 0.04;
constexpr double kStepAngle = 0.04;  // radians per frame
constexpr double kRadius = 40.0;     // pixels
constexpr int kCell = 6;             // pixels; the target's pattern

double milliseconds(clockid_t clock) {
  timespec time{};
  clock_gettime(clock, &time);
  return static_cast<double>(time.tv_sec) * 1e3 + static_cast<double>(time.tv_nsec) * 1e-6;
}

// Drawn at the largest size in use; smaller frames are its middle.
const cv::Mat& background() {
  static const cv::Mat picture = [] {
    cv::RNG random(20240611);
    cv::Mat coarse(2160 / 24, 3840 / 24, CV_8UC3);
    cv::Mat fine(2160, 3840, CV_8UC3);
    random.fill(coarse, cv::RNG::UNIFORM, cv::Scalar::all(60), cv::Scalar::all(190));
    random.fill(fine, cv::RNG::UNIFORM, cv::Scalar::all(0), cv::Scalar::all(24));
    cv::Mat whole;
    cv::resize(coarse, whole, fine.size(), 0.0, 0.0, cv::INTER_CUBIC);
    return cv::Mat(whole + fine);
  }();
  return picture;
}

cv::Mat cells(const cv::Size& size) {
  cv::RNG random(42);
  cv::Mat picture(size, CV_8UC3);
  for (int y = 0; y < size.height; y += kCell) {
    for (int x = 0; x < size.width; x += kCell) {
      const cv::Scalar colour(random.uniform(0, 256), random.uniform(0, 256), random.uniform(0, 256));
      cv::rectangle(picture, cv::Rect(x, y, kCell, kCell), colour, cv::FILLED);
    }
  }
  return picture;
}

}  // namespace

int steps(int full) {
  return std::getenv("CSRT_BENCH_SHORT") != nullptr ? std::min(full, kShortSteps) : full;
}

Moment now() {
  return {milliseconds(CLOCK_MONOTONIC), milliseconds(CLOCK_PROCESS_CPUTIME_ID)};
}

Moment operator-(const Moment& a, const Moment& b) {
  return {a.wall - b.wall, a.cpu - b.cpu};
}

double percentileOf(std::vector<double> values, double share) {
  if (values.empty()) return 0.0;
  const auto place = static_cast<std::ptrdiff_t>(std::lround(share * static_cast<double>(values.size() - 1)));
  std::nth_element(values.begin(), values.begin() + place, values.end());
  return values[static_cast<std::size_t>(place)];
}

double medianOf(std::vector<double> values) {
  return percentileOf(std::move(values), 0.5);
}

double medianRatio(const Samples& a, const Samples& b) {
  std::vector<double> ratios;
  for (std::size_t i = 0; i < std::min(a.cpu().size(), b.cpu().size()); ++i) ratios.push_back(a.cpu()[i] / b.cpu()[i]);
  return medianOf(std::move(ratios));
}

void Samples::add(const Moment& duration) {
  wall_.push_back(duration.wall);
  cpu_.push_back(duration.cpu);
}

double Samples::median() const {
  return medianOf(wall_);
}

double Samples::p95() const {
  return percentileOf(wall_, 0.95);
}

double Samples::cpuMedian() const {
  return medianOf(cpu_);
}

double Samples::cpuP95() const {
  return percentileOf(cpu_, 0.95);
}

MovingTarget::MovingTarget(const cv::Size& frame, const cv::Size& target) : target_(cells(target)) {
  const cv::Mat& whole = background();
  const cv::Point corner((whole.cols - frame.width) / 2, (whole.rows - frame.height) / 2);
  pixels_ = whole(cv::Rect(corner, frame)).clone();
  frames_ = {std::make_shared<ocula::OculaPicture>(pixels_)};
}

const CSRTTrackingAlgo::Frames& MovingTarget::next() {
  if (!covered_.empty()) covered_.copyTo(pixels_(box_));
  const double angle = kStepAngle * index_++;
  const cv::Point middle(pixels_.cols / 2, pixels_.rows / 2);
  const cv::Point offset(cvRound(kRadius * std::cos(angle)), cvRound(kRadius * std::sin(angle)));
  const cv::Point half(target_.cols / 2, target_.rows / 2);
  box_ = cv::Rect(middle + offset + jump_ - half, target_.size());
  pixels_(box_).copyTo(covered_);
  if (visible_) target_.copyTo(pixels_(box_));
  return frames_;
}

double overlap(const cv::Rect& a, const cv::Rect& b) {
  const double common = (a & b).area();
  const double together = a.area() + b.area() - common;
  return together > 0.0 ? common / together : 0.0;
}

bool WatchedTracker::update(cv::InputArray picture, cv::Rect& box) {
  pixels = picture.getMat();
  bool found = false;
  spent = timeOf([&] { found = real_->update(picture, box); });
  return found;
}

void OpenAlgo::start(MovingTarget& scene) {
  scene.next();
  const cv::Rect box = scene.box();
  bool started = false;
  init(scene.frames(), {box.x, box.y, box.width, box.height}, &started);
  if (!started) throw std::runtime_error("the plug-in did not start on the drawn target");
}

OpenAlgo::OpenAlgo() {
  health_ = CsrtTrackerHealth([this] { return frameTime_; });
}

cv::Rect OpenAlgo::step(const MovingTarget& scene) {
  frameTime_ += kFrameSeconds;
  update(scene.frames(), nullptr);
  return trackBox_;
}

cv::Ptr<WatchedTracker> OpenAlgo::watch() {
  const auto watched = cv::makePtr<WatchedTracker>(tracker_);
  tracker_ = watched;
  return watched;
}

cv::Ptr<cv::tracking::TrackerCSRT> bareTracker(const OpenAlgo& algo) {
  return cv::tracking::TrackerCSRT::create(algo.makeCSRTParams_());
}

}  // namespace bench
