// What any run can leave behind: records line by line, the drawn video, the last drawn frame.
#pragma once

#include <opencv2/core.hpp>
#include <optional>
#include <string>
#include <vector>

#include "base/pending_file.h"
#include "base/text_output.h"
#include "picture/annotate.h"
#include "picture/picture_output.h"
#include "run/delay_observer.h"
#include "run/run_observer.h"

namespace host {

/// One JSON line per call. A file is begun with the first target that is followed: a box that is refused costs nobody
/// the records of an earlier run.
class RecordLines : public RunObserver {
 public:
  /// @param path   "-": standard output, from the first call on
  /// @param delay  what it has found goes into the records; null: nothing. Must outlive this, and be told first
  /// @throws HostError (Usage) when the file cannot be written
  explicit RecordLines(const std::string& path, const DelayObserver* delay = nullptr)
      : output_(path, "--records"), delay_(delay), begun_(path == "-") {}
  void frame(const SourceFrame& /*frame*/, const std::vector<CallRecord>& records) override { write_(records); }
  void noSignal(const std::vector<CallRecord>& records) override { write_(records); }
  void restarted(const CallRecord& record) override { write_({record}); }

 private:
  void write_(const std::vector<CallRecord>& records);

  TextOutput output_;
  const DelayObserver* delay_;
  bool begun_;
  std::vector<std::string> waiting_;
};

/// Draws once per frame for both the video and the still. What an earlier run left stays where no target was followed.
class DrawnPictures : public RunObserver {
 public:
  /// @param video, still  paths; empty: not wanted. @throws HostError (Usage) when one cannot be written
  DrawnPictures(const std::string& video, const std::string& still);
  void begin(const RunInfo& info) override;
  void frame(const SourceFrame& frame, const std::vector<CallRecord>& records) override;
  void restarted(const CallRecord& record) override { annotator_.forget(record.target); }
  void end() override;

 private:
  std::optional<PendingFile> videoFile_;
  std::optional<PendingFile> stillFile_;
  std::optional<VideoOutput> video_;
  bool hasResult_ = false;
  Annotator annotator_;
  cv::Mat last_;
};

}  // namespace host
