#include "plugin/track_state.h"

#include <array>
#include <cstdlib>
#include <string_view>
#include <utility>

namespace host {
namespace {

constexpr std::array<const char*, 8> kStateNames = {"waiting",   "tracked",  "rebuilt", "redetected",
                                                    "predicted", "reseeded", "lost",    "inactive"};
constexpr std::array<const char*, 4> kBoxNames = {"tracker", "prediction", "redetection", "none"};

bool startsWith(std::string_view text, std::string_view head) {
  return text.substr(0, head.size()) == head;
}

bool contains(std::string_view text, std::string_view part) {
  return text.find(part) != std::string_view::npos;
}

/// What may be said in the middle of a call, before the line of its exit.
struct Findings {
  bool gaveUp = false;
  bool redetected = false;
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

StateReport report(TrackState state, BoxFrom from) {
  StateReport answer;
  answer.state = state;
  answer.boxFrom = from;
  answer.seen = state == TrackState::Tracked || state == TrackState::Redetected;
  return answer;
}

StateReport trackedReport() {
  StateReport answer = report(TrackState::Tracked, BoxFrom::Tracker);
  answer.hasWindow = true;
  answer.scoreIsOfThisFrame = true;
  return answer;
}

/// A rebuild after a change of size first let the old tracker follow the target; without one the last box is reused.
StateReport rebuiltReport(const std::string& exitLine) {
  const bool followed = contains(exitLine, "sizeChanged=1");
  StateReport answer = report(TrackState::Rebuilt, followed ? BoxFrom::Tracker : BoxFrom::Prediction);
  answer.seen = followed;
  return answer;
}

std::vector<std::string> messagesOf(const std::vector<std::string>& lines) {
  std::vector<std::string> messages;
  messages.reserve(lines.size());
  for (const std::string& line : lines) messages.push_back(messageOf(line));
  return messages;
}

}  // namespace

const char* name(TrackState state) {
  return kStateNames.at(static_cast<std::size_t>(state));
}

const char* name(BoxFrom from) {
  return kBoxNames.at(static_cast<std::size_t>(from));
}

std::optional<TrackState> trackStateOf(const std::string& name) {
  for (std::size_t i = 0; i < kStateNames.size(); ++i) {
    if (name == kStateNames[i]) return static_cast<TrackState>(i);
  }
  return std::nullopt;
}

std::string messageOf(const std::string& line) {
  constexpr std::string_view kHead = "[AlgoPlugin INFO] [";
  if (!startsWith(line, kHead)) return line;
  const std::size_t end = line.find("] ", kHead.size());
  return end == std::string::npos ? line : line.substr(end + 2);
}

std::string exitOf(const std::vector<std::string>& lines) {
  const std::vector<std::string> messages = messagesOf(lines);
  const Findings found = findingsOf(messages);
  if (found.gaveUp) return "given up: " + found.reason;
  const std::string line = exitLineOf(messages);
  if (contains(line, "NO FRAME")) return "NO FRAME";
  const std::size_t open = line.rfind('(');
  const std::size_t close = line.rfind(')');
  if (open == std::string::npos || close == std::string::npos || close < open) return {};
  const char* const judged = contains(line, "UNSTABLE") ? "UNSTABLE " : contains(line, "LOST") ? "LOST " : "";
  return judged + line.substr(open + 1, close - open - 1);
}

std::string searchOutcomeOf(const std::vector<std::string>& lines) {
  constexpr std::string_view kTiming = "reDetectGlobally[timing-";
  std::string outcome;
  std::string refusal = "score";
  for (const std::string& message : messagesOf(lines)) {
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

StateReport stateOfUpdate(const std::vector<std::string>& lines, bool hasDetections) {
  const std::vector<std::string> messages = messagesOf(lines);
  const Findings found = findingsOf(messages);
  if (found.gaveUp) {
    StateReport answer = report(TrackState::Lost, BoxFrom::None);
    answer.reason = found.reason;
    return answer;
  }
  const std::string exitLine = exitLineOf(messages);
  const auto exitIs = [&exitLine](std::string_view part) { return contains(exitLine, part); };
  if (exitIs("(track ok)")) return trackedReport();
  if (exitIs("(Re-init apr")) return rebuiltReport(exitLine);
  // A search that succeeds on an unstable frame, or finds the target where it was, leaves by a "predict" exit.
  if (found.redetected || exitIs("(redetect OK)")) return report(TrackState::Redetected, BoxFrom::Redetection);
  if (exitIs("UNSTABLE")) {
    StateReport answer = report(TrackState::Predicted, BoxFrom::Prediction);
    answer.scoreIsOfThisFrame = true;  // the low score is why the answer was not believed
    return answer;
  }
  if (exitIs("(predict)") || exitIs("(empty ROI)")) return report(TrackState::Predicted, BoxFrom::Prediction);
  if (exitIs("(waiting preposition alignment)") || exitIs("NO FRAME"))
    return report(TrackState::Waiting, BoxFrom::None);
  if (exitIs("(skip tracking once)") || exitIs("(zoom reseed)")) return report(TrackState::Reseeded, BoxFrom::None);
  // Not tracking, or a plug-in that does not say what it did: its box is then not vouched for.
  return hasDetections ? report(TrackState::Predicted, BoxFrom::Prediction)
                       : report(TrackState::Inactive, BoxFrom::None);
}

StateReport stateOfInit(const std::vector<std::string>& lines, bool started) {
  const std::vector<std::string> messages = messagesOf(lines);
  if (!started) {
    StateReport answer = report(TrackState::Inactive, BoxFrom::None);
    if (!messages.empty()) answer.reason = messages.back();
    return answer;
  }
  bool waiting = false;
  for (const std::string& message : messages) waiting = waiting || contains(message, "preposition-only");
  StateReport answer = report(waiting ? TrackState::Waiting : TrackState::Reseeded, BoxFrom::None);
  answer.seen = true;  // the user pointed at it in this frame
  return answer;
}

}  // namespace host
