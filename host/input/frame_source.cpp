#include "input/frame_source.h"

#include <fmt/format.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cctype>
#include <cerrno>
#include <chrono>
#include <cmath>
#include <cstdlib>
#include <cstring>
#include <deque>
#include <filesystem>
#include <fstream>
#include <opencv2/imgcodecs.hpp>
#include <opencv2/imgproc.hpp>
#include <opencv2/videoio.hpp>
#include <optional>
#include <system_error>
#include <utility>
#include <vector>

#include "base/host_error.h"
#include "input/decoder_errors.h"
#include "input/frame_times.h"
#include "input/picture_file.h"

namespace host {
namespace {

namespace fs = std::filesystem;
using Clock = std::chrono::steady_clock;

constexpr long kEstimate = 2;              // frames that a container's number may be off by
constexpr double kPictureFps = 25.0;       // a folder of pictures does not say how fast they were taken
constexpr std::size_t kFramesForRate = 5;  // whose time stamps give the rate where the source gives none

bool isAllDigits(const std::string& text) {
  return !text.empty() && std::all_of(text.begin(), text.end(), [](unsigned char c) { return std::isdigit(c) != 0; });
}

bool isPictureName(const fs::path& path) {
  std::string extension = path.extension().string();
  std::transform(extension.begin(), extension.end(), extension.begin(),
                 [](unsigned char c) { return static_cast<char>(std::tolower(c)); });
  static const std::vector<std::string> known = {".jpg",  ".jpeg", ".png", ".bmp", ".tif",
                                                 ".tiff", ".webp", ".ppm", ".pgm"};
  return std::find(known.begin(), known.end(), extension) != known.end();
}

/// Orders img2 before img10: runs of digits compare as numbers.
bool naturalLess(const std::string& a, const std::string& b) {
  std::size_t i = 0;
  std::size_t j = 0;
  const auto digit = [](const std::string& s, std::size_t k) {
    return k < s.size() && std::isdigit(static_cast<unsigned char>(s[k])) != 0;
  };
  while (i < a.size() && j < b.size()) {
    if (digit(a, i) && digit(b, j)) {
      std::size_t endA = i;
      std::size_t endB = j;
      while (digit(a, endA)) ++endA;
      while (digit(b, endB)) ++endB;
      while (i < endA && a[i] == '0') ++i;
      while (j < endB && b[j] == '0') ++j;
      if (endA - i != endB - j) return endA - i < endB - j;
      const int order = a.compare(i, endA - i, b, j, endB - j);
      if (order != 0) return order < 0;
      i = endA;
      j = endB;
    } else {
      if (a[i] != b[j]) return a[i] < b[j];
      ++i;
      ++j;
    }
  }
  return a.size() - i < b.size() - j;
}

std::vector<fs::path> filesOf(const fs::path& folder, const std::string& source) {
  std::error_code failed;
  std::vector<fs::path> files;
  for (fs::directory_iterator it(folder, failed), end; !failed && it != end; it.increment(failed)) {
    std::error_code ignored;
    if (it->is_regular_file(ignored)) files.push_back(it->path());
  }
  if (failed == std::errc::no_such_file_or_directory) {
    throw HostError(ExitCode::Source, "there is no folder '" + folder.string() + "'");
  }
  if (failed) throw HostError(ExitCode::Source, "cannot read the folder of '" + source + "': " + failed.message());
  return files;
}

std::vector<fs::path> picturesOfFolder(const std::string& source) {
  std::vector<fs::path> pictures = filesOf(source, source);
  pictures.erase(std::remove_if(pictures.begin(), pictures.end(), [](const fs::path& p) { return !isPictureName(p); }),
                 pictures.end());
  std::sort(pictures.begin(), pictures.end(), [](const fs::path& a, const fs::path& b) {
    return naturalLess(a.filename().string(), b.filename().string());
  });
  if (pictures.empty()) throw HostError(ExitCode::Source, "folder '" + source + "' holds no pictures");
  return pictures;
}

/// The three parts of a name with one printf integer conversion: "img/%04d.jpg" is "img/", width 4, ".jpg".
struct NumberPattern {
  std::string before;
  std::size_t zeros = 0;  ///< Digits that leading zeros fill up to; 0: none.
  std::string after;
};

bool tryParsePattern(const std::string& text, NumberPattern& pattern) {
  const std::size_t percent = text.find('%');
  if (percent == std::string::npos) return false;
  std::size_t at = percent + 1;
  while (at < text.size() && std::isdigit(static_cast<unsigned char>(text[at])) != 0) ++at;
  if (at >= text.size() || (text[at] != 'd' && text[at] != 'i' && text[at] != 'u')) return false;
  const std::string width = text.substr(percent + 1, at - percent - 1);
  if (width.size() > 2) return false;
  pattern.before = text.substr(0, percent);
  pattern.zeros = width.empty() || width[0] != '0' ? 0 : static_cast<std::size_t>(std::atoi(width.c_str()));
  pattern.after = text.substr(at + 1);
  return pattern.after.find('%') == std::string::npos && pattern.after.find('/') == std::string::npos &&
         pattern.before.find('%') == std::string::npos;
}

/// The files that exist for a pattern, by number: a sequence may begin anywhere and may have gaps.
std::vector<fs::path> picturesOfPattern(const NumberPattern& pattern, const std::string& source) {
  const fs::path prefix(pattern.before);
  const fs::path folder = prefix.has_parent_path() ? prefix.parent_path() : fs::path(".");
  const std::string head = prefix.filename().string();
  std::vector<std::pair<long long, fs::path>> found;
  for (const fs::path& file : filesOf(folder, source)) {
    const std::string name = file.filename().string();
    if (name.size() <= head.size() + pattern.after.size() || name.compare(0, head.size(), head) != 0) continue;
    if (name.compare(name.size() - pattern.after.size(), std::string::npos, pattern.after) != 0) continue;
    const std::string number = name.substr(head.size(), name.size() - head.size() - pattern.after.size());
    const bool rightWidth =
        number.size() >= pattern.zeros && (number.size() == pattern.zeros || number[0] != '0' || number.size() == 1);
    if (isAllDigits(number) && number.size() < 18 && rightWidth) found.emplace_back(std::stoll(number), file);
  }
  if (found.empty()) throw HostError(ExitCode::Source, "no picture matches '" + source + "'");
  std::sort(found.begin(), found.end());
  std::vector<fs::path> pictures;
  pictures.reserve(found.size());
  for (auto& entry : found) pictures.push_back(std::move(entry.second));
  return pictures;
}

class PictureSource : public FrameSource {
 public:
  PictureSource(std::vector<fs::path> pictures, const SourceOptions& options)
      : pictures_(std::move(pictures)), next_(options.start), fps_(options.fps > 0 ? options.fps : kPictureFps) {
    const long count = static_cast<long>(pictures_.size());
    if (options.start >= count) {
      throw HostError(ExitCode::Source, "'" + options.source + "' has only " + std::to_string(count) +
                                            " frames: --start " + std::to_string(options.start) + " lies behind them");
    }
    end_ = options.frames > 0 ? std::min(count, options.start + options.frames) : count;
  }

