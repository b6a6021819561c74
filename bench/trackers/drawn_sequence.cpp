#include "drawn_sequence.h"

#include <unistd.h>

#include <filesystem>
#include <fstream>
#include <opencv2/core.hpp>

#include "base/host_error.h"
#include "picture/street_scene.h"

namespace bench {

namespace fs = std::filesystem;

DrawnSequence::DrawnSequence(int frames) {
  std::string pattern = (fs::temp_directory_path() / "tracker-comparison-XXXXXX").string();
  if (mkdtemp(pattern.data()) == nullptr) throw host::HostError(host::ExitCode::Output, "cannot make " + pattern);
  folder_ = pattern;
  const cv::Size size(640, 360);
  host::writeStreetScene(clip(), size, frames, 25.0);
  const host::StreetScene scene(size, host::kStreetSceneSeed);
  std::ofstream file(truth());
  for (int i = 0; i < frames; ++i) {
    const cv::Rect box = scene.truth(i);
    file << box.x << ',' << box.y << ',' << box.width << ',' << box.height << '\n';
  }
}

DrawnSequence::~DrawnSequence() {
  std::error_code ignored;
  fs::remove_all(folder_, ignored);
}

}  // namespace bench
