// One picture file, and a sentence where it cannot be read.
#pragma once

#include <opencv2/core.hpp>
#include <string>

namespace host {

/// @return the picture, 8-bit BGR, never empty
/// @throws HostError (Source) naming the file and why: not permitted, larger than can be read, damaged. Not for two
///         threads at a time: OpenCV's own complaint is taken from standard error's stream meanwhile
cv::Mat readPicture(const std::string& path);

}  // namespace host
