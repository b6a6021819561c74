#include "run/run_outputs.h"

#include <utility>

#include "base/json_text.h"

namespace host {

void RecordLines::write_(const std::vector<CallRecord>& records) {
  for (CallRecord record : records) {
    if (delay_ != nullptr) record.anglesStaleMs = delay_->stale_ms();
    waiting_.push_back(jsonText(toJson(record)));
  }
  begun_ = begun_ || anyFollowed(records);
  if (!begun_) return;
  for (const std::string& line : std::exchange(waiting_, {})) output_.writeLine(line);
}

DrawnPictures::DrawnPictures(const std::string& video, const std::string& still) {
  if (!video.empty()) videoFile_.emplace(video, "--video");
  if (!still.empty()) stillFile_.emplace(still, "--still");
}

void DrawnPictures::begin(const RunInfo& info) {
  if (videoFile_) video_.emplace(*videoFile_, info.frameSize, info.fps);
}

void DrawnPictures::frame(const SourceFrame& frame, const std::vector<CallRecord>& records) {
  hasResult_ = hasResult_ || anyFollowed(records);
  last_ = annotator_.draw(frame.bgr, records);
  if (video_) video_->write(last_);
}

void DrawnPictures::end() {
  if (!hasResult_) return;  // what an earlier run left is worth more
  if (stillFile_ && !last_.empty()) writePicture(*stillFile_, last_);
  if (video_) video_->close();
}

}  // namespace host
