// The mean is first taken in whatever order is fast. Where that lies too close to the middle between two grey levels to
// be sure how cv::resize rounds it, the pixel is added up again in single precision in the order of cv::resize.
#include "area_shrink.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <cstdint>
#include <limits>
#include <opencv2/imgproc.hpp>
#include <optional>
#include <vector>

namespace {

constexpr double kSliver = 1e-3;  // cv::resize leaves out an edge pixel of which a cell covers less than this
constexpr int kMaxRows = 256;     // of 8 bits each: their sum fits 16 bits

/// The source pixels under one pixel of the result, along one axis, and their weights.
struct Cell {
  int first = 0;  ///< First pixel that lies wholly inside ...
  int whole = 0;  ///< ... and how many do.
  float before = 0.0F;
  float within = 0.0F;
  float after = 0.0F;  ///< `before` and `after` weigh the neighbours cut by the cell's ends; 0: not cut.

  int taps() const { return whole + (before > 0.0F ? 1 : 0) + (after > 0.0F ? 1 : 0); }
};

using Axis = std::vector<Cell>;

// Same quotients in the same precision as cv::resize, so that the weights are the same floats.
Cell makeCell(int index, double scale, int sourceSize) {
  const double begin = index * scale;
  const double end = begin + scale;
  const double width = std::min(scale, sourceSize - begin);
  const int last = std::min(cvFloor(end), sourceSize - 1);
  const int first = std::min(cvCeil(begin), last);
  Cell cell;
  cell.first = first;
  cell.whole = last - first;
  if (first - begin > kSliver) cell.before = static_cast<float>((first - begin) / width);
  cell.within = static_cast<float>(1.0 / width);
  if (end - last > kSliver) cell.after = static_cast<float>(std::min(std::min(end - last, 1.0), width) / width);
  return cell;
}

Axis makeAxis(int size, double scale, int sourceSize) {
  Axis axis;
  axis.reserve(static_cast<std::size_t>(size));
  for (int i = 0; i < size; ++i) axis.push_back(makeCell(i, scale, sourceSize));
  return axis;
}

int mostTaps(const Axis& axis) {
  int most = 0;
  for (const Cell& cell : axis) most = std::max(most, cell.taps());
  return most;
}

/// How this OpenCV was compiled: whether it rounds a product before adding it, along rows and across them.
struct Rounding {
  bool fusedAlong = false;
  bool fusedAcross = false;
};

float addProduct(float sum, float a, float b, bool fused) {
  if (fused) return std::fma(a, b, sum);
  const float product = a * b;
  return sum + product;
}

template <typename Visit>
void visitTaps(const Cell& cell, Visit visit) {
  if (cell.before > 0.0F) visit(cell.first - 1, cell.before);
  for (int i = 0; i < cell.whole; ++i) visit(cell.first + i, cell.within);
  if (cell.after > 0.0F) visit(cell.first + cell.whole, cell.after);
}

/// One pixel of the result before it is rounded to a grey level, in the order of cv::resize.
template <typename Pixel>
float meanInOrder(const cv::Mat& src, const Cell& column, const Cell& row, const Rounding& rounding) {
  float sum = 0.0F;
  visitTaps(row, [&](int y, float rowWeight) {
    const Pixel* pixels = src.ptr<Pixel>(y);
    float line = 0.0F;
    visitTaps(column, [&](int x, float weight) {
      line = addProduct(line, static_cast<float>(pixels[x]), weight, rounding.fusedAlong);
    });
    sum = addProduct(sum, rowWeight, line, rounding.fusedAcross);
  });
  return sum;
}

bool addsUpLike(const cv::Mat& source, const cv::Mat& expected, double fx, double fy, const Rounding& rounding) {
  const Axis columns = makeAxis(expected.cols, 1.0 / fx, source.cols);
  const Axis rows = makeAxis(expected.rows, 1.0 / fy, source.rows);
  for (int y = 0; y < expected.rows; ++y) {
    for (int x = 0; x < expected.cols; ++x) {
      const float mean =
          meanInOrder<float>(source, columns[static_cast<std::size_t>(x)], rows[static_cast<std::size_t>(y)], rounding);
      if (mean != expected.at<float>(y, x)) return false;
    }
  }
  return true;
}

// Asked once per process. The picture has floats, because those show how OpenCV rounds while it adds; its loop for
// grey levels is the same one.
std::optional<Rounding> learnRounding() {
  constexpr double kFx = 0.2963;
  constexpr double kFy = 0.1481;
  cv::Mat source(67, 93, CV_32FC1);
  cv::RNG random(20240611);
  random.fill(source, cv::RNG::UNIFORM, 0.0F, 255.0F);
  cv::Mat expected;
  cv::resize(source, expected, {}, kFx, kFy, cv::INTER_AREA);
  for (const Rounding rounding : {Rounding{false, false}, Rounding{true, true}, {true, false}, {false, true}}) {
    if (addsUpLike(source, expected, kFx, kFy, rounding)) return rounding;
  }
  return std::nullopt;
}

/// Computes rows of the result; one object for all threads.
class Shrinker : public cv::ParallelLoopBody {
 public:
  Shrinker(const cv::Mat& src, cv::Mat& dst, double fx, double fy, const Rounding& rounding)
      : src_(src),
        dst_(dst),
        columns_(makeAxis(dst.cols, 1.0 / fx, src.cols)),
        rows_(makeAxis(dst.rows, 1.0 / fy, src.rows)),
        rounding_(rounding),
        // Each rounding of a sum of at most 255 is off by up to 255 / 2^24; this many happen in the two ways together.
        doubt_(255.0F / 16777216.0F * static_cast<float>(2 * (mostTaps(columns_) + mostTaps(rows_)) + 16)) {}

