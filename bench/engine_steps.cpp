// Steps of one tracker on a drawn scene and nothing else, to be counted or profiled from outside.
//
// usage: engine_steps opencv|engine STEPS [WIDTH HEIGHT BOX]
#include <cstdio>
#include <cstdlib>
#include <opencv2/core/utility.hpp>
#include <string>

#include "bench_support.h"
#include "csrt_engine/csrt_engine.h"

int main(int argc, char** argv) {
  const std::string who = argc > 1 ? argv[1] : "";
  if ((argc != 3 && argc != 6) || (who != "opencv" && who != "engine")) {
    std::fprintf(stderr, "usage: engine_steps opencv|engine STEPS [WIDTH HEIGHT BOX]\n");
    return 2;
  }
  const auto number = [&](int i, int usual) { return argc > i ? std::atoi(argv[i]) : usual; };
  cv::setNumThreads(1);
  bench::MovingTarget scene({number(3, 640), number(4, 360)}, {number(5, 60), number(5, 60)});
  const auto tracker = who == "engine" ? csrt_engine::create({}) : cv::tracking::TrackerCSRT::create({});
  scene.next();
  tracker->init(scene.pixels(), scene.box());
  cv::Rect box;
  for (int i = 0; i < number(2, 0); ++i) {
    scene.next();
    if (!tracker->update(scene.pixels(), box)) return 1;
  }
  std::printf("%d,%d,%d,%d\n", box.x, box.y, box.width, box.height);
}
