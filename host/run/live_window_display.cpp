// What of the live window needs no window library.
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <cstddef>
#include <cstdlib>
#include <cstring>

#include "run/live_window.h"

namespace host {
namespace {

constexpr const char* kRemedy = "; run it on a desktop or through 'ssh -X', or write --video FILE instead";
constexpr int kSmallestDrag = 4;  // pixels: below it was a click

/// Whether a local X server listens under this number. The window library ends the process when none does.
bool localServerAnswers(const std::string& number) {
  const std::string path = "/tmp/.X11-unix/X" + number;
  sockaddr_un address{};
  address.sun_family = AF_UNIX;
  if (path.size() + 1 >= sizeof address.sun_path) return false;
  for (const bool abstract : {false, true}) {
    std::memset(address.sun_path, 0, sizeof address.sun_path);
    std::memcpy(address.sun_path + (abstract ? 1 : 0), path.data(), path.size());
    const int handle = socket(AF_UNIX, SOCK_STREAM, 0);
    if (handle < 0) return false;
    const auto length = static_cast<socklen_t>(offsetof(sockaddr_un, sun_path) + path.size() + 1);
    const bool connected = connect(handle, reinterpret_cast<const sockaddr*>(&address), length) == 0;
    close(handle);
    if (connected) return true;
  }
  return false;
}

}  // namespace

std::string displayFault() {
  const char* wayland = std::getenv("WAYLAND_DISPLAY");
  if (wayland != nullptr && *wayland != '\0') return {};
  const char* x11 = std::getenv("DISPLAY");
  if (x11 == nullptr || *x11 == '\0') {
    return std::string("--show needs a display, and neither DISPLAY nor WAYLAND_DISPLAY is set") + kRemedy;
  }
  const std::string display = x11;
  if (display[0] != ':') return {};  // another machine's: left to the window library
  const std::string number = display.substr(1, display.find('.') - 1);
  return localServerAnswers(number) ? std::string() : "--show: the display '" + display + "' does not answer" + kRemedy;
}

std::optional<cv::Rect> draggedBox(cv::Point from, cv::Point to, cv::Size frame) {
  const cv::Rect box = cv::Rect(from, to) & cv::Rect({0, 0}, frame);
  if (box.width < kSmallestDrag || box.height < kSmallestDrag) return std::nullopt;
  return box;
}

}  // namespace host
