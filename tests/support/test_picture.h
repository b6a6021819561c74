// Frames as tests need them: drawn ones, and ones that misbehave as a host's may.
#pragma once

#include <functional>
#include <memory>
#include <opencv2/core.hpp>
#include <optional>
#include <utility>
#include <vector>

#include "ocula/ocula_picture.h"

/// A frame whose single operations a test may replace; it remembers the crops it was asked for.
class TestPicture : public ocula::OculaPicture {
 public:
  explicit TestPicture(cv::Mat bgr, BaseMetadata metadata = {}) : OculaPicture(std::move(bgr), std::move(metadata)) {}

  int width() const override { return size ? size->width : OculaPicture::width(); }
  int height() const override { return size ? size->height : OculaPicture::height(); }
  cv::Mat getBGR() const override {
    ++bgrCalls;
    return onBgr ? onBgr() : OculaPicture::getBGR();
  }
  cv::Mat cropToMat(int x, int y, int w, int h) override {
    crops.emplace_back(x, y, w, h);
    return onCrop ? onCrop(crops.back()) : OculaPicture::cropToMat(x, y, w, h);
  }

  std::optional<cv::Size> size;
  std::function<cv::Mat()> onBgr;
  std::function<cv::Mat(const cv::Rect&)> onCrop;
  mutable int bgrCalls = 0;
  std::vector<cv::Rect> crops;
};

using Frames = std::vector<std::shared_ptr<ocula::OculaPicture>>;
using Metadata = ocula::OculaPicture::BaseMetadata;

inline std::shared_ptr<TestPicture> plainPicture(const cv::Size& size, Metadata metadata = {}) {
  return std::make_shared<TestPicture>(cv::Mat(size, CV_8UC3, cv::Scalar(90, 110, 130)), std::move(metadata));
}

/// Where the camera looks, degrees.
inline Metadata viewOf(double pan, double tilt, double hfov, double vfov) {
  using Keys = Metadata::Keys;
  return {{Keys::kPanDeg, pan}, {Keys::kTiltDeg, tilt}, {Keys::kHfovDeg, hfov}, {Keys::kVfovDeg, vfov}};
}
