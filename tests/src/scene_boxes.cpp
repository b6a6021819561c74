// Prints what the tracker answers on drawn scenes, a line per frame: "scene frame box x y w h" or "scene frame none".
// Two platforms, or two ways of searching images, are compared by comparing what they print.
//
// usage: scene_boxes [--outcomes]
//   --outcomes  leaves the log on, so that the outcome of every re-detection stands among the answers
#include <cstdio>
#include <cstring>
#include <memory>
#include <string>

#include "csrt_tracking_algo.h"
#include "support/platform_scenes.h"

namespace {

CSRTTrackingAlgo::Frames framesOf(const cv::Mat& picture) {
  return {std::make_shared<ocula::OculaPicture>(picture)};
}

const AlgoValue& member(const AlgoValue& object, const std::string& name) {
  static const AlgoValue none;
  for (const auto& [key, value] : std::get<AlgoValue::Object>(object)) {
    if (key == name) return value;
  }
  return none;
}

void printAnswer(const std::string& scene, int index, const AlgoOutput& record) {
  const auto& detections = std::get<AlgoValue::Array>(member(record.value, "detections"));
  if (detections.empty()) {
    std::printf("%s %d none\n", scene.c_str(), index);
    return;
  }
  const auto side = [&](const char* name) { return std::get<long>(member(detections.front(), name)); };
  std::printf("%s %d box %ld %ld %ld %ld\n", scene.c_str(), index, side("x"), side("y"), side("w"), side("h"));
}

bool play(const drawn::Scene& scene, bool outcomes) {
  const drawn::SceneDrawer drawer(scene);
  CSRTTrackingAlgo algo;
  algo.enableDebug(outcomes);
  const cv::Rect start = drawer.truth(0);
  bool started = false;
  algo.init(framesOf(drawer.frame(0)), {start.x, start.y, start.width, start.height}, &started);
  for (int i = 1; started && i < scene.frames; ++i) {
    printAnswer(scene.name, i, algo.update(framesOf(drawer.frame(i)), nullptr).front());
  }
  return started;
}

}  // namespace

int main(int argc, char** argv) {
  const bool outcomes = argc == 2 && std::strcmp(argv[1], "--outcomes") == 0;
  if (argc > 1 && !outcomes) {
    std::fprintf(stderr, "usage: scene_boxes [--outcomes]\n");
    return 2;
  }
  cv::setNumThreads(1);  // answers do not depend on how many processors there are
  for (const drawn::Scene& scene : drawn::scenes()) {
    if (!play(scene, outcomes)) {
      std::fprintf(stderr, "scene_boxes: %s did not start\n", scene.name.c_str());
      return 1;
    }
  }
  return 0;
}
