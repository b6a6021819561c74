// Do the two plug-ins give the same answers on this machine, with the OpenCV that is installed?
#pragma once

#include <string>

#include "plugin/doctor_checks.h"

namespace host {

/// Runs kEngineCheckFrames frames of a drawn scene through the plug-in and through the one with the other engine beside
/// it, each in a process of its own, and compares every record and log line. A note where there is nothing to compare.
/// @param path  a plug-in that can be used
DoctorFinding checkEngines(const std::string& path);

inline constexpr int kEngineCheckFrames = 60;

}  // namespace host
