// What both trackers are shown: a clip, drawn scenes and folders of pictures, as they are, cut, enlarged and grey.
#pragma once

#include <opencv2/core.hpp>
#include <string>
#include <vector>

namespace equality {

struct Sequence {
  std::string name;
  std::vector<cv::Mat> frames;  ///< 8 bits, BGR or grey, all of one size.
  cv::Rect known;               ///< A box around something that moves, on the first frame; empty: none is known.
};

struct Material {
  std::string clip;                   ///< A video; empty: none.
  std::vector<std::string> pictures;  ///< Folders of pictures.
  int frames = 60;                    ///< Longest sequence.
  bool isShort = false;               ///< Only a handful of sequences.
};

/// @throws std::runtime_error naming the clip or the folder that cannot be read
std::vector<Sequence> makeSequences(const Material& material);

}  // namespace equality
