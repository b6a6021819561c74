// Sends drawn pictures through GStreamer: an RTSP server of its own, or MPEG-TS over UDP.
#pragma once

#include <memory>
#include <string>

#include "live/receiver.h"

namespace live {

/// @return null with `fault` set where the address cannot be served or an element is missing
std::unique_ptr<Sender> openGstSender(const SenderRequest& request, std::string& fault);

}  // namespace live
