// Receives through GStreamer: RTSP, cameras of this machine, plain RTP, and any pipeline a person writes.
#pragma once

#include <memory>
#include <string>
#include <vector>

#include "live/receiver.h"

namespace live {

/// Never null. The connection is made in the background; next() tells what came of it.
std::unique_ptr<Receiver> openGstReceiver(const ReceiverRequest& request);

/// For each kind of video the decoder that would be taken, by rank: "h264: avdec_h264".
std::vector<std::string> gstDecoders();

}  // namespace live
