#include "simulator/reported_metadata.h"

#include <fmt/format.h>
#include <cmath>
#include <limits>
#include <string>
#include <vector>

namespace host::sim {
namespace {

using Metadata = ocula::OculaPicture::BaseMetadata;
using Keys = Metadata::Keys;

void spoil(Metadata& metadata, const std::string& key, MetadataFault::Kind kind) {
  const auto found = metadata.find(key);
  if (found == metadata.end()) return;
  const double* number = std::get_if<double>(&found->second);
  const double value = number != nullptr ? *number : 1.0;
  switch (kind) {
    case MetadataFault::Kind::Missing:
      metadata.erase(found);
      break;
    case MetadataFault::Kind::Text:
      found->second = fmt::format("{:.3f}", value);
      break;
    case MetadataFault::Kind::WholeInt:
      found->second = static_cast<int>(std::lround(value));
      break;
    case MetadataFault::Kind::NotFinite:
      found->second = std::numeric_limits<double>::quiet_NaN();
      break;
  }
}

}  // namespace

Metadata reportedMetadata(const View& view, bool followMe, double t_s, const MetadataParams& params, cv::RNG& rng) {
  const double panNoise = params.noise_deg > 0 ? rng.gaussian(params.noise_deg) : 0.0;
  const double tiltNoise = params.noise_deg > 0 ? rng.gaussian(params.noise_deg) : 0.0;
  Metadata metadata;
  metadata[Keys::kPanDeg] = wrapped(view.centre.pan + panNoise);
  metadata[Keys::kTiltDeg] = view.centre.tilt + tiltNoise;
  metadata[Keys::kHfovDeg] = view.hfov;
  metadata[Keys::kVfovDeg] = view.vfov;
  metadata[Keys::kFollowMeEnabledCommand] = followMe ? 1 : 0;
  for (const MetadataFault& fault : params.faults) {
    if (t_s < fault.from_s || t_s >= fault.until_s) continue;
    const std::vector<std::string> geometry = {Keys::kPanDeg, Keys::kTiltDeg, Keys::kHfovDeg, Keys::kVfovDeg};
    for (const std::string& key : fault.keys.empty() ? geometry : fault.keys) spoil(metadata, key, fault.kind);
  }
  return metadata;
}

}  // namespace host::sim
