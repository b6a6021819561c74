// How soon is a lost target held again, and what is claimed while there is none? The plug-in and the bare tracker of
// OpenCV on the whole frame, with the same parameters, side by side on the same frames. Then: what a search costs.
// Budget of a search: two tracker steps at 1920 x 1080, four at 3840 x 2160, on one thread.
//
// usage: recovery_comparison [--cost | CLIP] [--json FILE]
//   --cost  only what a search costs
//   CLIP  the surveillance clip vtest.avi; without it the scenes are drawn over a still drawn ground, and the walker
//         who passes behind the lamp post is left out
//   --json  the first table as JSON too, for page_plots.py
// The scenes depend on nothing but the clip: the boxes are the same in every run.
#include <algorithm>
#include <cstdio>
#include <ctime>
#include <fstream>
#include <functional>
#include <memory>
#include <nlohmann/json.hpp>
#include <opencv2/core.hpp>
#include <opencv2/imgproc.hpp>
#include <opencv2/tracking.hpp>
#include <opencv2/videoio.hpp>
#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

#include "csrt_tracking_algo.h"

namespace {

constexpr int kFirstFrame = 240;  // of the clip: the walker comes in from the right
constexpr int kFrames = 200;
constexpr double kHeld = 0.5;    // overlap from which a target is held ...
constexpr int kHeldInARow = 5;   // ... for this many frames
constexpr double kClipFps = 10;  // of the clip; what the plug-in takes for the time

double overlap(const cv::Rect& a, const cv::Rect& b) {
  const double common = (a & b).area();
  const double together = a.area() + b.area() - common;
  return together > 0.0 ? common / together : 0.0;
}

// ----------------------------------------------------------------------------------------------------- trackers

struct Answer {
  cv::Rect box;            ///< Empty: none.
  bool predicted = false;  ///< Extrapolated, not seen.
};

class Contestant {
 public:
  virtual ~Contestant() = default;
  virtual void start(const cv::Mat& frame, const cv::Rect& box) = 0;
  virtual Answer step(const cv::Mat& frame) = 0;
};

std::shared_ptr<ocula::OculaPicture> pictureOf(const cv::Mat& frame) {
  return std::make_shared<ocula::OculaPicture>(frame);
}

class PlugIn : public CSRTTrackingAlgo, public Contestant {
 public:
  PlugIn() {
    health_ = CsrtTrackerHealth([this] { return time_; });
  }
  void start(const cv::Mat& frame, const cv::Rect& box) override {
    bool started = false;
    init({pictureOf(frame)}, {box.x, box.y, box.width, box.height}, &started);
    if (!started) throw std::runtime_error("the plug-in did not start");
  }
  Answer step(const cv::Mat& frame) override {
    time_ += 1.0 / kClipFps;
    const std::vector<AlgoOutput> outputs = update({pictureOf(frame)}, nullptr);
    const auto& record = std::get<AlgoValue::Object>(outputs.front().value);
    const auto& detections = std::get<AlgoValue::Array>(record.front().second);
    if (detections.empty()) return {};
    const auto& fields = std::get<AlgoValue::Object>(detections.front());
    const auto number = [&fields](std::size_t i) { return static_cast<int>(std::get<long>(fields.at(i).second)); };
    return {{number(0), number(1), number(2), number(3)}, lostFrames_ > 0};
  }

  using CSRTTrackingAlgo::buildFullYFromVP_Locked_;
  using CSRTTrackingAlgo::computeOrigAppearanceAt_;
  using CSRTTrackingAlgo::config_;
  using CSRTTrackingAlgo::createTracker_;
  using CSRTTrackingAlgo::dynPatchGpu_;
  using CSRTTrackingAlgo::findBestInROI_GPU_Locked_;
  using CSRTTrackingAlgo::fullGrayGpu_;
  using CSRTTrackingAlgo::initBoxInCrop_;
  using CSRTTrackingAlgo::initCrop_;
  using CSRTTrackingAlgo::makeCSRTParams_;
  using CSRTTrackingAlgo::origPatchGpu_;
  using CSRTTrackingAlgo::redetectAttempts_;
  using CSRTTrackingAlgo::reDetectGlobally_Locked_;
  using CSRTTrackingAlgo::trackBox_;
  using CSRTTrackingAlgo::tracker_;

