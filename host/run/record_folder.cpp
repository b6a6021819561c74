#include "run/record_folder.h"

#include <algorithm>
#include <charconv>
#include <cstdio>
#include <ctime>
#include <system_error>

#include "base/host_error.h"

namespace host {
namespace {

namespace fs = std::filesystem;

constexpr const char* kHead = "csrt-";

bool isOurs(const fs::path& file) {
  const std::string name = file.filename().string();
  const std::string ending = file.extension().string();
  return name.rfind(kHead, 0) == 0 && (ending == ".mkv" || ending == ".jsonl");
}

std::string timeText() {
  const std::time_t now = std::time(nullptr);
  std::tm parts{};
  gmtime_r(&now, &parts);
  char text[32];
  std::strftime(text, sizeof text, "%Y%m%d-%H%M%S", &parts);
  return text;
}

}  // namespace

std::uint64_t bytesOf(const std::string& text) {
  std::uint64_t number = 0;
  const char* const end = text.data() + text.size();
  const auto [at, failed] = std::from_chars(text.data(), end, number);
  if (failed != std::errc() || number == 0) return 0;
  const std::string unit(at, end);
  const std::uint64_t factor = unit.empty()  ? 1
                               : unit == "K" ? 1000
                               : unit == "M" ? 1000000
                               : unit == "G" ? 1000000000
                               : unit == "T" ? 1000000000000
                                             : 0;
  return factor != 0 && number > UINT64_MAX / factor ? 0 : number * factor;
}

std::vector<std::string> filesToDelete(std::vector<KeptFile> files, std::uint64_t quota) {
  std::sort(files.begin(), files.end(), [](const KeptFile& a, const KeptFile& b) { return a.name < b.name; });
  std::uint64_t all = 0;
  for (const KeptFile& file : files) all += file.bytes;
  std::vector<std::string> gone;
  for (std::size_t i = 0; i + 1 < files.size() && all > quota; ++i) {
    all -= files[i].bytes;
    gone.push_back(files[i].name);
  }
  return gone;
}

RecordFolder::RecordFolder(std::string folder, std::uint64_t quota) : folder_(std::move(folder)), quota_(quota) {
  std::error_code failed;
  fs::create_directories(folder_, failed);
  if (!fs::is_directory(folder_, failed)) {
    throw HostError(ExitCode::Usage, "--record-dir '" + folder_.string() + "' is not a folder and cannot be made");
  }
  TextOutput((folder_ / "csrt-probe.jsonl").string(), "--record-dir");  // said now rather than after a minute
  fs::remove(folder_ / "csrt-probe.jsonl", failed);
}

void RecordFolder::begin(const RunInfo& info) {
  info_ = info;
}

void RecordFolder::makeRoom_() const {
  std::error_code failed;
  std::vector<KeptFile> files;
  for (fs::directory_iterator it(folder_, failed), end; !failed && it != end; it.increment(failed)) {
    std::error_code ignored;
    if (!isOurs(it->path()) || !it->is_regular_file(ignored)) continue;
    const std::uint64_t bytes = it->file_size(ignored);
    files.push_back({it->path().string(), ignored ? 0 : bytes});
  }
  const std::vector<std::string> old = filesToDelete(std::move(files), quota_);
  for (const std::string& name : old) fs::remove(name, failed);
}

void RecordFolder::beginPart_(double time_s) {
  end();
  makeRoom_();
  const std::string number = std::to_string(part_++);
  const std::string name =
      kHead + timeText() + "-" + std::string(number.size() < 6 ? 6 - number.size() : 0, '0') + number;
  records_.emplace((folder_ / (name + ".jsonl")).string(), "--record-dir");
  file_.emplace((folder_ / (name + ".mkv")).string(), "--record-dir");
  video_.emplace(*file_, info_.frameSize, info_.fps);
  begun_ = time_s;
}

void RecordFolder::frame(const SourceFrame& frame, const std::vector<CallRecord>& records) {
  if (!video_ || frame.time_s - begun_ >= kPartS) beginPart_(frame.time_s);
  writeRecords_(records);
  video_->write(annotator_.draw(frame.bgr, records));
}

void RecordFolder::noSignal(const std::vector<CallRecord>& records) {
  writeRecords_(records);
}

void RecordFolder::restarted(const CallRecord& record) {
  annotator_.forget(record.target);
  writeRecords_({record});
}

void RecordFolder::writeRecords_(const std::vector<CallRecord>& records) {
  for (const CallRecord& record : records) {
    if (records_) records_->writeLine(toJson(record).dump());
  }
}

void RecordFolder::end() {
  if (video_) video_->close();
  video_.reset();
  file_.reset();
  records_.reset();
}

}  // namespace host
