// Which guard watches the plug-in's answers.
#pragma once

#include <optional>
#include <string>

#include "csrt_guard/csrt_guard.h"

namespace host {

/// A guard that the program offers.
enum class GuardChoice {
  Off,    ///< None: the plug-in's answers as they are.
  Colour  ///< By the target's colours; see csrt_guard.h.
};

inline constexpr const char* kGuardHelp =
    "Who watches the tracker's answers and starts it over where the target is: off, or colour";

/// @return the guard called "off" or "colour". @throws HostError (Usage) for another word
GuardChoice guardChoiceOf(const std::string& word);

/// What the guard made of one call. Boxes are full-frame pixels.
struct GuardNote {
  csrt_guard::Verdict verdict;         ///< The guard's decision with its reason.
  std::string trackerState;            ///< The plug-in's own state, as in the records.
  std::optional<cv::Rect> trackerBox;  ///< The plug-in's own box.
  bool trackerSeen = false;            ///< The plug-in claimed to see the target.
  bool colourless = false;             ///< There was no colour at the start: the guard judges by brightness.
};

}  // namespace host
