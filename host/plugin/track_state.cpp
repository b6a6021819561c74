#include "plugin/track_state.h"

#include <array>
#include <cstddef>

namespace host {
namespace {

constexpr std::array<const char*, 8> kStateNames = {"waiting",   "tracked",  "rebuilt", "redetected",
                                                    "predicted", "reseeded", "lost",    "inactive"};
constexpr std::array<const char*, 4> kBoxNames = {"tracker", "prediction", "redetection", "none"};

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

}  // namespace host
