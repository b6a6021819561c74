// How well does a click become a box, and what does it cost? Clicks are the middles of true boxes, moved by up to 15 %
// of the box; the answer is compared with the box. Budget: 40 ms at 1080p.
//   box_proposal_accuracy VIDEO TRUTH [EVERY]
// TRUTH: comma separated, a heading, then frame,id,x,y,w,h (counted from 1); or lines x<tab>y<tab>w<tab>h, one a frame.
#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <ctime>
#include <fstream>
#include <map>
#include <opencv2/core.hpp>
#include <opencv2/imgproc.hpp>
#include <opencv2/videoio.hpp>
#include <random>
#include <sstream>
#include <string>
#include <vector>

#include "picture/box_proposal.h"

namespace {

double overlap(const cv::Rect& a, const cv::Rect& b) {
  const double both = (a & b).area();
  return both / (a.area() + b.area() - both);
}

std::multimap<long, cv::Rect> readTruth(const std::string& path) {
  std::multimap<long, cv::Rect> truth;
  std::ifstream file(path);
  std::string line;
  long number = 0;
  while (std::getline(file, line)) {
    std::replace(line.begin(), line.end(), ',', ' ');
    std::replace(line.begin(), line.end(), '\t', ' ');
    std::istringstream words(line);
    std::vector<double> values;
    for (double value = 0; words >> value;) values.push_back(value);
    const auto box = [&values](std::size_t at) {
      return cv::Rect(cv::Rect2d(values[at], values[at + 1], values[at + 2], values[at + 3]));
    };
    if (values.size() == 4) truth.emplace(number++, box(0));
    if (values.size() >= 6) truth.emplace(static_cast<long>(values[0]) - 1, box(2));
  }
  return truth;
}

struct Figures {
  std::vector<double> found;
  std::vector<double> square;
  double seconds = 0.0;
  int segmented = 0;

  void say(const char* name) const {
    if (found.empty()) return;
    const auto mean = [](const std::vector<double>& v) {
      double sum = 0;
      for (const double x : v) sum += x;
      return sum / static_cast<double>(v.size());
    };
    const auto above = std::count_if(found.begin(), found.end(), [](double x) { return x > 0.3; });
    std::printf("%s: %zu clicks, mean overlap %.3f (a fixed square %.3f), above 0.3: %.1f %%, segmented %d, %.1f ms\n",
                name, found.size(), mean(found), mean(square),
                100.0 * static_cast<double>(above) / static_cast<double>(found.size()), segmented,
                seconds * 1000 / static_cast<double>(found.size()));
  }
};

void click(const cv::Mat& frame, const cv::Rect& truth, std::mt19937& random, Figures& figures) {
  std::uniform_real_distribution<double> jitter(-0.15, 0.15);
  const double dx = jitter(random) * truth.width;
  const double dy = jitter(random) * truth.height;
  const cv::Point point(static_cast<int>(truth.x + truth.width / 2.0 + dx),
                        static_cast<int>(truth.y + truth.height / 2.0 + dy));
  const auto begin = std::clock();
  const host::BoxProposal proposal = host::proposeBox(frame, point);
  figures.seconds += double(std::clock() - begin) / CLOCKS_PER_SEC;
  figures.found.push_back(overlap(proposal.box, truth));
  const int side = frame.rows / 10;
  figures.square.push_back(overlap({point.x - side / 2, point.y - side / 2, side, side}, truth));
  figures.segmented += proposal.segmented ? 1 : 0;
}

}  // namespace

int main(int argc, char** argv) {
  if (argc < 3) {
    std::fprintf(stderr, "usage: box_proposal_accuracy VIDEO TRUTH [EVERY]\n");
    return 2;
  }
  const std::multimap<long, cv::Rect> truth = readTruth(argv[2]);
  const long every = argc > 3 ? std::atol(argv[3]) : 1;
  cv::VideoCapture video(argv[1]);
  std::mt19937 random(1);
  Figures figures;
  Figures large;
  cv::Mat frame;
  for (long number = 0; video.read(frame); ++number) {
    if (number % every != 0) continue;
    const auto [begin, end] = truth.equal_range(number);
    for (auto it = begin; it != end; ++it) {
      const cv::Rect whole(0, 0, frame.cols, frame.rows);
      if ((it->second & whole) != it->second || it->second.area() < 64) continue;
      click(frame, it->second, random, figures);
      cv::Mat big;
      if (number % (every * 4) != 0) continue;
      const double scale = 1080.0 / frame.rows;
      cv::resize(frame, big, {}, scale, scale);
      const cv::Rect2d box(it->second);
      click(big, cv::Rect(cv::Rect2d(box.x * scale, box.y * scale, box.width * scale, box.height * scale)), random,
            large);
    }
  }
  figures.say("as it is");
  large.say("1080 lines");
  return 0;
}
