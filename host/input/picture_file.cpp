#include "input/picture_file.h"

#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <iostream>
#include <opencv2/imgcodecs.hpp>
#include <sstream>

#include "base/host_error.h"

namespace host {
namespace {

/// OpenCV prints the text of a failed assertion and goes on; a person gets our sentence instead.
class CapturedComplaint {
 public:
  CapturedComplaint() : before_(std::cerr.rdbuf(text_.rdbuf())) {}
  ~CapturedComplaint() { std::cerr.rdbuf(before_); }
  CapturedComplaint(const CapturedComplaint&) = delete;
  CapturedComplaint& operator=(const CapturedComplaint&) = delete;
  std::string text() const { return text_.str(); }

 private:
  std::ostringstream text_;
  std::streambuf* before_;
};

bool saysTooLarge(const std::string& complaint) {
  return complaint.find("CV_IO_MAX_IMAGE") != std::string::npos || complaint.find("alloc") != std::string::npos;
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
  try {
    const CapturedComplaint captured;
    try {
      picture = cv::imread(path, cv::IMREAD_COLOR);
    } catch (const cv::Exception& e) {
      complaint = e.what();
    }
    complaint += captured.text();
  } catch (const std::bad_alloc&) {
    complaint = "alloc";
  }
  if (saysTooLarge(complaint)) fail(": it is too large");
  if (picture.empty()) fail("");
  return picture;
}

}  // namespace host
