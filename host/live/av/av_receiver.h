// Receives through libavformat: MPEG-TS with what the camera says inside, HTTP, SDP, standard input.
#pragma once

#include <memory>

#include "live/receiver.h"

namespace live {

/// Never null. Opening waits for the stream's description, at most the request's limit or until its `stop`.
std::unique_ptr<Receiver> openAvReceiver(const ReceiverRequest& request);

}  // namespace live
