// From a decoder's planes to 8-bit BGR, with the same converter and settings that OpenCV's own file reader uses: a
// stream and a file of the same pictures then give the same pixels, and so the same boxes. Part of the live modules.
#pragma once

#include <cstddef>
#include <cstdint>
#include <vector>

extern "C" {
#include <libavutil/pixfmt.h>
}

struct SwsContext;

namespace live {

/// Makes 8-bit BGR of a decoder's pictures; keeps its memory from picture to picture. Not thread-safe.
class PictureConverter {
 public:
  PictureConverter() = default;
  ~PictureConverter();
  PictureConverter(const PictureConverter&) = delete;
  PictureConverter& operator=(const PictureConverter&) = delete;

  /// @param planes, strides  as the format asks; bytes
  /// @return the BGR bytes, valid until the next call; null where the format cannot be converted
  const std::uint8_t* toBgr(AVPixelFormat format, int width, int height, const std::uint8_t* const planes[4],
                            const int strides[4]);
  std::size_t stride() const { return stride_; }

 private:
  SwsContext* context_ = nullptr;
  std::vector<std::uint8_t> bgr_;
  std::size_t stride_ = 0;
};

}  // namespace live