 private:
  double time_ = 1.0;  ///< Seconds.
};

class BareTracker : public Contestant {
 public:
  void start(const cv::Mat& frame, const cv::Rect& box) override {
    box_ = box;
    tracker_->init(frame, box);
  }
  Answer step(const cv::Mat& frame) override {
    if (!tracker_->update(frame, box_)) return {};
    return {box_ & cv::Rect({}, frame.size()), false};
  }

 private:
  class Defaults : public CSRTTrackingAlgo {
   public:
    using CSRTTrackingAlgo::makeCSRTParams_;
  };
  cv::Ptr<cv::tracking::TrackerCSRT> tracker_ = cv::tracking::TrackerCSRT::create(Defaults().makeCSRTParams_());
  cv::Rect box_;
};

// ------------------------------------------------------------------------------------------------------- scenes

struct Scene {
  std::string name;
  int frames = 0;
  int back = 0;                        ///< First frame on which the target can be held again.
  std::function<cv::Mat(int)> frame;   ///< By index.
  std::function<cv::Rect(int)> truth;  ///< By index; empty: nothing there.
};

/// Cells of random colour.
cv::Mat cells(const cv::Size& size, int cell, int low, int high, std::uint64_t seed) {
  cv::RNG random(seed * 0x9E3779B97F4A7C15U);
  cv::Mat picture(size, CV_8UC3);
  for (int y = 0; y < size.height; y += cell) {
    for (int x = 0; x < size.width; x += cell) {
      const int blue = random.uniform(low, high);
      const int green = random.uniform(low, high);
      cv::rectangle(picture, cv::Rect(x, y, cell, cell), cv::Scalar(blue, green, random.uniform(low, high)),
                    cv::FILLED);
    }
  }
  return picture;
}

class Footage {
 public:
  explicit Footage(const char* clip) {
    if (clip != nullptr) read(clip);
    real_ = !frames_.empty();
    if (!real_) frames_.push_back(cells({768, 576}, 16, 90, 150, 3));
  }
  bool real() const { return real_; }
  /// A frame of its own.
  cv::Mat frame(int index) const { return frames_[static_cast<std::size_t>(index) % frames_.size()].clone(); }

 private:
  void read(const std::string& clip) {
    cv::VideoCapture capture(clip);
    cv::Mat frame;
    for (int i = 0; i < kFirstFrame + kFrames && capture.read(frame); ++i) {
      if (i >= kFirstFrame) frames_.push_back(frame.clone());
    }
    if (frames_.size() != kFrames) throw std::runtime_error("cannot read enough of " + clip);
  }
  std::vector<cv::Mat> frames_;
  bool real_ = false;
};

// The walker's box every tenth frame, marked by hand from head to feet, hidden parts included.
cv::Rect walkerAt(int index) {
  static const std::vector<cv::Rect> marked{
      {664, 268, 38, 108}, {603, 254, 38, 101}, {532, 243, 38, 98}, {460, 235, 36, 99}, {406, 228, 34, 92},
      {355, 218, 33, 91},  {317, 210, 28, 86},  {271, 201, 29, 84}, {257, 196, 26, 82}, {292, 201, 28, 84},
      {337, 214, 30, 86},  {385, 227, 32, 92},  {433, 240, 33, 97}, {502, 254, 36, 98}, {569, 267, 38, 100},
      {630, 284, 40, 107}, {695, 299, 40, 107}};
  const auto at = std::min(static_cast<std::size_t>(index / 10), marked.size() - 2);
  const double share = (index - 10.0 * static_cast<double>(at)) / 10.0;
  const auto between = [share](int a, int b) { return cvRound(a + share * (b - a)); };
  const cv::Rect& a = marked[at];
  const cv::Rect& b = marked[at + 1];
  return {between(a.x, b.x), between(a.y, b.y), between(a.width, b.width), between(a.height, b.height)};
}

/// What is done to a target drawn over the footage: it walks, and from frame `first` to `back` it cannot be seen.
struct Event {
  std::string name;
  int back = 0;
  int frames = 0;
  cv::Point shift;  ///< Where it shows up again, from where it would have been.
  enum { Board, Black, Cut, Gone } kind = Board;
};

constexpr int kEvent = 30;  // frame at which things happen

class DrawnTarget {
 public:
  DrawnTarget(const Footage& footage, Event event) : footage_(footage), event_(std::move(event)) {}

