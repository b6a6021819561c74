#include "live/sidecar.h"

#include <fstream>
#include <nlohmann/json.hpp>

#include "base/host_error.h"

namespace live {
namespace {

constexpr std::size_t kAtOnce = std::size_t{1} << 20;

}  // namespace

Sidecar::Sidecar(const std::string& path) : path_(path) {
  if (!std::ifstream(path, std::ios::binary)) {
    throw host::HostError(host::ExitCode::Usage, "--metadata '" + path + "' cannot be read");
  }
}

void Sidecar::readMore() {
  std::ifstream file(path_, std::ios::binary | std::ios::ate);
  if (!file) return;
  const long size = static_cast<long>(file.tellg());
  if (size < read_) {  // begun anew by its writer
    read_ = 0;
    pending_.clear();
    endless_ = false;
  }
  if (size == read_) return;
  file.seekg(read_);
  std::string more(std::min(kAtOnce, static_cast<std::size_t>(size - read_)), '\0');
  file.read(more.data(), static_cast<std::streamsize>(more.size()));
  more.resize(static_cast<std::size_t>(file.gcount()));
  read_ += static_cast<long>(more.size());
  pending_ += more;
  std::size_t begin = 0;
  for (std::size_t end = pending_.find('\n'); end != std::string::npos; end = pending_.find('\n', begin)) {
    if (!endless_) takeLine_(pending_.substr(begin, end - begin));
    endless_ = false;
    begin = end + 1;
  }
  pending_.erase(0, begin);
  if (pending_.size() < kAtOnce) return;
  pending_.clear();  // no line is that long: what is left of it goes too
  if (!endless_) ++refused_;
  endless_ = true;
}

void Sidecar::takeLine_(const std::string& line) {
  if (line.find_first_not_of(" \t\r") == std::string::npos) return;
  const nlohmann::json json = nlohmann::json::parse(line, nullptr, false);
  const bool inSeconds = json.is_object() && json.contains("unix_s") && json["unix_s"].is_number();
  const bool inMicros = json.is_object() && json.contains("utc_timestamp_us") && json["utc_timestamp_us"].is_number();
  if (!inSeconds && !inMicros) {
    ++refused_;
    return;
  }
  CameraValues values;
  for (const auto& [key, value] : json.items()) {
    if (value.is_number() && key != "unix_s" && key != "utc_timestamp_us") values[key] = value.get<double>();
  }
  track_.add(inSeconds ? json["unix_s"].get<double>() : json["utc_timestamp_us"].get<double>() * 1e-6, values);
}

}  // namespace live
