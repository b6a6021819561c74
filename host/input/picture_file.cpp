#include "input/picture_file.h"

#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <exception>
#include <opencv2/imgcodecs.hpp>
#include <string>

#include "base/captured_stderr.h"
#include "base/host_error.h"

namespace host {
namespace {

bool saysTooLarge(const std::string& complaint) {
  for (const char* part : {"CV_IO_MAX_IMAGE", "alloc", "exceeds user limit"}) {
    if (complaint.find(part) != std::string::npos) return true;
  }
  return false;
}

}  // namespace

cv::Mat readPicture(const std::string& path) {
  const auto fail = [&path](const std::string& why) {
    throw HostError(ExitCode::Source, "cannot decode the picture '" + path + "'" + why);
  };
  errno = 0;
  if (access(path.c_str(), R_OK) != 0) fail(std::string(": ") + std::strerror(errno));
  cv::Mat picture;
  std::string complaint;
  {
    const CapturedStderr captured;  // OpenCV prints the text of a failed assertion and goes on, libpng its own words
    try {
      picture = cv::imread(path, cv::IMREAD_COLOR);
    } catch (const std::exception& e) {  // OpenCV's own, or no memory
      complaint = e.what();
    }
    complaint += captured.text();
  }
  if (saysTooLarge(complaint)) fail(": it is too large");
  if (picture.empty()) fail("");
  return picture;
}

}  // namespace host
