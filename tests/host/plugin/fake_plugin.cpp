// A plug-in that answers by script instead of looking at pictures, so that the host is tested on every answer a real
// one can give. The script comes in the configuration, {"fake":{"script":"ttup"}}: one letter per update(), then 't'.
//   t tracked   u unstable, predicted   p lost, predicted   r found again   R unstable, then found again
//   b rebuilt for another window size   c rebuilt           w waiting       z zoom re-seed   s skipped once
//   h health fault   o oscillation   m given up after failed searches   i inactive   e window outside the frame
//   x throws         A aborts         q says nothing
//   k tracked, the score is the time of its clock since the first k, in 100 s
#include <chrono>
#include <class_loader/class_loader.hpp>
#include <cstdio>
#include <cstdlib>
#include <memory>
#include <optional>
#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

#include "ialgo_plugin.h"
#include "ocula/ocula_picture.h"

class CSRTTrackingAlgo : public IAlgoPlugin {
 public:
  using Frames = std::vector<std::shared_ptr<ocula::OculaPicture>>;

  std::vector<AlgoOutput> init(const Frames& frames, const BBox& box, bool* started) override {
    next_ = 0;
    box_ = box;
    *started = box.x < frames.at(0)->width() && box.y < frames.at(0)->height();
    if (!*started) {
      log_("init: bbox out of image => abort");
    } else if (script_.find('w') == 0) {
      log_("CSRT init(VP): preposition-only target_pan=1.000 target_tilt=2.000 roi=(0,0,1,1)");
      return {{"gimbal_preposition.v1", AlgoValue::Object{{"target_pan_deg", 1.0}, {"target_tilt_deg", 2.0}}}};
    } else {
      log_("CSRT init(immediate_init_no_metadata): src 1x1");
    }
    return {};
  }

  std::vector<AlgoOutput> update(const Frames& /*frames*/, bool* processed) override {
    *processed = true;
    ++box_.x;
    return answer_(next_ < script_.size() ? script_[next_++] : 't');
  }

  void setConfig(std::string json) override {
    const std::string key = "\"script\":\"";
    const std::size_t begin = json.find(key);
    if (begin != std::string::npos)
      script_ = json.substr(begin + key.size(), json.find('"', begin + key.size()) - begin - key.size());
    debug_ = false;  // a configuration may switch the lines off
  }

  std::vector<AlgoOutputDeclaration> getOutputDeclarations() const override { return {{"detection.v1", 10, 30}}; }
  bool isAlive() override { return true; }
  std::string getName() const override { return "CSRTTrackingAlgo"; }
  std::string getUuid() override { return "fake"; }
  bool isDynamic() const override { return true; }
  void changePerformance(int) override {}
  void enableDebug(bool on) override { debug_ = on; }
  std::string getConfigList() override { return "{}"; }
  std::string getPropertyList() override { return {}; }
  void setProperty(std::string, std::string) override {}
  std::string property(std::string) override { return {}; }

 private:
  std::vector<AlgoOutput> answer_(char letter) {
    switch (letter) {
      case 't':
        return out_(true, 0.75, "update(): OUT 2 detections (track ok)", true);
      case 'u':
        return out_(true, 0.25, "update(): UNSTABLE (stab=0.25) -> OUT 1 detections (predict)");
      case 'p':
        return out_(true, 0.75, "update(): LOST -> OUT 1 detections (predict)");
      case 'r':
        log_("reDetectGlobally[timing-success]: total=1.000 ms");
        return out_(true, 1.0, "update(): LOST -> OUT 1 detections (redetect OK)");
      case 'R':
        log_("reDetectGlobally[timing-success]: total=1.000 ms");
        return out_(true, 1.0, "update(): UNSTABLE (stab=0.10) -> OUT 1 detections (predict)");
      case 'b':
        return out_(true, 1.0, "update(): OUT 1 detections (Re-init après update ancien ROI, sizeChanged=1)");
      case 'c':
        return out_(true, 1.0, "update(): OUT 1 detections (Re-init après update ancien ROI, sizeChanged=0)");
      case 'w':
        return out_(false, 0, "update(): OUT 0 detections (waiting preposition alignment)");
      case 'z':
        return out_(false, 0, "update(): OUT 0 detections (zoom reseed)");
      case 's':
        return out_(false, 0, "update(): OUT 0 detections (skip tracking once)");
      case 'e':
        return out_(true, 0.75, "update(): OUT 1 detections (empty ROI)");
      case 'h':
        log_("CSRT: health fault -> Suivi collé au bord");
        return out_(false, 0, "Object declared fully lost => reset.");
      case 'o':
        log_("CSRT: oscillation re-detect <-> lost detected, forcing fully lost.");
        return out_(false, 0, "Object declared fully lost => reset.");
      case 'm':
        log_("Object declared fully lost => reset.");
        return out_(false, 0, "update(): LOST -> OUT 0 detections (predict)");
      case 'i':
        return out_(false, 0, "update(): OUT 0 detections (not init/fullyLost)");
      case 'k':
        return out_(true, sinceFirst_() / 100.0, "update(): OUT 2 detections (track ok)", true);
      case 'A':
        std::abort();
      case 'x':
        throw std::runtime_error("scripted failure");
      default:
        return out_(false, 0, nullptr);
    }
  }

  double sinceFirst_() {
    const auto now = std::chrono::steady_clock::now();
    if (!first_) first_ = now;
    return std::chrono::duration<double>(now - *first_).count();
  }

  std::vector<AlgoOutput> out_(bool box, double score, const char* line, bool window = false) {
    AlgoValue::Array detections;
    if (box) detections.emplace_back(detection_(box_, score));
    if (window && debug_) detections.emplace_back(detection_({0, 0, 64, 48}, 1.0));
    if (line != nullptr) log_(line);
    return {{"detection.v1", AlgoValue::Object{{"detections", std::move(detections)}}}};
  }

  static AlgoValue::Object detection_(const BBox& b, double score) {
    return {{"x", b.x},         {"y", b.y},         {"w", b.width},    {"h", b.height}, {"class_id", -1},
            {"class_name", ""}, {"class_info", ""}, {"tracker_id", 0}, {"score", score}};
  }

  void log_(const std::string& message) const {
    if (!debug_) return;
    const std::string line = "[AlgoPlugin INFO] [CSRTTrackingAlgo] " + message + "\n";
    std::fwrite(line.data(), 1, line.size(), stdout);
    std::fflush(stdout);
  }

  bool debug_ = false;
  std::string script_;
  std::size_t next_ = 0;
  BBox box_;
  std::optional<std::chrono::steady_clock::time_point> first_;
};

CLASS_LOADER_REGISTER_CLASS(CSRTTrackingAlgo, IAlgoPlugin)
