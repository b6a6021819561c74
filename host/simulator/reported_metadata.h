// What the simulated camera says about itself, with the faults the scenario asks for.
#pragma once

#include <opencv2/core.hpp>

#include "ocula/ocula_picture.h"
#include "simulator/angles.h"
#include "simulator/scenario.h"

namespace host::sim {

/// @param view  the direction that the gimbal's encoders read, and the lens
/// @param rng   for the encoders' noise
ocula::OculaPicture::BaseMetadata reportedMetadata(const View& view, bool followMe, double t_s,
                                                   const MetadataParams& params, cv::RNG& rng);

}  // namespace host::sim
