// Where FFmpeg's libraries are not there to build with.
#include "picture/h264_writer.h"

namespace host {

std::unique_ptr<H264Writer> H264Writer::open(const std::string& /*path*/, cv::Size /*frameSize*/, double /*fps*/) {
  return nullptr;
}

}  // namespace host
