#include "picture/picture_output.h"

#include <algorithm>
#include <cctype>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <opencv2/imgcodecs.hpp>
#include <opencv2/imgproc.hpp>
#include <opencv2/videoio.hpp>
#include <system_error>
#include <vector>

#include "base/host_error.h"

namespace host {
namespace {

namespace fs = std::filesystem;

constexpr std::uintmax_t kLeastFreeBytes = 4U << 20;  // below this the encoder's next packets may no longer fit
constexpr long kFramesBetweenChecks = 25;

/// Encoders to try, best first: H.264 plays everywhere, the others are nearly always built in.
std::vector<int> encodersFor(const std::string& path) {
  const auto code = [](const char* c) { return cv::VideoWriter::fourcc(c[0], c[1], c[2], c[3]); };
  const std::string extension = fs::path(path).extension().string();
  if (extension == ".avi") return {code("MJPG"), code("XVID")};
  if (extension == ".webm") return {code("VP80"), code("VP90")};
  return {code("avc1"), code("mp4v"), code("MJPG")};
}

/// H.264 and its kin store colours for pairs of pixels: an odd side is filled up by one.
cv::Size evenSize(cv::Size size) {
  return {size.width + size.width % 2, size.height + size.height % 2};
}

}  // namespace

VideoOutput::VideoOutput(PendingFile& file, cv::Size frameSize, double fps)
    : file_(file), size_(evenSize(frameSize)), writer_(std::make_unique<cv::VideoWriter>()) {
  for (const int encoder : encodersFor(file.path())) {
    if (writer_->open(file.temporary(), encoder, fps, size_, true)) return;
  }
  throw HostError(ExitCode::Usage,
                  "no encoder can write a video to '" + file.path() + "'; try a name ending in .mp4 or .avi");
}

VideoOutput::~VideoOutput() = default;

void VideoOutput::write(const cv::Mat& bgr) {
  if (written_ % kFramesBetweenChecks == 0) {
    std::error_code failed;
    const fs::space_info space = fs::space(fs::absolute(file_.temporary()).parent_path(), failed);
    if (!failed && space.available < kLeastFreeBytes) {
      throw HostError(ExitCode::Output, "the disk is full: the video '" + file_.path() + "' ends after " +
                                            std::to_string(written_) + " frames");
    }
  }
  cv::Mat picture = bgr;
  if (bgr.cols > size_.width || bgr.rows > size_.height) {
    picture = bgr(cv::Rect(0, 0, std::min(bgr.cols, size_.width), std::min(bgr.rows, size_.height)));
  }
  if (picture.size() != size_) {
    cv::copyMakeBorder(picture, picture, 0, size_.height - picture.rows, 0, size_.width - picture.cols,
                       cv::BORDER_REPLICATE);
  }
  writer_->write(picture);
  ++written_;
}

void VideoOutput::close() {
  if (!writer_) return;
  writer_->release();
  writer_.reset();
  std::error_code failed;
  const std::uintmax_t size = fs::file_size(file_.temporary(), failed);
  if (failed || size == 0) throw HostError(ExitCode::Output, "the video '" + file_.path() + "' could not be written");
  file_.commit();
}

void checkVideoName(const std::string& path, const std::string& option) {
  static const std::vector<std::string> kKnown = {".mp4",  ".m4v", ".mov",  ".mkv",  ".avi",   ".webm", ".ts",  ".mts",
                                                  ".m2ts", ".mpg", ".mpeg", ".vob",  ".flv",   ".wmv",  ".asf", ".ogv",
                                                  ".3gp",  ".nut", ".mxf",  ".mjpg", ".mjpeg", ".h264", ".264"};
  std::string ending = fs::path(path).extension().string();
  std::transform(ending.begin(), ending.end(), ending.begin(), [](unsigned char c) { return std::tolower(c); });
  if (std::find(kKnown.begin(), kKnown.end(), ending) != kKnown.end()) return;
  throw HostError(ExitCode::Usage,
                  option + " '" + path + "' is not a kind of video; try a name ending in .mp4 or .avi");
}

void checkPictureName(const std::string& path, const std::string& option) {
  bool known = false;
  try {
    known = cv::haveImageWriter(path);
  } catch (const cv::Exception&) {  // a name without an ending
  }
  if (!known)
    throw HostError(ExitCode::Usage, option + " '" + path + "' is not a kind of picture; try a name ending in .png");
}

void writePicture(PendingFile& output, const cv::Mat& bgr) {
  const std::string& path = output.path();
  // Encoded in memory first: the picture libraries do not say why a write failed.
  std::vector<unsigned char> bytes;
  if (!cv::imencode(fs::path(path).extension().string(), bgr, bytes)) {
    throw HostError(ExitCode::Output, "cannot encode the picture '" + path + "'");
  }
  errno = 0;
  std::FILE* file = std::fopen(output.temporary().c_str(), "wb");
  bool written = file != nullptr && std::fwrite(bytes.data(), 1, bytes.size(), file) == bytes.size();
  if (file != nullptr && std::fclose(file) != 0) written = false;
  if (!written) throw HostError(ExitCode::Output, "cannot write the picture '" + path + "': " + std::strerror(errno));
  output.commit();
}

}  // namespace host
