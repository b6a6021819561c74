#include "commands/serve_source.h"

#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <cctype>
#include <cstdio>
#include <filesystem>
#include <optional>
#include <system_error>
#include <utility>
#include <vector>

#include "input/y4m_source.h"
#include "live/frame_ring.h"
#include "live/live_source.h"
#include "live/played_source.h"

namespace host {
namespace {

/// A source that is looked into before it is opened: a pipe's writer must not find it closed in between.
class Peek {
 public:
  explicit Peek(const std::string& source)
      : isInput_(source == "-"),
        fd_(isInput_ ? STDIN_FILENO : ::open(source.c_str(), O_RDONLY | O_NONBLOCK | O_CLOEXEC)) {}
  ~Peek() {
    if (!isInput_ && fd_ >= 0) ::close(fd_);
  }
  Peek(const Peek&) = delete;
  Peek& operator=(const Peek&) = delete;

  bool isY4m(const std::function<bool()>& isOver) const { return fd_ >= 0 && beginsAsY4m(fd_, isOver); }

 private:
  bool isInput_;
  int fd_;
};

bool isPipe(const std::string& source) {
  std::error_code ignored;
  return std::filesystem::is_fifo(source == "-" ? "/dev/stdin" : source, ignored);
}

bool isCameraNumber(const std::string& source) {
  return !source.empty() && std::all_of(source.begin(), source.end(), [](unsigned char c) { return std::isdigit(c); });
}

/// @param find  turns a kept frame into what the source would have given
template <typename Source, typename Find>
PastFrames pastOf(Source* source, Find find) {
  PastFrames past;
  past.kept.find = [source, find](long index) -> std::optional<SourceFrame> {
    const std::optional<live::LiveFrame> found = source->past().find(index);
    return found ? std::optional<SourceFrame>(find(*found)) : std::nullopt;
  };
  past.kept.after = [source, find](long index) {
    std::vector<SourceFrame> later;
    for (const live::LiveFrame& frame : source->past().after(index)) later.push_back(find(frame));
    return later;
  };
  past.kept.range = [source] { return source->past().range(); };
  past.catchUp = live::framesToCatchUp;
  return past;
}

ServedSource played(std::unique_ptr<FrameSource> inner, live::Playing playing, const std::function<bool()>& isOver,
                    std::function<void()> stop = {}) {
  auto source = std::make_unique<live::PlayedSource>(std::move(inner), playing, isOver, std::move(stop));
  live::PlayedSource* const there = source.get();
  PastFrames past = pastOf(there, [there](const live::LiveFrame& frame) { return there->sourceFrameOf(frame); });
  return {std::move(source), std::move(past)};
}

}  // namespace

ServedSource openServedSource(const SourceOptions& source, const LiveTrackOptions& live, Pace pace,
                              const std::string& metadata, bool quiet, const std::function<bool()>& isOver) {
  const bool ready = isPipe(source.source);
  const bool paced = pace == Pace::Source;
  const Peek peek(source.pipeline.empty() ? source.source : "");
  if (peek.isY4m(isOver)) {
    auto inner = std::make_unique<Y4mSource>(source);
    Y4mSource* const there = inner.get();
    const live::Playing playing = ready   ? live::Playing::AsItComes
                                  : paced ? live::Playing::AtItsRate
                                          : live::Playing::EveryFrame;
    return played(std::move(inner), playing, isOver, [there] { there->stop(); });
  }
  if (isLive(source)) {
    LiveTrackOptions kept = live;
    kept.keepsPast = true;
    auto camera = openLiveSource(source, kept, metadata, quiet, isOver);
    live::LiveSource* const there = camera.get();
    PastFrames past = pastOf(there, [there](const live::LiveFrame& frame) { return there->sourceFrameOf(frame, 0); });
    return {std::move(camera), std::move(past)};
  }
  std::unique_ptr<FrameSource> inner = openFrameSource(source);
  if (!quiet && !inner->note().empty()) std::fprintf(stderr, "csrt-track: note: %s\n", inner->note().c_str());
  const bool ownPace = ready || isCameraNumber(source.source);
  const live::Playing playing = ownPace ? live::Playing::AsItComes
                                : paced ? live::Playing::AtItsRate
                                        : live::Playing::EveryFrame;
  return played(std::move(inner), playing, isOver);
}

}  // namespace host
