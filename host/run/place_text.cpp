#include "run/place_text.h"

#include <algorithm>
#include <charconv>
#include <cmath>
#include <cstdint>
#include <cstdlib>

namespace host {
namespace {

constexpr double kMostPercent = 1e6;

bool tryReadPercent(const std::string& text, Coordinate& coordinate) {
  const std::string number = text.substr(0, text.size() - 1);
  if (number.empty() || number.find_first_not_of("0123456789.-") != std::string::npos) return false;
  // Digits, one point, one sign: read by hand, because the C library's reading depends on the language.
  const std::size_t point = number.find('.');
  const std::string whole = number.substr(0, point);
  const std::string part = point == std::string::npos ? "" : number.substr(point + 1);
  long long digits = 0;
  const std::string all = whole + part;
  const auto [end, failed] = std::from_chars(all.data(), all.data() + all.size(), digits);
  if (failed != std::errc() || end != all.data() + all.size() || part.size() > 9) return false;
  coordinate = {static_cast<double>(digits) / std::pow(10.0, static_cast<double>(part.size())), true};
  return std::fabs(coordinate.value) <= kMostPercent;
}

bool tryReadCoordinate(const std::string& text, Coordinate& coordinate) {
  if (!text.empty() && text.back() == '%') return tryReadPercent(text, coordinate);
  std::int32_t pixels = 0;
  const auto [end, failed] = std::from_chars(text.data(), text.data() + text.size(), pixels);
  if (failed != std::errc() || end != text.data() + text.size()) return false;
  coordinate = {static_cast<double>(pixels), false};
  return true;
}

template <std::size_t N>
bool tryReadAll(const std::string& text, std::array<Coordinate, N>& all) {
  std::size_t begin = 0;
  for (std::size_t i = 0; i < N; ++i) {
    const std::size_t comma = text.find(',', begin);
    const bool last = i + 1 == N;
    if (last != (comma == std::string::npos)) return false;
    if (!tryReadCoordinate(text.substr(begin, last ? comma : comma - begin), all[i])) return false;
    begin = comma + 1;
  }
  return true;
}

int pixelsOf(const Coordinate& coordinate, int whole) {
  const double value = coordinate.percent ? coordinate.value / 100.0 * whole : coordinate.value;
  return static_cast<int>(std::lround(std::min(std::max(value, -2e9), 2e9)));
}

}  // namespace

bool tryReadBox(const std::string& text, BoxText& box) {
  return tryReadAll(text, box) && box[2].value > 0 && box[3].value > 0;
}

bool tryReadPoint(const std::string& text, PointText& point) {
  return tryReadAll(text, point);
}

BBox boxIn(const BoxText& box, cv::Size frame) {
  return {pixelsOf(box[0], frame.width), pixelsOf(box[1], frame.height), std::max(1, pixelsOf(box[2], frame.width)),
          std::max(1, pixelsOf(box[3], frame.height))};
}

cv::Point pointIn(const PointText& point, cv::Size frame) {
  return {pixelsOf(point[0], frame.width), pixelsOf(point[1], frame.height)};
}

}  // namespace host