  bool read(SourceFrame& frame) override {
    if (next_ >= end_) return false;
    const std::string name = pictures_[static_cast<std::size_t>(next_)].string();
    frame.bgr = readPicture(name);
    frame.file = pictures_[static_cast<std::size_t>(next_)].filename().string();
    frame.note.clear();
    frame.index = next_++;
    frame.time_s = static_cast<double>(frame.index) / fps_;
    return true;
  }
  double fps() const override { return fps_; }
  long expected() const override { return std::max(0L, end_ - next_); }

 private:
  std::vector<fs::path> pictures_;
  long next_;
  long end_ = 0;
  double fps_;
};

class VideoSource : public FrameSource {
 public:
  VideoSource(const cv::VideoCapture& capture, const SourceOptions& options, bool live)
      : capture_(capture), options_(options), live_(live), begin_(Clock::now()) {
    const double said = capture_.get(cv::CAP_PROP_FPS);
    const double count = live ? 0.0 : capture_.get(cv::CAP_PROP_FRAME_COUNT);
    chooseRate_(options, said);
    times_.emplace(fps_, options.fps <= 0);
    // The number of frames is the duration in what is said to be a frame.
    const double real = isBelievableRate(said) ? count : count / said * fps_;
    total_ = std::isfinite(real) && real > 0 && real < 1e9 ? std::lround(real) : 0;
    skipTo_(options);
    if (options.frames > 0) end_ = options.start + options.frames;
    expected_ = total_ > options.start ? total_ - options.start : 0;
    if (options.frames > 0) expected_ = expected_ > 0 ? std::min(expected_, options.frames) : options.frames;
  }

