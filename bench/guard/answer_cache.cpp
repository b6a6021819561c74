#include "answer_cache.h"

#include <cstdio>

#include "base/host_error.h"

namespace bench {

void AnswerCache::load(const std::string& path) {
  path_ = path;
  std::FILE* file = path.empty() ? nullptr : std::fopen(path.c_str(), "r");
  if (file == nullptr) return;
  char start[512];
  long frame = 0;
  int has = 0, seen = 0;
  double x = 0, y = 0, w = 0, h = 0, ms = 0;
  while (std::fscanf(file, "%511s %ld %d %d %lf %lf %lf %lf %lf", start, &frame, &has, &seen, &x, &y, &w, &h, &ms) ==
         9) {
    host::FollowerAnswer& answer = runs_[start][frame];
    if (has != 0) answer.box = cv::Rect2d(x, y, w, h);
    answer.seen = seen != 0;
    answer.cpu_ms = ms;
  }
  std::fclose(file);
}

void AnswerCache::save() const {
  if (path_.empty()) return;
  const std::string part = path_ + ".part";
  std::FILE* file = std::fopen(part.c_str(), "w");
  if (file == nullptr) throw host::HostError(host::ExitCode::Output, "cannot write '" + part + "'");
  for (const auto& [start, run] : runs_) {
    for (const auto& [frame, a] : run) {
      const cv::Rect2d box = a.box.value_or(cv::Rect2d());
      std::fprintf(file, "%s %ld %d %d %.0f %.0f %.0f %.0f %.3f\n", start.c_str(), frame, a.box.has_value(), a.seen,
                   box.x, box.y, box.width, box.height, a.cpu_ms);
    }
  }
  if (std::fclose(file) != 0 || std::rename(part.c_str(), path_.c_str()) != 0) {
    throw host::HostError(host::ExitCode::Output, "cannot write '" + path_ + "'");
  }
}

std::optional<host::FollowerAnswer> AnswerCache::find(const std::string& start, long frame) const {
  const std::lock_guard<std::mutex> lock(mutex_);
  const auto run = runs_.find(start);
  if (run == runs_.end()) return std::nullopt;
  const auto at = run->second.find(frame);
  return at == run->second.end() ? std::nullopt : std::optional<host::FollowerAnswer>(at->second);
}

void AnswerCache::put(const std::string& start, long frame, const host::FollowerAnswer& answer) {
  const std::lock_guard<std::mutex> lock(mutex_);
  runs_[start][frame] = answer;
}

}  // namespace bench
