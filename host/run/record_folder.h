// Keeps the drawn picture and the records of a run that never ends: files of a minute, the oldest of them deleted.
#pragma once

#include <cstdint>
#include <filesystem>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "base/pending_file.h"
#include "base/text_output.h"
#include "picture/annotate.h"
#include "picture/picture_output.h"
#include "run/run_observer.h"

namespace host {

/// Reads a size such as "500M", "20G" or "1000000" (bytes). @return 0 where it is none. Pure.
std::uint64_t bytesOf(const std::string& text);  ///< Its size.

/// Which of the files go so that the rest is at most `quota` bytes: the oldest first, by name, never the last one.
struct KeptFile {
  std::string name;  ///< Without the folder.
  std::uint64_t bytes = 0;
};
std::vector<std::string> filesToDelete(std::vector<KeptFile> files, std::uint64_t quota);

/// Writes FOLDER/csrt-YYYYMMDD-HHMMSS-N.mkv and .jsonl, a new pair every minute. Before each pair the oldest files of
/// that form go until what is left fits the quota; other files in the folder are never touched.
class RecordFolder : public RunObserver {
 public:
  static constexpr double kPartS = 60.0;  ///< Seconds of video in one file.

  /// @param quota  bytes of all files of that form together
  /// @throws HostError (Usage) naming the folder where nothing can be written
  RecordFolder(std::string folder, std::uint64_t quota);

  void begin(const RunInfo& info) override;
  void frame(const SourceFrame& frame, const std::vector<CallRecord>& records) override;
  void noSignal(const std::vector<CallRecord>& records) override;
  void restarted(const CallRecord& record) override;
  void end() override;

 private:
  void beginPart_(double time_s);
  void writeRecords_(const std::vector<CallRecord>& records);
  void makeRoom_() const;

  std::filesystem::path folder_;
  std::uint64_t quota_;
  RunInfo info_;
  Annotator annotator_;
  std::optional<PendingFile> file_;
  std::optional<VideoOutput> video_;
  std::optional<TextOutput> records_;
  double begun_ = 0.0;
  long part_ = 0;
};

}  // namespace host
