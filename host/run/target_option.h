// The text of --box: which target, where.
#pragma once

#include <string>
#include <vector>

#include "ialgo_plugin.h"

namespace host {

/// A target of the command line.
struct TargetOption {
  std::string name;
  BBox box;  ///< Full-frame pixels of the first frame; may lie partly outside.
};

/// Reads "X,Y,W,H" or "name=X,Y,W,H"; four integers. @throws HostError (Usage) naming the text
TargetOption parseTargetOption(const std::string& text);

/// Reads all --box options. A single nameless target is "target", several are "target1", "target2", ...
/// @throws HostError (Usage) for a bad text or a repeated name
std::vector<TargetOption> parseTargetOptions(const std::vector<std::string>& texts);

}  // namespace host