  cv::Rect place(int index) const {
    const cv::Point moved = index >= event_.back ? event_.shift : cv::Point();
    return {cv::Point(250 + 3 * index, 250 + index / 3) + moved, sprite_.size()};
  }
  bool visible(int index) const { return index < kEvent || index >= event_.back; }
  cv::Rect truth(int index) const { return visible(index) ? place(index) : cv::Rect(); }

  cv::Mat frame(int index) const {
    if (!visible(index) && event_.kind == Event::Black) return cv::Mat::zeros(footage_.frame(index).size(), CV_8UC3);
    cv::Mat picture = footage_.frame(index);
    if (event_.kind == Event::Cut && index >= kEvent) cv::flip(picture, picture, 1);
    if (event_.kind == Event::Board && index >= kEvent) {  // stands where the target went out of sight, and stays
      const cv::Rect last = place(kEvent);
      cv::rectangle(picture, cv::Rect(last.x - 20, last.y - 20, last.width + 70, last.height + 40),
                    cv::Scalar(70, 95, 120), cv::FILLED);
    }
    if (visible(index)) sprite_.copyTo(picture(place(index)));
    return picture;
  }

 private:
  const Footage& footage_;
  Event event_;
  cv::Mat sprite_ = cells({48, 64}, 8, 0, 256, 11);
};

std::vector<Scene> scenesOf(const Footage& footage) {
  std::vector<Scene> scenes;
  if (footage.real()) {
    scenes.push_back({"walker behind the lamp post", 160, 46, [&](int i) { return footage.frame(i); }, walkerAt});
  }
  const cv::Point away(120, -70);
  const Event events[] = {
      {"covered for 15 frames, back elsewhere", kEvent + 15, kEvent + 55, away, Event::Board},
      {"covered for 30 frames, back elsewhere", kEvent + 30, kEvent + 70, away, Event::Board},
      {"covered for 60 frames, back elsewhere", kEvent + 60, kEvent + 100, away - cv::Point(90, 0), Event::Board},
      {"8 black frames", kEvent + 8, kEvent + 50, {}, Event::Black},
      {"cut to another view", kEvent, kEvent + 50, {-120, 60}, Event::Cut},
      {"gone for good", kEvent + 150, kEvent + 150, {}, Event::Gone}};
  for (const Event& event : events) {
    const auto target = std::make_shared<DrawnTarget>(footage, event);
    scenes.push_back({event.name, event.frames, event.back, [target](int i) { return target->frame(i); },
                      [target](int i) { return target->truth(i); }});
  }
  return scenes;
}

// --------------------------------------------------------------------------------------------------- comparison

struct Outcome {
  int heldAfter = -1;  ///< Frames from where it could be held until it was; -1: never.
  int visible = 0;
  double overlapSum = 0.0;
  int claimed = 0;    ///< Boxes given as seen while nothing was there.
  int predicted = 0;  ///< Boxes given as extrapolated while nothing was there.
};

Outcome run(const Scene& scene, Contestant& contestant) {
  Outcome outcome;
  contestant.start(scene.frame(0), scene.truth(0));
  int inARow = 0;
  for (int i = 1; i < scene.frames; ++i) {
    const Answer answer = contestant.step(scene.frame(i));
    const cv::Rect truth = scene.truth(i);
    if (truth.empty()) {
      if (!answer.box.empty()) ++(answer.predicted ? outcome.predicted : outcome.claimed);
      continue;
    }
    const double common = overlap(answer.box, truth);
    ++outcome.visible;
    outcome.overlapSum += common;
    if (i < scene.back || outcome.heldAfter >= 0) continue;
    inARow = !answer.predicted && common >= kHeld ? inARow + 1 : 0;  // a lucky prediction is no hold
    if (inARow == kHeldInARow) outcome.heldAfter = i - (kHeldInARow - 1) - scene.back;
  }
  return outcome;
}

std::string heldText(const Scene& scene, const Outcome& outcome) {
  if (scene.back >= scene.frames) return "-";
  return outcome.heldAfter < 0 ? "never" : std::to_string(outcome.heldAfter);
}

nlohmann::ordered_json toJson(const Outcome& outcome) {
  nlohmann::ordered_json json;
  json["held_after"] = nullptr;
  if (outcome.heldAfter >= 0) json["held_after"] = outcome.heldAfter;
  json["mean_overlap"] = outcome.overlapSum / outcome.visible;
  json["claimed_while_gone"] = outcome.claimed;
  json["predicted_while_gone"] = outcome.predicted;
  return json;
}

/// @return {"scenes": [...]}, one member per line of the table
nlohmann::ordered_json compareRecovery(const Footage& footage) {
  nlohmann::ordered_json scenes = nlohmann::ordered_json::array();
  std::printf(
      "| Scene | Held again after, frames: plug-in | bare | Mean overlap: plug-in | bare | "
      "Boxes while nothing is there: plug-in, claimed | predicted | bare, claimed |\n");
  std::printf("|---|---:|---:|---:|---:|---:|---:|---:|\n");
  for (const Scene& scene : scenesOf(footage)) {
    PlugIn plugIn;
    BareTracker bare;
    const Outcome ours = run(scene, plugIn);
    const Outcome theirs = run(scene, bare);
    std::printf("| %s | %s | %s | %.2f | %.2f | %d | %d | %d |\n", scene.name.c_str(), heldText(scene, ours).c_str(),
                heldText(scene, theirs).c_str(), ours.overlapSum / ours.visible, theirs.overlapSum / theirs.visible,
                ours.claimed, ours.predicted, theirs.claimed);
    std::fflush(stdout);
    scenes.push_back({{"name", scene.name},
                      {"comes_back", scene.back < scene.frames},
                      {"frames_watched", std::max(0, scene.frames - scene.back)},
                      {"plugin", toJson(ours)},
                      {"bare", toJson(theirs)}});
  }
  return {{"scenes", scenes}};
}

// --------------------------------------------------------------------------------------------------------- cost

// Processor time, milliseconds: on a busy machine the wall's clock measures the others.
double processorTime() {
  timespec time{};
  clock_gettime(CLOCK_PROCESS_CPUTIME_ID, &time);
  return 1e3 * static_cast<double>(time.tv_sec) + 1e-6 * static_cast<double>(time.tv_nsec);
}

class Stopwatch {
 public:
  explicit Stopwatch(std::vector<double>& times) : times_(times) {}
  ~Stopwatch() { times_.push_back(processorTime() - start_); }
  Stopwatch(const Stopwatch&) = delete;
  Stopwatch& operator=(const Stopwatch&) = delete;