  bool read(SourceFrame& frame) override {
    if (end_ > 0 && next_ >= end_) return false;
    const long before = decoderErrors();
    if (!grab_()) return atEnd_();
    cv::Mat picture = picture_();
    if (picture.empty()) return atEnd_();
    frame.file.clear();
    frame.note = decoderErrors() > before ? "damaged" : "";
    if (picture.channels() == 1) cv::cvtColor(picture, picture, cv::COLOR_GRAY2BGR);
    frame.bgr = picture;
    frame.index = next_++;
    frame.time_s = live_ ? std::chrono::duration<double>(Clock::now() - begin_).count() : time_s_;
    return true;
  }
  double fps() const override { return fps_; }
  long expected() const override { return expected_; }
  std::string note() const override { return note_; }

  std::vector<std::string> faults() const override {
    if (!endedEarly_) return {};
    return {"ends early: " + std::to_string(next_) + " of " + std::to_string(total_) + " frames"};
  }

 private:
  /// A frame that was read before the rate was known.
  struct Early {
    cv::Mat picture;
    double stamp_s;
  };

  double stamp_() const { return capture_.get(cv::CAP_PROP_POS_MSEC) / 1000.0; }

  /// The next frame, not decoded where that can be spared, and its time.
  bool grab_() {
    current_.release();
    if (!early_.empty()) {
      current_ = early_.front().picture;
      time_s_ = times_->next(early_.front().stamp_s);
      early_.pop_front();
      return true;
    }
    if (!capture_.grab()) return false;
    time_s_ = times_->next(stamp_());
    return true;
  }

  cv::Mat picture_() {
    if (!current_.empty()) return std::move(current_);
    cv::Mat picture;
    if (!capture_.retrieve(picture)) return {};
    return picture.clone();  // the capture reuses its buffer
  }

  /// What is asked for, what the source says, or what its first time stamps say.
  void chooseRate_(const SourceOptions& options, double said) {
    fps_ = options.fps > 0 ? options.fps : said;
    if (options.fps > 0 || isBelievableRate(said)) return;
    fps_ = kPictureFps;
    if (live_) return;
    std::vector<double> stamps;
    while (stamps.size() < kFramesForRate && capture_.grab()) {
      cv::Mat picture;
      if (!capture_.retrieve(picture)) break;
      stamps.push_back(stamp_());
      early_.push_back({picture.clone(), stamps.back()});
    }
    if (const std::optional<double> rate = rateOf(stamps)) {
      fps_ = *rate;
      return;
    }
    note_ = fmt::format("'{}' does not say how many frames it has a second: {} are assumed; --fps says otherwise",
                        options.source, kPictureFps);
  }

  /// The number of frames a container names may be an estimate: a few missing mean nothing. Always false.
  bool atEnd_() {
    if (next_ == options_.start && next_ > 0) lieBehind_();
    const long tolerance = std::max(kEstimate, total_ / 50);
    endedEarly_ = total_ > 0 && next_ + tolerance < total_;
    return false;
  }

