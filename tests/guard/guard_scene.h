// Drawn frames for the guard: people of two colours on a mottled ground.
#pragma once

#include <opencv2/core.hpp>
#include <opencv2/imgproc.hpp>

#include "csrt_guard/csrt_guard.h"

struct Clothes {
  cv::Scalar upper, lower;
};

inline const Clothes kRedBlue{{40, 40, 190}, {150, 60, 30}};
inline const Clothes kGreenWhite{{60, 160, 50}, {220, 220, 220}};
inline const cv::Size kPerson{24, 60};

inline cv::Mat groundOf(const cv::Size& size = {640, 360}) {
  cv::Mat ground(size, CV_8UC3);
  cv::RNG random(7);
  for (int y = 0; y < size.height; y += 8) {
    for (int x = 0; x < size.width; x += 8) {
      const int level = random.uniform(90, 130);
      cv::rectangle(ground, cv::Rect(x, y, 8, 8), cv::Scalar(level - 10, level + 15, level), cv::FILLED);
    }
  }
  return ground;
}

inline void drawPerson(cv::Mat& frame, const cv::Rect& box, const Clothes& clothes) {
  cv::rectangle(frame, cv::Rect(box.x, box.y, box.width, box.height / 2), clothes.upper, cv::FILLED);
  cv::rectangle(frame, cv::Rect(box.x, box.y + box.height / 2, box.width, box.height - box.height / 2), clothes.lower,
                cv::FILLED);
}

inline cv::Rect personAt(int x, int y) {
  return {{x, y}, kPerson};
}

inline double overlapOf(const cv::Rect& a, const cv::Rect& b) {
  const double common = (a & b).area();
  return common / (a.area() + b.area() - common);
}