 private:
  std::vector<double>& times_;
  double start_ = processorTime();
};

double median(std::vector<double> values) {
  const auto middle = values.begin() + static_cast<std::ptrdiff_t>(values.size() / 2);
  std::nth_element(values.begin(), middle, values.end());
  return *middle;
}

/// A tracker step and a search by turns, so that both meet the same noise; the search's stages once more each.
class SearchCost {
 public:
  explicit SearchCost(const cv::Size& size) : frame_(cells(size, 16, 90, 150, 3)) {
    cells({60, 60}, 10, 0, 256, 5).copyTo(frame_(target_));
    empty_ = cells(size, 16, 90, 150, 3);
    plugIn_.start(frame_, target_);
    for (int i = 0; i < 2; ++i) plugIn_.step(frame_);
    factor_ = std::min(plugIn_.config_.redetect.coarse_factor, 320.0 / std::min(size.width, size.height));
  }

  void round() {
    {
      const Stopwatch watch(step);
      cv::Rect box = plugIn_.initBoxInCrop_;
      plugIn_.tracker_->update(plugIn_.initCrop_, box);
    }
    search(found, frame_);
    held = held && overlap(plugIn_.trackBox_, target_) > 0.6;  // the patch is the middle of the target
    stages();
    search(missed, empty_);
    plugIn_.redetectAttempts_ = 0;
  }

  std::vector<double> step, found, missed, grey, shrink, match, fine, validate, start;
  bool held = true;

 private:
  void search(std::vector<double>& times, const cv::Mat& frame) {
    const auto picture = pictureOf(frame);
    const Stopwatch watch(times);
    PlugIn::buildFullYFromVP_Locked_(*picture, plugIn_.fullGrayGpu_);
    plugIn_.reDetectGlobally_Locked_(*picture, frame.cols, frame.rows);
  }

