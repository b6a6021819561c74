#include "plugin/reason_words.h"

#include <array>

namespace host {
namespace {

struct Phrase {
  const char* internal;
  const char* plain;
};

constexpr std::array<Phrase, 24> kPhrases = {{
    // Why a target was given up.
    {"bbox collée au bord", "the box stayed at the picture's border for too long"},
    {"sauts successifs trop importants", "the box jumped too far several times in a row"},
    {"vitesse tracking irréaliste", "the box moved faster than a target can"},
    {"oscillation re-detect", "it was found and lost again too often"},
    {"not found again", "every search for it failed"},
    // Why tracking did not start.
    {"bbox out of image", "the box lies outside the picture"},
    {"zero-size bbox", "the box has no area"},
    {"invalid src size", "the picture has no size"},
    {"tracker init failed", "the tracker does not take this box"},
    {"initializeTrackerFromFrame(", "the tracker does not take this box"},
    {"exception: ", "an error inside the plug-in"},
    // How a call ended, and what a search found.
    {"not init/fullyLost", "nothing is followed any more"},
    {"waiting preposition alignment", "the camera is still being pointed"},
    {"skip tracking once", "this frame was skipped after a start"},
    {"zoom reseed", "started anew because the zoom changed"},
    {"empty ROI", "the window lies outside the picture"},
    {"pending_full_reset_", "the picture's size changed"},
    {"Re-init après update", "the tracker was rebuilt for a window of another size"},
    {"UNSTABLE predict", "the tracker's answer was not believed"},
    {"LOST predict", "the tracker lost it, and its place is guessed"},
    {"appearance_fail", "what the search found does not look like it"},
    {"reject: too far", "what the search found lies too far away"},
    {"reject: size", "what the search found has another size"},
    {"reject: score", "the search found nothing like it"},
}};

}  // namespace

std::string plainWords(const std::string& text) {
  std::string plain;
  for (const Phrase& phrase : kPhrases) {
    if (text.find(phrase.internal) == std::string::npos) continue;
    plain += (plain.empty() ? "" : "; ") + std::string(phrase.plain);
  }
  return plain;
}

std::string explained(const std::string& text) {
  const std::string plain = plainWords(text);
  return plain.empty() ? text : plain + " (" + text + ")";
}

}  // namespace host
