// Receives a live source the way csrt-track does and reads the time drawn into its pictures by tools/live-sender.py:
// what a picture's age really is, beside what is believed of it. One JSON line per frame taken.
//   live_probe ADDRESS SECONDS [--work MS] [--udp] [--frames N] [--reconnect N]
// --work: a tracker that takes so long. --frames: ends after so many. --reconnect N: closes and opens N times and says
// files open and memory.
#include <unistd.h>

#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <optional>
#include <string>
#include <thread>

#include "base/host_error.h"
#include "live/live_source.h"

namespace {

constexpr int kBits = 48;
constexpr int kSide = 12;

/// The time in the picture, seconds since 1970; nothing where the squares contradict their complement.
std::optional<double> drawnTime(const cv::Mat& bgr) {
  if (bgr.cols < kBits * kSide || bgr.rows < 2 * kSide) return std::nullopt;
  unsigned long bits = 0;
  for (int i = 0; i < kBits; ++i) {
    const int x = i * kSide + kSide / 2;
    const int plain = bgr.at<cv::Vec3b>(kSide / 2, x)[1];
    const int other = bgr.at<cv::Vec3b>(kSide + kSide / 2, x)[1];
    if (std::abs(plain - other) < 60) return std::nullopt;
    bits = bits << 1 | (plain > other ? 1UL : 0UL);
  }
  return static_cast<double>(bits) / 1000.0;
}

long openFiles() {
  const std::filesystem::directory_iterator files("/proc/self/fd");
  return static_cast<long>(std::distance(begin(files), end(files)));
}

double residentMb() {
  long pages = 0;
  long resident = 0;
  std::ifstream("/proc/self/statm") >> pages >> resident;
  return static_cast<double>(resident * sysconf(_SC_PAGESIZE)) / 1e6;
}

struct Wishes {
  host::SourceOptions source;
  live::LiveOptions live;
  double seconds = 0.0;
  double workMs = 0.0;
  long reconnects = 0;
};

double since(std::chrono::steady_clock::time_point begin) {
  return std::chrono::duration<double>(std::chrono::steady_clock::now() - begin).count();
}

void probe(const Wishes& wishes) {
  const auto begin = std::chrono::steady_clock::now();
  const live::Clocks clocks = live::machineClocks();
  live::LiveSource source(wishes.source, wishes.live, [&] { return since(begin) > wishes.seconds; });
  host::SourceFrame frame;
  while (since(begin) < wishes.seconds && source.read(frame)) {
    if (frame.noSignal) {
      std::printf("{\"at\":%.4f,\"no_signal\":true}\n", clocks.unixTime());
      std::fflush(stdout);
      continue;
    }
    const double believed = (clocks.steady() - frame.live->capturedAt) * 1000.0;
    const std::optional<double> drawn = drawnTime(frame.bgr);
    const double real = drawn ? (clocks.unixTime() - *drawn) * 1000.0 : -1.0;
    std::printf(
        "{%s\"at\":%.4f,\"frame\":%ld,\"time_s\":%.4f,\"dropped\":%ld,\"age_ms\":%.2f,\"real_age_ms\":%.2f,\"drawn_"
        "ms\":%"
        ".0f,\"sender\":%s}\n",
        frame.live->camera.count("pan_deg") != 0 ? "\"camera\":true," : "", clocks.unixTime(), frame.index,
        frame.time_s, frame.live->dropped, believed, real, drawn.value_or(-0.001) * 1000,
        frame.live->senderClock ? "true" : "false");
    std::fflush(stdout);
    std::this_thread::sleep_for(std::chrono::duration<double, std::milli>(wishes.workMs));
  }
  const live::CaptureReport seen = source.report();
  std::printf(
      "{\"decoded\":%ld,\"connections\":%ld,\"damaged\":%ld,\"resized\":%ld,\"times_corrected\":%ld,\"stamp_jumps\":%"
      "ld,"
      "\"packets\":%ld,"
      "\"packets_refused\":%ld,\"decoder\":\"%s\"}\n",
      seen.decoded, seen.connections, seen.damaged, seen.resized, seen.timesCorrected, seen.stampJumps, seen.packets,
      seen.packetsRefused, seen.decoder.c_str());
}

/// Opens, takes one frame and closes, again and again.
void reconnect(const Wishes& wishes) {
  for (long i = 0; i <= wishes.reconnects; ++i) {
    live::LiveSource source(wishes.source, wishes.live, [] { return false; });
    host::SourceFrame frame;
    if (!source.read(frame)) std::exit(1);
    if (i % 20 == 0 || i == wishes.reconnects) {
      std::printf("{\"reconnections\":%ld,\"files\":%ld,\"resident_mb\":%.2f}\n", i, openFiles(), residentMb());
      std::fflush(stdout);
    }
  }
}

Wishes wishesOf(int argc, char** argv) {
  Wishes wishes;
  wishes.live.connectLimitS = 30.0;
  wishes.source.source = argv[1];
  wishes.seconds = std::atof(argv[2]);
  for (int i = 3; i < argc; ++i) {
    if (std::strcmp(argv[i], "--udp") == 0) wishes.live.overUdp = true;
    if (i + 1 < argc && std::strcmp(argv[i], "--work") == 0) wishes.workMs = std::atof(argv[++i]);
    if (i + 1 < argc && std::strcmp(argv[i], "--frames") == 0) wishes.source.frames = std::atol(argv[++i]);
    if (i + 1 < argc && std::strcmp(argv[i], "--reconnect") == 0) wishes.reconnects = std::atol(argv[++i]);
  }
  return wishes;
}

}  // namespace

int main(int argc, char** argv) {
  if (argc < 3) {
    std::fprintf(stderr, "usage: live_probe ADDRESS SECONDS [--work MS] [--udp] [--frames N] [--reconnect N]\n");
    return 2;
  }
  const Wishes wishes = wishesOf(argc, argv);
  try {
    if (wishes.reconnects > 0) {
      reconnect(wishes);
    } else {
      probe(wishes);
    }
  } catch (const host::HostError& error) {
    std::fprintf(stderr, "live_probe: %s\n", error.what());
    return static_cast<int>(error.code());
  }
  return 0;
}
