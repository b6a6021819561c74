// Stands in for live_window.cpp where OpenCV has no window library.
#include "base/host_error.h"
#include "run/live_window.h"

namespace host {

std::unique_ptr<RunSteering> openLiveWindow(const std::string& /*title*/) {
  throw HostError(
      ExitCode::Usage,
      "--show: this program was built with an OpenCV without windows (module highgui); write --video FILE instead");
}

}  // namespace host
