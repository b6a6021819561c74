#include "run/target_option.h"

#include <algorithm>
#include <cstddef>
#include <set>

#include "base/host_error.h"
#include "picture/box_proposal.h"

namespace host {
namespace {

[[noreturn]] void refuse(const std::string& option, const std::string& text, const std::string& why) {
  const std::string form = option == "--box" ? "X,Y,W,H" : "X,Y";
  throw HostError(ExitCode::Usage, option + " '" + text + "' " + why + "; expected " + form + " or NAME=" + form +
                                       " in pixels or percent (10%)");
}

/// What stands before "=", and the rest.
TargetOption named(const std::string& option, const std::string& text, std::string& rest) {
  TargetOption target;
  const std::size_t equals = text.find('=');
  if (equals == 0) refuse(option, text, "has an empty name");
  if (equals != std::string::npos) target.name = text.substr(0, equals);
  rest = equals == std::string::npos ? text : text.substr(equals + 1);
  return target;
}

template <typename Text>
bool isInPercent(const Text& place) {
  return std::any_of(place.begin(), place.end(), [](const Coordinate& c) { return c.percent; });
}

}  // namespace

TargetOption parseTargetOption(const std::string& text) {
  std::string rest;
  TargetOption target = named("--box", text, rest);
  BoxText box;
  if (!tryReadBox(rest, box)) refuse("--box", text, "does not hold four whole numbers of a box with an area");
  if (isInPercent(box)) {
    target.relative = box;
  } else {
    target.box = boxIn(box, {1, 1});
  }
  return target;
}

TargetOption parsePointOption(const std::string& text) {
  std::string rest;
  TargetOption target = named("--point", text, rest);
  PointText point;
  if (!tryReadPoint(rest, point)) refuse("--point", text, "does not hold two numbers");
  target.point = point;
  return target;
}

std::vector<TargetOption> parseTargetOptions(const std::vector<std::string>& boxes,
                                             const std::vector<std::string>& points) {
  std::vector<TargetOption> targets;
  for (const std::string& text : boxes) targets.push_back(parseTargetOption(text));
  for (const std::string& text : points) targets.push_back(parsePointOption(text));
  std::set<std::string> names;
  for (std::size_t i = 0; i < targets.size(); ++i) {
    TargetOption& target = targets[i];
    if (target.name.empty()) target.name = targets.size() == 1 ? "target" : "target" + std::to_string(i + 1);
    if (names.insert(target.name).second) continue;
    const bool isBox = i < boxes.size();
    throw HostError(ExitCode::Usage, (isBox ? "--box '" + boxes[i] : "--point '" + points[i - boxes.size()]) +
                                         "' repeats the name '" + target.name + "'");
  }
  return targets;
}

void resolveOn(const cv::Mat& bgr, std::vector<TargetOption>& targets) {
  for (TargetOption& target : targets) {
    if (target.relative) target.box = boxIn(*target.relative, bgr.size());
    if (target.point) {
      const cv::Rect box = proposeBox(bgr, pointIn(*target.point, bgr.size())).box;
      target.box = {box.x, box.y, box.width, box.height};
    }
  }
}

}  // namespace host