  [[noreturn]] void lieBehind_() const {
    throw HostError(ExitCode::Source, "'" + options_.source + "' has only " + std::to_string(next_) +
                                          " frames: --start " + std::to_string(options_.start) + " lies behind them");
  }

  /// Frame by frame: jumping by position lands on the nearest key frame in many files.
  void skipTo_(const SourceOptions& options) {
    while (next_ < options.start) {
      if (!grab_()) lieBehind_();
      ++next_;
    }
  }

  cv::VideoCapture capture_;
  long next_ = 0;
  long end_ = 0;
  SourceOptions options_;
  long total_ = 0;  ///< Frames the container names; 0: none.
  bool endedEarly_ = false;
  bool live_;
  Clock::time_point begin_;
  double fps_ = kPictureFps;
  long expected_ = 0;
  std::string note_;
  std::deque<Early> early_;
  cv::Mat current_;  ///< Decoded already; empty: still in the capture.
  std::optional<FrameTimes> times_;
  double time_s_ = 0.0;  ///< Of the frame grabbed last.
};

/// Some decoders draw a text file as pictures of a terminal; nobody wants to track in those.
bool isPlainText(const std::string& path) {
  std::ifstream file(path, std::ios::binary);
  std::string head(256, '\0');
  file.read(head.data(), static_cast<std::streamsize>(head.size()));
  head.resize(static_cast<std::size_t>(file.gcount()));
  const bool playlist = head.rfind("#EXTM3U", 0) == 0 || head.rfind("v=0", 0) == 0;
  return !head.empty() && !playlist && std::all_of(head.begin(), head.end(), [](unsigned char c) {
    return c >= 0x20 ? c < 0x7F : c == '\n' || c == '\r' || c == '\t';
  });
}

/// A pipe is opened once, by the decoder: whatever is read before is gone.
bool isPipe(const std::string& path) {
  struct stat status {};
  return stat(path.c_str(), &status) == 0 && (S_ISFIFO(status.st_mode) || S_ISSOCK(status.st_mode));
}

std::unique_ptr<FrameSource> openVideo(const SourceOptions& options) {
  const bool pipe = isPipe(options.source);
  std::error_code ignored;
  if (!pipe && fs::exists(options.source, ignored)) {
    errno = 0;
    if (access(options.source.c_str(), R_OK) != 0) {
      throw HostError(ExitCode::Source, "cannot open '" + options.source + "': " + std::strerror(errno));
    }
    if (isPlainText(options.source)) {
      throw HostError(ExitCode::Source, "'" + options.source + "' is a text file, not a video");
    }
  }
  cv::VideoCapture capture;
  // Of a pipe only one decoder gets the first byte; a second one would wait for a writer that is gone.
  const bool opened = capture.open(options.source, pipe ? cv::CAP_FFMPEG : cv::CAP_ANY) && capture.isOpened();
  watchDecoder();
  if (!opened) {
    throw HostError(ExitCode::Source, "cannot open '" + options.source + "' as a video");
  }
  return std::make_unique<VideoSource>(capture, options, false);
}

std::unique_ptr<FrameSource> openCamera(const SourceOptions& options) {
  cv::VideoCapture capture;
  if (options.source.size() > 4 || !capture.open(std::atoi(options.source.c_str())) || !capture.isOpened()) {
    throw HostError(ExitCode::Source, "there is no file '" + options.source + "' and no camera of that number");
  }
  return std::make_unique<VideoSource>(capture, options, true);
}

/// Of a name that leads nowhere.
std::string whyMissing(const std::string& source) {
  errno = 0;
  if (access(source.c_str(), F_OK) != 0 && errno == EACCES) {
    return "cannot open '" + source + "': " + std::strerror(EACCES);
  }
  const fs::path folder = fs::path(source).parent_path();
  std::error_code ignored;
  if (!folder.empty() && !fs::exists(folder, ignored)) return "there is no folder '" + folder.string() + "'";
  return "there is no file '" + source + "'";
}

void checkNumbers(const SourceOptions& options) {
  if (options.start < 0) throw HostError(ExitCode::Usage, "--start " + std::to_string(options.start) + " is negative");
  if (options.frames < 0) {
    throw HostError(ExitCode::Usage, "--frames " + std::to_string(options.frames) + " is negative");
  }
  if (!(options.fps >= 0) || options.fps > 1e6) {
    throw HostError(ExitCode::Usage, "--fps " + std::to_string(options.fps) + " is not a frame rate");
  }
}

}  // namespace

std::vector<std::string> picturesOfSource(const std::string& source) {
  std::error_code ignored;
  NumberPattern pattern;
  std::vector<std::string> names;
  try {
    std::vector<fs::path> pictures;
    if (fs::is_directory(source, ignored)) {
      pictures = picturesOfFolder(source);
    } else if (!fs::exists(source, ignored) && tryParsePattern(source, pattern)) {
      pictures = picturesOfPattern(pattern, source);
    }
    for (const fs::path& picture : pictures) names.push_back(picture.string());
  } catch (const HostError&) {  // opening the source says what is wrong with it
  }
  return names;
}

namespace {

std::unique_ptr<FrameSource> openAny(const SourceOptions& options) {
  std::error_code ignored;
  const fs::path path(options.source);
  if (fs::is_directory(path, ignored))
    return std::make_unique<PictureSource>(picturesOfFolder(options.source), options);
  if (fs::exists(path, ignored)) return openVideo(options);
  NumberPattern pattern;
  if (tryParsePattern(options.source, pattern)) {
    return std::make_unique<PictureSource>(picturesOfPattern(pattern, options.source), options);
  }
  if (isAllDigits(options.source)) return openCamera(options);
  if (options.source.find("://") != std::string::npos) return openVideo(options);  // a network stream
  throw HostError(ExitCode::Source, whyMissing(options.source));
}

/// Notes what changes from frame to frame, whatever the source.
class WatchedSource : public FrameSource {
 public:
  explicit WatchedSource(std::unique_ptr<FrameSource> source) : source_(std::move(source)) {}

