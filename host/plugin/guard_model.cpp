#include "plugin/guard_model.h"

#include <fmt/format.h>
#include <openssl/evp.h>

#include <array>
#include <cerrno>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <memory>
#include <system_error>

#include "base/host_error.h"

namespace host {
namespace {

namespace fs = std::filesystem;

constexpr std::uintmax_t kLargest = std::uintmax_t{256} << 20;

/// A published network that this guard was measured with.
struct KnownModel {
  const char* title;
  const char* fileName;
  std::size_t bytes;
  const char* sha256;
};

constexpr std::array<KnownModel, 1> kKnown = {
    {{"ViTTrack as published in OpenCV's model zoo (September 2023, Apache-2.0)",
      "object_tracking_vittrack_2023sep.onnx", 714726,
      "2990f0b7cd44d92afa48cd97db6de7be113fc1d9594fddb74e2725c10478e91d"}}};

[[noreturn]] void refuse(const std::string& path, const std::string& why) {
  throw HostError(ExitCode::Usage, "--guard-model '" + path + "' " + why);
}

std::string hexOf(const std::array<unsigned char, EVP_MAX_MD_SIZE>& digest, unsigned length) {
  std::string text;
  for (unsigned i = 0; i < length; ++i) text += fmt::format("{:02x}", digest.at(i));
  return text;
}

/// The sum of a whole stream; empty when it cannot be read to its end.
std::string sha256Of(std::istream& in) {
  const std::unique_ptr<EVP_MD_CTX, decltype(&EVP_MD_CTX_free)> sum(EVP_MD_CTX_new(), &EVP_MD_CTX_free);
  if (sum == nullptr || EVP_DigestInit_ex(sum.get(), EVP_sha256(), nullptr) != 1) return {};
  std::array<char, 65536> part{};
  while (in.read(part.data(), part.size()) || in.gcount() > 0) {
    if (EVP_DigestUpdate(sum.get(), part.data(), static_cast<std::size_t>(in.gcount())) != 1) return {};
  }
  if (in.bad()) return {};
  std::array<unsigned char, EVP_MAX_MD_SIZE> digest{};
  unsigned length = 0;
  return EVP_DigestFinal_ex(sum.get(), digest.data(), &length) == 1 ? hexOf(digest, length) : "";
}

}  // namespace

std::string noteOnGuardModel(const std::string& path, std::size_t bytes, const std::string& sha256) {
  const std::string named = fmt::format("--guard-model '{}', sha256 {}: ", path, sha256);
  for (const KnownModel& known : kKnown) {
    if (sha256 == known.sha256) return named + known.title;
  }
  for (const KnownModel& known : kKnown) {
    const bool sameName = fs::path(path).filename() == known.fileName;
    if (!sameName && bytes != known.bytes) continue;
    return fmt::format("{}warning: it has the {} of {}, but not its sum; it is another version, or was changed", named,
                       sameName ? "name" : "size", known.title);
  }
  return named + "a file that is not known here; it is tried";
}

GuardModel readGuardModel(const std::string& path) {
  std::error_code error;
  const fs::file_status status = fs::status(path, error);
  if (status.type() == fs::file_type::not_found) refuse(path, "is not there");
  if (error) refuse(path, "cannot be read: " + error.message());
  if (status.type() != fs::file_type::regular) refuse(path, "is no file");
  const std::uintmax_t bytes = fs::file_size(path, error);
  if (error) refuse(path, "cannot be read: " + error.message());
  if (bytes == 0) refuse(path, "is empty");
  if (bytes > kLargest) refuse(path, "is larger than 256 MiB; a tracker network has less than one");
  std::ifstream file(path, std::ios::binary);
  GuardModel model;
  if (file) model.sha256 = sha256Of(file);
  if (model.sha256.empty()) refuse(path, fmt::format("cannot be read: {}", std::strerror(errno)));
  model.note = noteOnGuardModel(path, static_cast<std::size_t>(bytes), model.sha256);
  return model;
}

}  // namespace host
