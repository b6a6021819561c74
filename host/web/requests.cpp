#include "web/requests.h"

#include <charconv>
#include <cmath>

#include "base/json_text.h"

namespace host::web {
namespace {

using Json = nlohmann::json;

constexpr double kFarthest = 1e6;  // pixels: no picture is larger
constexpr std::size_t kLongestName = 32;

[[noreturn]] void refuse(const std::string& member, const std::string& what) {
  throw BadRequest(422, "'" + member + "' " + what);
}

void checkMembers(const Json& body, const std::vector<std::string>& known) {
  for (const auto& member : body.items()) {
    bool found = false;
    for (const std::string& name : known) found = found || name == member.key();
    if (!found) refuse(withBytesEscaped(member.key().substr(0, 40)), "is not known here");
  }
}

/// Names stand in records, on screens and in files.
std::string nameOf(const Json& body) {
  if (!body.contains("name")) return {};
  const Json& value = body["name"];
  const char* const kForm = "must be 1 to 32 letters, digits, spaces or any of _ - .";
  if (!value.is_string()) refuse("name", kForm);
  const std::string name = value.get<std::string>();
  if (name.empty() || name.size() > kLongestName || name.front() == ' ' || name.back() == ' ') refuse("name", kForm);
  for (const char c : name) {
    const bool letter = (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9');
    if (!letter && c != ' ' && c != '_' && c != '-' && c != '.') refuse("name", kForm);
  }
  return name;
}

std::vector<int> pixelsOf(const Json& body, const std::string& member, std::size_t count) {
  const Json& value = body[member];
  const std::string form = "must be " + std::to_string(count) + " numbers of pixels";
  if (!value.is_array() || value.size() != count) refuse(member, form);
  std::vector<int> pixels;
  for (const Json& element : value) {
    if (!element.is_number()) refuse(member, form);
    const double number = element.get<double>();
    if (!std::isfinite(number) || std::fabs(number) > kFarthest) refuse(member, form);
    pixels.push_back(static_cast<int>(std::lround(number)));
  }
  return pixels;
}

std::optional<long> frameOf(const Json& body) {
  if (!body.contains("frame")) return std::nullopt;
  if (!body["frame"].is_number_unsigned()) refuse("frame", "must be a frame's number");
  const auto number = body["frame"].get<std::uint64_t>();
  if (number > static_cast<std::uint64_t>(std::numeric_limits<long>::max()))
    refuse("frame", "must be a frame's number");
  return static_cast<long>(number);
}

}  // namespace

Json objectOf(const std::string& body) {
  if (tooDeepAt(body) != std::string::npos) throw BadRequest(400, "the body is nested too deeply");
  Json json = Json::parse(body, nullptr, false);
  if (!json.is_object()) throw BadRequest(400, "the body must be a JSON object");
  return json;
}

FrontCommand startOf(const Json& body) {
  checkMembers(body, {"name", "box", "point", "frame"});
  FrontCommand command;
  command.target = nameOf(body);
  command.frame = frameOf(body);
  if (body.contains("box") == body.contains("point")) refuse("box", "or 'point' must be given, and not both");
  if (body.contains("box")) {
    const std::vector<int> box = pixelsOf(body, "box", 4);
    if (box[2] < 1 || box[3] < 1) refuse("box", "must be at least 1 pixel wide and high");
    command.kind = FrontCommand::Kind::Box;
    command.box = {box[0], box[1], box[2], box[3]};
  } else {
    const std::vector<int> point = pixelsOf(body, "point", 2);
    command.kind = FrontCommand::Kind::Point;
    command.point = {point[0], point[1]};
  }
  return command;
}

FrontCommand stopOf(const Json& body) {
  checkMembers(body, {"name"});
  FrontCommand command;
  command.kind = FrontCommand::Kind::Stop;
  command.target = nameOf(body);
  return command;
}

ProposalWish proposalOf(const Json& body) {
  checkMembers(body, {"point", "frame"});
  if (!body.contains("point")) refuse("point", "is missing");
  const std::vector<int> point = pixelsOf(body, "point", 2);
  return {{point[0], point[1]}, frameOf(body)};
}

long numberOf(const std::string& name, const std::string& text, long least, long most) {
  long number = 0;
  const char* const end = text.data() + text.size();
  const auto [at, failed] = std::from_chars(text.data(), end, number);
  if (failed != std::errc() || at != end || number < least || number > most) {
    throw BadRequest(
        400, "'" + name + "' must be a whole number from " + std::to_string(least) + " to " + std::to_string(most));
  }
  return number;
}

}  // namespace host::web
