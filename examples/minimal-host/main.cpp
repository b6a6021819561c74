// The smallest host: loads the plug-in, starts it on a box and prints a box per frame.
//   minimal-host PLUGIN.so VIDEO X,Y,W,H
#include <ialgo_plugin.h>
#include <ocula/ocula_picture.h>

#include <class_loader/class_loader.hpp>
#include <cstdio>
#include <opencv2/videoio.hpp>

using Frames = std::vector<std::shared_ptr<ocula::OculaPicture>>;

static Frames frameOf(const cv::Mat& bgr) {
  return {std::make_shared<ocula::OculaPicture>(bgr.clone())};
}

// The members of a record are an ordered list of names and values.
static const AlgoValue& member(const AlgoValue& object, const char* name) {
  for (const auto& entry : std::get<AlgoValue::Object>(object)) {
    if (entry.first == name) return entry.second;
  }
  throw std::runtime_error(name);
}

static void print(int frame, const AlgoOutput& record) {
  for (const AlgoValue& det : std::get<AlgoValue::Array>(member(record.value, "detections"))) {
    const auto number = [&det](const char* name) { return std::get<long>(member(det, name)); };
    std::printf("%d: %ld,%ld,%ld,%ld score %.2f\n", frame, number("x"), number("y"), number("w"), number("h"),
                std::get<double>(member(det, "score")));
  }
}

int main(int argc, char** argv) {
  BBox box;
  if (argc != 4 || std::sscanf(argv[3], "%d,%d,%d,%d", &box.x, &box.y, &box.width, &box.height) != 4) {
    std::fprintf(stderr, "usage: minimal-host PLUGIN.so VIDEO X,Y,W,H\n");
    return 2;
  }
  class_loader::ClassLoader loader(argv[1]);  // outlives every object made from the library
  const auto tracker = loader.createUniqueInstance<IAlgoPlugin>("CSRTTrackingAlgo");
  std::printf("schema: %zu bytes\n", tracker->getConfigList().size());
  for (const auto& record : tracker->getOutputDeclarations()) std::printf("emits %s\n", record.name.c_str());
  tracker->setConfig(R"({"csrt": {"template_size": 120}})");

  cv::VideoCapture video(argv[2]);
  cv::Mat picture;
  bool started = false;
  if (video.read(picture)) tracker->init(frameOf(picture), box, &started);
  if (!started) {
    std::fprintf(stderr, "minimal-host: tracking did not start\n");
    return 1;
  }
  for (int frame = 1; video.read(picture); ++frame) print(frame, tracker->update(frameOf(picture), nullptr).front());
}
