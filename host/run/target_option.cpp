#include "run/target_option.h"

#include <array>
#include <charconv>
#include <cstddef>
#include <set>

#include "base/host_error.h"

namespace host {
namespace {

[[noreturn]] void refuse(const std::string& text, const std::string& why) {
  throw HostError(ExitCode::Usage, "--box '" + text + "' " + why + "; expected X,Y,W,H or NAME=X,Y,W,H in pixels");
}

}  // namespace

TargetOption parseTargetOption(const std::string& text) {
  TargetOption target;
  const std::size_t equals = text.find('=');
  if (equals != std::string::npos) target.name = text.substr(0, equals);
  if (equals == 0) refuse(text, "has an empty name");
  std::array<std::int32_t, 4> numbers{};
  const char* at = text.data() + (equals == std::string::npos ? 0 : equals + 1);
  const char* const end = text.data() + text.size();
  for (std::size_t i = 0; i < numbers.size(); ++i) {
    const auto [next, failed] = std::from_chars(at, end, numbers[i]);
    if (failed != std::errc()) refuse(text, "does not hold four whole numbers");
    const bool last = i + 1 == numbers.size();
    if (last ? next != end : (next == end || *next != ',')) refuse(text, "does not hold four whole numbers");
    at = next + (last ? 0 : 1);
  }
  target.box = {numbers[0], numbers[1], numbers[2], numbers[3]};
  if (target.box.width < 1 || target.box.height < 1) refuse(text, "has no area");
  return target;
}

std::vector<TargetOption> parseTargetOptions(const std::vector<std::string>& texts) {
  std::vector<TargetOption> targets;
  std::set<std::string> names;
  for (std::size_t i = 0; i < texts.size(); ++i) {
    TargetOption target = parseTargetOption(texts[i]);
    if (target.name.empty()) target.name = texts.size() == 1 ? "target" : "target" + std::to_string(i + 1);
    if (!names.insert(target.name).second) {
      throw HostError(ExitCode::Usage, "--box '" + texts[i] + "' repeats the name '" + target.name + "'");
    }
    targets.push_back(target);
  }
  return targets;
}

}  // namespace host
