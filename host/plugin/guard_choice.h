// Which guard watches the plug-in's answers.
#pragma once

#include <optional>
#include <string>

#include "csrt_guard/csrt_guard.h"

namespace host {

/// A guard that the program offers.
enum class GuardKind {
  Off,     ///< None: the plug-in's answers as they are.
  Colour,  ///< By the target's colours; see csrt_guard.h.
  Network  ///< The same with a tracker network as a second opinion; see second_opinion.h.
};

/// The word of --guard: "off", "colour" or "network".
const char* name(GuardKind kind);

/// The options as they were written.
struct GuardOptions {
  std::string which = "off";  ///< --guard
  std::string model;          ///< --guard-model, a file; empty: not given.
};

/// Which guard, and what it is made with.
struct GuardChoice {
  GuardKind kind = GuardKind::Off;
  std::string model;   ///< The network's file, read and tried; empty: none.
  std::string sha256;  ///< Of that file, 64 hexadecimal digits; empty: none.
  std::string note;    ///< What is known of the file, one sentence to be shown; empty: no file.
};

inline constexpr const char* kGuardHelp =
    "Who watches the tracker's answers and starts it over where the target is: off, colour, or network, which asks a "
    "tracker network as well and needs --guard-model";
inline constexpr const char* kGuardModelHelp =
    "The network of --guard network: ViTTrack's ONNX file, which is not part of this program; needs OpenCV 4.9";

/// Reads and tries the network where one is asked for, which takes a second.
/// @throws HostError (Usage), one sentence: another word; a file that is missing, not asked for, cannot be read or is
///         no such network; a program without the network guard
GuardChoice guardChoiceOf(const GuardOptions& options);

/// A guard of this kind; empty: Off. Where the network's file, read once already, is gone or another by now, that is
/// said on standard error and the guard goes by colour alone. Any thread.
/// @param asked  becomes the sha256 of the network that the guard asks, else empty; may be null
std::optional<csrt_guard::Guard> makeGuard(const GuardChoice& choice, std::string* asked = nullptr);

/// What the guard made of one call. Boxes are full-frame pixels.
struct GuardNote {
  csrt_guard::Verdict verdict;         ///< The guard's decision with its reason.
  std::string trackerState;            ///< The plug-in's own state, as in the records.
  std::optional<cv::Rect> trackerBox;  ///< The plug-in's own box.
  bool trackerSeen = false;            ///< The plug-in claimed to see the target.
  bool colourless = false;             ///< There was no colour at the start: the guard judges by brightness.
  double judge_ms = 0.0;               ///< Wall-clock time of the guard's own work, milliseconds; not in the records.
};

}  // namespace host
