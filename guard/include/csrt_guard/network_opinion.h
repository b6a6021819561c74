// A second opinion by a small public tracker network (ViTTrack, an ONNX file that the user brings), run by OpenCV's
// cv::TrackerVit on the processor. Part of the library csrt_guard_network, which is built where OpenCV is 4.9 or later.
#pragma once

#include <memory>
#include <string>

#include "csrt_guard/second_opinion.h"

namespace csrt_guard {

/// Reads the network and tries it once on a plain picture. Only files of people you trust: OpenCV reads them.
/// Each opinion holds a network of its own; different ones may be used on different threads.
/// @param file   the ONNX file; read now, not needed later
/// @param fault  where there is no result: why, as a part of a sentence. Else left alone
/// @return null: the file cannot be read, or is no network of this kind. Throws nothing but out of memory
std::unique_ptr<SecondOpinion> readNetworkOpinion(const std::string& file, std::string& fault);

}  // namespace csrt_guard
