// All cameras of a machine, as their control sockets tell: found, judged, shown.
#pragma once

#include <nlohmann/json.hpp>
#include <string>
#include <vector>

#include "run/control_query.h"

namespace host {

/// A camera that is expected to run, or whose socket was found.
struct CameraPlace {
  std::string name;    ///< As the unit's instance; any bytes.
  std::string socket;  ///< Path of its control socket; empty: there is none.
};

/// The cameras whose runs keep their sockets in a folder, by name: DIR/NAME, DIR/NAME/control and
/// DIR/csrt-track-NAME/control. Files that are no sockets are passed over.
/// @throws HostError (Usage) naming the folder where it cannot be read
std::vector<CameraPlace> camerasIn(const std::string& folder);

/// The cameras of this machine's service: /run/csrt-track-NAME/control, and without a socket those that only have their
/// settings, /etc/csrt-track/NAME.env. By name; missing folders are empty ones.
/// @param root  put before both paths; "" on a real machine
std::vector<CameraPlace> camerasOfService(const std::string& root = "");

/// What is known of one camera.
struct CameraStatus {
  CameraPlace place;
  bool running = false;         ///< Its run answered.
  bool fine = false;            ///< And pictures come.
  std::string state;            ///< "tracked", "2 tracked, 1 lost", "no signal", "waiting for a target".
  std::string fault;            ///< Why there is no state, for a person; empty: there is one.
  nlohmann::ordered_json told;  ///< The answer; null without one.
};

/// @param reply  to "status"; of a camera without a socket: anything. Pure.
CameraStatus judgeCamera(const CameraPlace& place, const ControlReply& reply);

/// One line a camera, a heading above; names with control characters or other bytes are shown escaped. Ends without a
/// line feed. Pure.
std::string cameraTable(const std::vector<CameraStatus>& cameras);

/// The same as one object: "schema", "version", "fine", "cameras". Pure.
nlohmann::ordered_json camerasJson(const std::vector<CameraStatus>& cameras);

}  // namespace host
