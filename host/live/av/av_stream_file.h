// Writes MPEG-TS: video, and beside it what the camera said (an asynchronous KLV stream, type 0x06).
#pragma once

#include <memory>
#include <string>

#include "live/receiver.h"

namespace live {

/// @return null with `fault` set where the file cannot be made or there is no encoder
std::unique_ptr<StreamFile> createAvStreamFile(const SenderRequest& request, std::string& fault);

}  // namespace live