  bool covers() const { return mostTaps(rows_) <= kMaxRows; }

  void operator()(const cv::Range& range) const override {
    Line line(static_cast<std::size_t>(src_.cols));
    for (int y = range.start; y < range.end; ++y) {
      const Cell& row = rows_[static_cast<std::size_t>(y)];
      sumRows(row, line);
      sumColumns(row, line, dst_.ptr<std::uint8_t>(y));
    }
  }

 private:
  struct Line {
    explicit Line(std::size_t size) : whole(size), mean(size) {}
    std::vector<std::uint16_t> whole;
    std::vector<float> mean;
  };

  void addRow(int y, std::uint16_t* sum, std::size_t n) const {
    const std::uint8_t* pixels = src_.ptr<std::uint8_t>(y);
    for (std::size_t x = 0; x < n; ++x) sum[x] = static_cast<std::uint16_t>(sum[x] + pixels[x]);
  }

  // Four at a time, because loading and storing the sums costs more than adding.
  void addFourRows(int y, std::uint16_t* sum, std::size_t n) const {
    const std::uint8_t* a = src_.ptr<std::uint8_t>(y);
    const std::uint8_t* b = src_.ptr<std::uint8_t>(y + 1);
    const std::uint8_t* c = src_.ptr<std::uint8_t>(y + 2);
    const std::uint8_t* d = src_.ptr<std::uint8_t>(y + 3);
    for (std::size_t x = 0; x < n; ++x) sum[x] = static_cast<std::uint16_t>(sum[x] + a[x] + b[x] + c[x] + d[x]);
  }

  void sumRows(const Cell& row, Line& line) const {
    const std::size_t n = line.mean.size();
    std::uint16_t* whole = line.whole.data();
    float* mean = line.mean.data();
    std::fill_n(whole, n, std::uint16_t{0});
    int done = row.whole % 4;
    for (int i = 0; i < done; ++i) addRow(row.first + i, whole, n);
    for (; done < row.whole; done += 4) addFourRows(row.first + done, whole, n);
    // A neighbour that is not cut weighs nothing: any row will do for it.
    const std::uint8_t* before = src_.ptr<std::uint8_t>(row.before > 0.0F ? row.first - 1 : row.first);
    const std::uint8_t* after = src_.ptr<std::uint8_t>(row.after > 0.0F ? row.first + row.whole : row.first);
    const Cell weight = row;  // a copy: for all the compiler knows, writing the means might change `row`
    for (std::size_t x = 0; x < n; ++x) {
      mean[x] = static_cast<float>(whole[x]) * weight.within + static_cast<float>(before[x]) * weight.before +
                static_cast<float>(after[x]) * weight.after;
    }
  }

  void sumColumns(const Cell& row, const Line& line, std::uint8_t* out) const {
    const float* mean = line.mean.data();
    for (const Cell& column : columns_) {
      const float* inside = mean + column.first;
      float whole = 0.0F;
      for (int i = 0; i < column.whole; ++i) whole += inside[i];
      float sum = whole * column.within;
      if (column.before > 0.0F) sum += inside[-1] * column.before;
      if (column.after > 0.0F) sum += inside[column.whole] * column.after;
      const float raised = sum + 0.5F;
      const int level = static_cast<int>(raised);
      const float above = raised - static_cast<float>(level);
      const bool sure = above > doubt_ && above < 1.0F - doubt_;
      *out++ = sure ? static_cast<std::uint8_t>(level)
                    : cv::saturate_cast<std::uint8_t>(meanInOrder<std::uint8_t>(src_, column, row, rounding_));
    }
  }

  const cv::Mat& src_;
  cv::Mat& dst_;
  Axis columns_;
  Axis rows_;
  Rounding rounding_;
  float doubt_;
};

bool shrinks(double factor) {
  return factor > 0.0 && factor < 1.0;
}

bool isWhole(double scale) {
  return std::abs(scale - cv::saturate_cast<int>(scale)) < std::numeric_limits<double>::epsilon();
}

}  // namespace

bool tryShrinkArea(const cv::Mat& src, cv::Mat& dst, double fx, double fy) {
  if (src.type() != CV_8UC1 || !shrinks(fx) || !shrinks(fy)) return false;
  if (isWhole(1.0 / fx) && isWhole(1.0 / fy)) return false;  // cv::resize adds whole numbers there, and fast
  const cv::Size size(cv::saturate_cast<int>(src.cols * fx), cv::saturate_cast<int>(src.rows * fy));
  if (size.width < 1 || size.height < 1 || size == src.size()) return false;
  static const std::optional<Rounding> rounding = learnRounding();
  if (!rounding) return false;
  cv::Mat result = dst.data == src.data ? cv::Mat() : dst;
  result.create(size, CV_8UC1);
  const Shrinker shrinker(src, result, fx, fy, *rounding);
  if (!shrinker.covers()) return false;
  cv::parallel_for_(cv::Range(0, size.height), shrinker, static_cast<double>(src.total()) / (1 << 18));
  dst = result;
  return true;
}