  bool read(SourceFrame& frame) override {
    if (!source_->read(frame)) return false;
    if (!frame.note.empty() && damaged_++ == 0) firstDamaged_ = frame.index;
    if (!size_.empty() && frame.bgr.size() != size_) noteSize_(frame);
    size_ = frame.bgr.size();
    return true;
  }
  double fps() const override { return source_->fps(); }
  long expected() const override { return source_->expected(); }
  std::vector<std::string> faults() const override {
    std::vector<std::string> all = source_->faults();
    if (damaged_ > 0) {
      all.push_back(std::to_string(damaged_) + " damaged frame" + (damaged_ == 1 ? "" : "s, the first") + ": frame " +
                    std::to_string(firstDamaged_));
    }
    if (resized_ > 0) {
      all.push_back(firstSize_ + " in frame " + std::to_string(firstResized_) +
                    (resized_ > 1 ? " and " + std::to_string(resized_ - 1) + " more" : ""));
    }
    return all;
  }

 private:
  void noteSize_(SourceFrame& frame) {
    const auto text = [](cv::Size size) { return std::to_string(size.width) + "x" + std::to_string(size.height); };
    const std::string what = "picture size changed from " + text(size_) + " to " + text(frame.bgr.size());
    frame.note += (frame.note.empty() ? "" : "; ") + what;
    if (resized_++ > 0) return;
    firstSize_ = what;
    firstResized_ = frame.index;
  }

  std::unique_ptr<FrameSource> source_;
  cv::Size size_;
  long damaged_ = 0;
  long firstDamaged_ = 0;
  long resized_ = 0;
  long firstResized_ = 0;
  std::string firstSize_;
};

}  // namespace

std::unique_ptr<FrameSource> openFrameSource(const SourceOptions& options) {
  checkNumbers(options);
  return std::make_unique<WatchedSource>(openAny(options));
}

bool isReadableOnce(const std::string& source) {
  return isPipe(source);
}

}  // namespace host
