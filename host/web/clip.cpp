#include "web/clip.h"

#include <stdlib.h>
#include <sys/resource.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <future>
#include <iterator>
#include <opencv2/imgcodecs.hpp>

#include "base/host_error.h"
#include "base/pending_file.h"
#include "picture/annotate.h"
#include "picture/picture_output.h"

namespace host::web {
namespace {

namespace fs = std::filesystem;

constexpr int kLessUrgent = 15;  // of nice(): tracking goes first

/// A folder that goes away with the object.
class Folder {
 public:
  Folder() {
    std::string name = (fs::temp_directory_path() / "csrt-clip-XXXXXX").string();
    if (::mkdtemp(name.data()) == nullptr) throw HostError(ExitCode::Output, "no temporary folder can be made");
    path_ = name;
  }
  ~Folder() {
    std::error_code ignored;
    fs::remove_all(path_, ignored);
  }
  Folder(const Folder&) = delete;
  Folder& operator=(const Folder&) = delete;
  std::string file(const char* name) const { return (path_ / name).string(); }

 private:
  fs::path path_;
};

std::string write(const std::vector<WatchedFrame>& frames) {
  ::setpriority(PRIO_PROCESS, static_cast<id_t>(::syscall(SYS_gettid)), kLessUrgent);
  const Folder folder;
  PendingFile file(folder.file("clip.mp4"), "the clip");
  std::unique_ptr<VideoOutput> video;
  Annotator annotator;
  cv::Size size;
  for (const WatchedFrame& frame : frames) {
    const cv::Mat picture =
        cv::imdecode(cv::Mat(1, static_cast<int>(frame.jpeg->size()), CV_8UC1, const_cast<char*>(frame.jpeg->data())),
                     cv::IMREAD_COLOR);
    if (!video) {
      size = picture.size();
      video = std::make_unique<VideoOutput>(file, size, rateOf(frames));
    }
    if (picture.size() == size) video->write(annotator.draw(picture, *frame.records));
  }
  video->close();
  std::ifstream made(folder.file("clip.mp4"), std::ios::binary);
  return {std::istreambuf_iterator<char>(made), std::istreambuf_iterator<char>()};
}

}  // namespace

double rateOf(const std::vector<WatchedFrame>& frames) {
  const double seconds = frames.empty() ? 0.0 : frames.back().at - frames.front().at;
  return seconds > 0 ? std::clamp(static_cast<double>(frames.size() - 1) / seconds, 1.0, 120.0) : 25.0;
}

std::string clipOf(const std::vector<WatchedFrame>& frames) {
  return std::async(std::launch::async, [&frames] { return write(frames); }).get();
}

}  // namespace host::web
