// Drives a plug-in that was built against another frame library.   foreign_host PLUGIN.so
#include <ialgo_plugin.h>
#include <ocula/ocula_picture.h>

#include <chrono>
#include <class_loader/class_loader.hpp>
#include <cstdio>
#include <opencv2/core.hpp>
#include <opencv2/imgproc.hpp>
#include <thread>

namespace {

constexpr int kWidth = 640;
constexpr int kHeight = 360;
constexpr int kSide = 40;
constexpr int kFrames = 25;

std::vector<unsigned char> draw(int x, int y) {
  cv::Mat picture(kHeight, kWidth, CV_8UC3);
  cv::RNG random(11);
  random.fill(picture, cv::RNG::UNIFORM, 40, 110);
  cv::Mat target = picture(cv::Rect(x, y, kSide, kSide));
  cv::RNG(12).fill(target, cv::RNG::UNIFORM, 100, 255);
  cv::GaussianBlur(picture, picture, {5, 5}, 1.5);
  cv::Mat yuv;
  cv::cvtColor(picture, yuv, cv::COLOR_BGR2YUV_I420);
  return {yuv.datastart, yuv.dataend};
}

double overlap(const AlgoValue& det, const cv::Rect& truth) {
  const auto& members = std::get<AlgoValue::Object>(det);
  const auto at = [&members](std::size_t i) { return static_cast<int>(std::get<long>(members[i].second)); };
  const cv::Rect box(at(0), at(1), at(2), at(3));
  const double common = (box & truth).area();
  return common / (box.area() + truth.area() - common);
}

// The plug-in's health monitor judges speed by the real clock: frames come no faster than a camera's.
void waitForTheNextFrame() {
  std::this_thread::sleep_for(std::chrono::milliseconds(30));
}

int fail(const char* what) {
  std::fprintf(stderr, "foreign_host: %s\n", what);
  return 1;
}

}  // namespace

int main(int argc, char** argv) {
  if (argc != 2) return fail("usage: foreign_host PLUGIN.so");
  class_loader::ClassLoader loader(argv[1]);
  const auto tracker = loader.createUniqueInstance<IAlgoPlugin>("CSRTTrackingAlgo");
  tracker->setConfig(R"({"csrt": {"template_size": 80}})");
  bool started = false;
  int conversions = 0;
  for (int i = 0; i < kFrames; ++i) {
    const cv::Rect truth(300 + 3 * i, 150 - 2 * i, kSide, kSide);
    const auto picture = std::make_shared<ocula::OculaPicture>(draw(truth.x, truth.y), kWidth, kHeight);
    picture->editMetadata()[ocula::OculaPicture::BaseMetadata::Keys::kPanDeg] = 1.5;
    if (i == 0) {
      tracker->init({picture}, {truth.x, truth.y, truth.width, truth.height}, &started);
      if (!started) return fail("tracking did not start");
      continue;
    }
    waitForTheNextFrame();
    const auto records = tracker->update({picture}, nullptr);
    conversions += picture->conversions();
    const auto& dets = std::get<AlgoValue::Array>(std::get<AlgoValue::Object>(records.at(0).value).at(0).second);
    if (dets.empty() || overlap(dets[0], truth) < 0.5) return fail("the target was lost");
  }
  if (conversions != 0) return fail("a tracked frame was converted whole");
  std::printf("foreign_host: followed the target over %d frames, no frame converted whole\n", kFrames - 1);
}
