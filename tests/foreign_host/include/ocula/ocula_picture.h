// A frame library that is not ours: frames arrive as planar YUV and are converted only where somebody looks. Nothing is
// virtual, members lie elsewhere, and the key constants are defined in the library.
#pragma once

#include <opencv2/core.hpp>
#include <string>
#include <unordered_map>
#include <variant>
#include <vector>

namespace ocula {

class __attribute__((visibility("default"))) OculaPicture {
 public:
  using MetadataValue = std::variant<std::string, int, unsigned long, double, std::vector<float>>;

  class __attribute__((visibility("default"))) BaseMetadata : public std::unordered_map<std::string, MetadataValue> {
   public:
    struct __attribute__((visibility("default"))) Keys {
      static const std::string kPanDeg;
      static const std::string kTiltDeg;
      static const std::string kHfovDeg;
      static const std::string kVfovDeg;
      static const std::string kFollowMeEnabledCommand;
    };
  };

  /// @param i420  planar YUV 4:2:0, height x 1.5 rows of 8 bits; sides even
  OculaPicture(const std::vector<unsigned char>& i420, int width, int height);

  int width() const { return width_; }
  int height() const { return height_; }
  cv::Mat getBGR() const;
  cv::Mat cropToMat(int x, int y, int w, int h);
  const BaseMetadata& baseMetadata() const { return metadata_; }
  BaseMetadata& editMetadata() { return metadata_; }
  int conversions() const { return conversions_; }  ///< Whole-frame conversions so far.

 private:
  [[maybe_unused]] long padding_[7] = {};
  int height_;
  int width_;
  BaseMetadata metadata_;
  std::vector<unsigned char> i420_;
  mutable int conversions_ = 0;
};

}  // namespace ocula
