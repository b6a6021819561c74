// A host with a pan/tilt camera: feeds the camera's state with every frame, obeys "gimbal_preposition.v1" and waits for
// the plug-in to start by itself. The camera here is a picture looked at through a moving window.
//   gimbal-host PLUGIN.so
#include <ialgo_plugin.h>
#include <ocula/ocula_picture.h>

#include <algorithm>
#include <class_loader/class_loader.hpp>
#include <cmath>
#include <cstdio>
#include <opencv2/core.hpp>

using Metadata = ocula::OculaPicture::BaseMetadata;
using Keys = Metadata::Keys;

namespace {

constexpr double kHfov = 32.0;  // degrees, so that a degree is 20 pixels
constexpr double kVfov = 18.0;
constexpr int kWidth = 640;
constexpr int kHeight = 360;
constexpr double kPixelsPerDegree = kWidth / kHfov;
constexpr double kSlewPerFrame = 0.8;  // degrees

/// A camera over a scene of 1920 x 1080 pixels whose middle lies at pan 0, tilt 0.
struct Camera {
  double pan = 0.0;
  double tilt = 0.0;

  cv::Mat look(const cv::Mat& scene) const {
    const int x = static_cast<int>(std::lround(scene.cols * 0.5 + pan * kPixelsPerDegree - kWidth * 0.5));
    const int y = static_cast<int>(std::lround(scene.rows * 0.5 - tilt * kPixelsPerDegree - kHeight * 0.5));
    return scene(
               cv::Rect(std::clamp(x, 0, scene.cols - kWidth), std::clamp(y, 0, scene.rows - kHeight), kWidth, kHeight))
        .clone();
  }

  void turnTowards(double targetPan, double targetTilt) {
    pan += std::clamp(targetPan - pan, -kSlewPerFrame, kSlewPerFrame);
    tilt += std::clamp(targetTilt - tilt, -kSlewPerFrame, kSlewPerFrame);
  }

  // Angles must be doubles: an int would count as missing.
  Metadata metadata() const {
    return {{Keys::kPanDeg, pan},
            {Keys::kTiltDeg, tilt},
            {Keys::kHfovDeg, kHfov},
            {Keys::kVfovDeg, kVfov},
            {Keys::kFollowMeEnabledCommand, 1}};
  }
};

cv::Mat drawScene() {
  cv::Mat scene(1080, 1920, CV_8UC3);
  cv::RNG random(7);
  random.fill(scene, cv::RNG::UNIFORM, 60, 120);
  cv::Mat target = scene(cv::Rect(1200, 380, 48, 48));
  random.fill(target, cv::RNG::UNIFORM, 100, 255);
  return scene;
}

double number(const AlgoOutput& record, std::size_t member) {
  return std::get<double>(std::get<AlgoValue::Object>(record.value)[member].second);
}

bool hasDetection(const AlgoOutput& record) {
  return !std::get<AlgoValue::Array>(std::get<AlgoValue::Object>(record.value)[0].second).empty();
}

}  // namespace

int main(int argc, char** argv) {
  if (argc != 2) {
    std::fprintf(stderr, "usage: gimbal-host PLUGIN.so\n");
    return 2;
  }
  class_loader::ClassLoader loader(argv[1]);
  const auto tracker = loader.createUniqueInstance<IAlgoPlugin>("CSRTTrackingAlgo");
  tracker->setConfig(R"({"preposition": {"enabled": true}, "csrt": {"template_size": 100}})");

  const cv::Mat scene = drawScene();
  Camera camera;
  const auto frame = [&] {
    return std::vector{std::make_shared<ocula::OculaPicture>(camera.look(scene), camera.metadata())};
  };
  bool started = false;
  const auto request = tracker->init(frame(), {560, 20, 48, 48}, &started);
  if (!started || request.empty()) {
    std::fprintf(stderr, "gimbal-host: the plug-in did not ask to point the camera\n");
    return 1;
  }
  const double pan = number(request.front(), 0);
  const double tilt = number(request.front(), 1);
  std::printf("asked to point to pan %.2f tilt %.2f\n", pan, tilt);
  for (int i = 1; i <= 60; ++i) {
    camera.turnTowards(pan, tilt);
    const bool seen = hasDetection(tracker->update(frame(), nullptr).front());
    std::printf("frame %d: pan %.2f tilt %.2f %s\n", i, camera.pan, camera.tilt, seen ? "tracking" : "waiting");
    if (seen) return 0;
  }
  std::fprintf(stderr, "gimbal-host: tracking did not start within 60 frames\n");
  return 1;
}