  void stages() {
    const auto picture = pictureOf(frame_);
    {
      const Stopwatch watch(grey);
      PlugIn::buildFullYFromVP_Locked_(*picture, plugIn_.fullGrayGpu_);
    }
    {
      const Stopwatch watch(shrink);
      resizeImage(plugIn_.fullGrayGpu_, coarse_, {}, factor_, factor_, cv::INTER_AREA);
    }
    {
      const Stopwatch watch(match);
      for (const double scale : {0.9, 1.0, 1.1, 1.0}) matchOnce(scale);  // all there is: both patches, no early end
    }
    cv::Rect box;
    {
      const Stopwatch watch(fine);
      double score = 0.0;
      plugIn_.findBestInROI_GPU_Locked_(target_.x, target_.y, target_.width, target_.height, plugIn_.origPatchGpu_,
                                        plugIn_.fullGrayGpu_, score, box);
    }
    {
      const Stopwatch watch(validate);
      plugIn_.computeOrigAppearanceAt_(box);
    }
    const Stopwatch watch(start);
    plugIn_.createTracker_()->init(plugIn_.initCrop_, plugIn_.initBoxInCrop_);
  }

  void matchOnce(double scale) {
    resizeImage(plugIn_.origPatchGpu_, patch_, {}, factor_, factor_, cv::INTER_LINEAR);
    const cv::Size size(cvRound(patch_.cols() * scale), cvRound(patch_.rows() * scale));
    resizeImage(patch_, templ_, size, 0.0, 0.0, cv::INTER_LINEAR);
    gpuMatchTemplate(coarse_, templ_, scores_, cv::TM_CCOEFF_NORMED);
    bestMatch(scores_, memory_);
  }

  cv::Mat frame_;
  cv::Mat empty_;  ///< Without the target.
  cv::Rect target_{400, 200, 60, 60};
  PlugIn plugIn_;
  double factor_ = 1.0;
  GpuImage coarse_, patch_, templ_, scores_;
  cv::Mat memory_;
};

void measureCost() {
  cv::setNumThreads(1);
  std::printf(
      "\nMedians of processor time, one thread, milliseconds.\n\n| Frame | Tracker step | Search, found | in steps | "
      "Search, not found | in steps | Grey | Shrink | "
      "Match | Fine | Validate | New tracker |\n");
  std::printf("|---|---:|---:|---:|---:|---:|---:|---:|---:|---:|---:|---:|\n");
  for (const cv::Size& size : {cv::Size(640, 360), cv::Size(1920, 1080), cv::Size(3840, 2160)}) {
    SearchCost cost(size);
    for (int i = 0; i < 25; ++i) cost.round();
    const double step = median(cost.step);
    std::printf("| %dx%d | %.1f | %.1f | %.2f | %.1f | %.2f | %.1f | %.1f | %.1f | %.1f | %.1f | %.1f |\n", size.width,
                size.height, step, median(cost.found), median(cost.found) / step, median(cost.missed),
                median(cost.missed) / step, median(cost.grey), median(cost.shrink), median(cost.match),
                median(cost.fine), median(cost.validate), median(cost.start));
    std::fflush(stdout);
    if (!cost.held) throw std::runtime_error("the search missed its target: the times mean nothing");
  }
}

}  // namespace

int main(int argc, char** argv) {
  try {
    const std::vector<std::string> given(argv + 1, argv + argc);
    const auto json = std::find(given.begin(), given.end(), "--json");
    if (json != given.end() && json + 1 == given.end()) throw std::runtime_error("--json needs a file");
    const char* first = argc > 1 && json != given.begin() ? argv[1] : nullptr;
    if (first == nullptr || std::string(first) != "--cost") {
      const nlohmann::ordered_json result = compareRecovery(Footage(first));
      if (json != given.end() && !(std::ofstream(json[1]) << result.dump(2) << '\n').flush())
        throw std::runtime_error("cannot write '" + json[1] + "'");
    }
    measureCost();
  } catch (const std::exception& e) {
    std::fprintf(stderr, "recovery_comparison: %s\n", e.what());
    return 1;
  }
  return 0;
}
