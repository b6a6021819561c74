#include "plugin/call_facts.h"

#include <algorithm>
#include <cstdlib>
#include <string_view>
#include <variant>

namespace host {
namespace {

bool startsWith(std::string_view text, std::string_view head) {
  return text.substr(0, head.size()) == head;
}

bool contains(std::string_view text, std::string_view part) {
  return text.find(part) != std::string_view::npos;
}

/// The message of a log line, without its prefix; the whole line where it has another form.
std::string messageOf(const std::string& line) {
  constexpr std::string_view kHead = "[AlgoPlugin INFO] [";
  if (!startsWith(line, kHead)) return line;
  const std::size_t end = line.find("] ", kHead.size());
  return end == std::string::npos ? line : line.substr(end + 2);
}

std::vector<std::string> messagesOf(const std::vector<std::string>& lines) {
  std::vector<std::string> messages;
  messages.reserve(lines.size());
  for (const std::string& line : lines) messages.push_back(messageOf(line));
  return messages;
}

/// What may be said in the middle of a call, before the line of its exit.
struct Findings {
  bool gaveUp = false;
  bool redetected = false;
  bool zoomed = false;
  std::string reason;
};

Findings findingsOf(const std::vector<std::string>& messages) {
  constexpr std::string_view kFault = "CSRT: health fault -> ";
  Findings found;
  for (const std::string& message : messages) {
    if (startsWith(message, kFault)) found.reason = message.substr(kFault.size());
    if (startsWith(message, "CSRT: oscillation ")) found.reason = message.substr(std::string("CSRT: ").size());
    if (startsWith(message, "reDetectGlobally[timing-success]")) found.redetected = true;
    if (startsWith(message, "Object declared fully lost")) found.gaveUp = true;
    if (startsWith(message, "CSRT zoom_changed: scale_x")) found.zoomed = true;
  }
  if (found.gaveUp && found.reason.empty()) found.reason = "not found again";
  return found;
}

/// The line of the exit that update() took: every exit has one but those that give the target up at once.
std::string exitLineOf(const std::vector<std::string>& messages) {
  for (auto it = messages.rbegin(); it != messages.rend(); ++it) {
    if (startsWith(*it, "update(): ") && contains(*it, "OUT")) return *it;
  }
  return {};
}

std::string exitOf(const std::string& line, const Findings& found) {
  if (found.gaveUp) return "given up: " + found.reason;
  if (contains(line, "NO FRAME")) return "NO FRAME";
  const std::size_t open = line.rfind('(');
  const std::size_t close = line.rfind(')');
  if (open == std::string::npos || close == std::string::npos || close < open) return {};
  const char* const judged = contains(line, "UNSTABLE") ? "UNSTABLE " : contains(line, "LOST") ? "LOST " : "";
  return judged + line.substr(open + 1, close - open - 1);
}

std::string searchOf(const std::vector<std::string>& messages) {
  constexpr std::string_view kTiming = "reDetectGlobally[timing-";
  std::string outcome;
  std::string refusal = "score";
  for (const std::string& message : messages) {
    if (startsWith(message, kTiming)) outcome = message.substr(kTiming.size(), message.find(']') - kTiming.size());
    if (!startsWith(message, "reDetectGlobally (validate)") || !contains(message, "scaleOK=0")) continue;
    const auto number = [&message](std::string_view key) {
      const std::size_t at = message.find(key);
      return at == std::string::npos ? 0.0 : std::strtod(message.c_str() + at + key.size(), nullptr);
    };
    refusal = number(" dist=") > number(" maxDist=") ? "too far" : "size";
  }
  return outcome == "reject" ? outcome + ": " + refusal : outcome;
}

/// What the exit of update() means.
struct Judgement {
  TrackState state = TrackState::Inactive;
  BoxFrom boxFrom = BoxFrom::None;
  bool seen = false;
  bool hasWindow = false;           ///< The last detection is the processing window, not the target.
  bool scoreIsOfThisFrame = false;  ///< The first detection's score was measured on this frame.
};

Judgement judgementOf(const std::string& exitLine, const Findings& found, bool hasDetections) {
  constexpr bool kSeen = true;
  const auto exitIs = [&exitLine](std::string_view part) { return contains(exitLine, part); };
  if (found.gaveUp) return {TrackState::Lost, BoxFrom::None};
  if (exitIs("(track ok)")) return {TrackState::Tracked, BoxFrom::Tracker, kSeen, true, true};
  // A rebuild after a change of size first let the old tracker follow the target; without one the last box is reused.
  if (exitIs("(Re-init apr")) {
    return exitIs("sizeChanged=1") ? Judgement{TrackState::Rebuilt, BoxFrom::Tracker, kSeen}
                                   : Judgement{TrackState::Rebuilt, BoxFrom::Prediction};
  }
  // A search that succeeds on an unstable frame, or finds the target where it was, leaves by a "predict" exit.
  if (found.redetected || exitIs("(redetect OK)")) return {TrackState::Redetected, BoxFrom::Redetection, kSeen};
  // The low score is why the answer was not believed.
  if (exitIs("UNSTABLE")) return {TrackState::Predicted, BoxFrom::Prediction, !kSeen, false, true};
  if (exitIs("(predict)") || exitIs("(empty ROI)")) return {TrackState::Predicted, BoxFrom::Prediction};
  if (exitIs("(waiting preposition alignment)") || exitIs("NO FRAME")) return {TrackState::Waiting, BoxFrom::None};
  if (exitIs("(skip tracking once)") || exitIs("(zoom reseed)")) return {TrackState::Reseeded, BoxFrom::None};
  // Not tracking, or a plug-in that does not say what it did: its box is then not vouched for.
  return hasDetections ? Judgement{TrackState::Predicted, BoxFrom::Prediction} : Judgement{};
}

/// The members of the record of that name; null where the answer has none. Outputs: const or not.
template <typename Outputs>
auto* membersOf(Outputs& outputs, std::string_view name) {
  decltype(std::get_if<AlgoValue::Object>(&outputs.front().value)) found = nullptr;
  for (auto& output : outputs) {
    if (found == nullptr && output.name == name) found = std::get_if<AlgoValue::Object>(&output.value);
  }
  return found;
}

/// The array of detections of the answer; null where it has none. Outputs: const or not.
template <typename Outputs>
auto* detectionsOf(Outputs& outputs) {
  auto* const members = membersOf(outputs, "detection.v1");
  decltype(std::get_if<AlgoValue::Array>(&members->front().second)) found = nullptr;
  if (members == nullptr) return found;
  for (auto& [key, value] : *members) {
    if (key == "detections") return std::get_if<AlgoValue::Array>(&value);
  }
  return found;
}

template <typename T>
std::optional<T> memberOf(const AlgoValue::Object& members, const std::string& key) {
  for (const auto& [name, value] : members) {
    const T* found = name == key ? std::get_if<T>(&value) : nullptr;
    if (found != nullptr) return *found;
  }
  return std::nullopt;
}

template <typename T>
std::optional<T> memberOf(const AlgoValue& object, const std::string& key) {
  const auto* members = std::get_if<AlgoValue::Object>(&object);
  return members == nullptr ? std::nullopt : memberOf<T>(*members, key);
}

std::optional<cv::Rect> boxOf(const AlgoValue& detection) {
  const auto side = [&detection](const char* key) { return memberOf<long>(detection, key); };
  const auto x = side("x");
  const auto y = side("y");
  const auto w = side("w");
  const auto h = side("h");
  if (!x || !y || !w || !h) return std::nullopt;
  return cv::Rect(static_cast<int>(*x), static_cast<int>(*y), static_cast<int>(*w), static_cast<int>(*h));
}

std::optional<PointingWish> pointingOf(const std::vector<AlgoOutput>& outputs) {
  const auto* members = membersOf(outputs, "gimbal_preposition.v1");
  if (members == nullptr) return std::nullopt;
  return PointingWish{memberOf<double>(*members, "target_pan_deg").value_or(0.0),
                      memberOf<double>(*members, "target_tilt_deg").value_or(0.0)};
}

}  // namespace

CallFacts factsOfInit(const std::vector<std::string>& lines, bool started, const std::vector<AlgoOutput>& outputs) {
  const std::vector<std::string> messages = messagesOf(lines);
  CallFacts facts;
  facts.pointTo = pointingOf(outputs);
  const auto* const detections = detectionsOf(outputs);
  if (detections != nullptr && !detections->empty()) facts.box = boxOf(detections->front());
  if (!started) {
    if (!messages.empty()) facts.reason = messages.back();
    return facts;
  }
  const bool waiting = std::any_of(messages.begin(), messages.end(),
                                   [](const std::string& message) { return contains(message, "preposition-only"); });
  facts.state = waiting ? TrackState::Waiting : TrackState::Reseeded;
  facts.seen = true;
  return facts;
}

CallFacts factsOfUpdate(const std::vector<std::string>& lines, std::vector<AlgoOutput>& outputs) {
  const std::vector<std::string> messages = messagesOf(lines);
  const Findings found = findingsOf(messages);
  const std::string exitLine = exitLineOf(messages);
  AlgoValue::Array* const detections = detectionsOf(outputs);
  const auto hasDetections = [detections] { return detections != nullptr && !detections->empty(); };
  const Judgement judgement = judgementOf(exitLine, found, hasDetections());

  CallFacts facts;
  facts.exit = exitOf(exitLine, found);
  facts.state = judgement.state;
  facts.seen = judgement.seen;
  if (judgement.hasWindow && hasDetections()) {
    facts.window = boxOf(detections->back());
    detections->pop_back();
  }
  if (hasDetections()) {
    facts.box = boxOf(detections->front());
    if (judgement.scoreIsOfThisFrame) facts.score = memberOf<double>(detections->front(), "score");
  }
  if (facts.box) facts.boxFrom = judgement.boxFrom;
  facts.search = searchOf(messages);
  if (found.gaveUp) facts.reason = found.reason;
  facts.pointTo = pointingOf(outputs);
  facts.zoomReseeded = found.zoomed;
  return facts;
}

CallFacts factsOfException(bool isInit, const std::string& reason) {
  CallFacts facts;
  if (!isInit) facts.state = TrackState::Lost;
  facts.reason = reason;
  return facts;
}

}  // namespace host
