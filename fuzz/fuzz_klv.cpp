// The packet reader on any bytes: never outside of them, and what it takes it can write and read again.
#include <cstddef>
#include <cstdint>
#include <vector>

#include "fuzz_check.h"
#include "klv/st0601.h"

namespace {

bool inRange(const std::optional<double>& value, double low, double high) {
  return !value || (*value >= low && *value <= high);
}

void checkState(const klv::CameraState& state) {
  fuzzCheck(inRange(state.platformHeadingDeg, 0, 360), "a heading is in range");
  fuzzCheck(inRange(state.sensorElevationDeg, -180, 180), "an elevation is in range");
  fuzzCheck(inRange(state.horizontalFovDeg, 0, 180), "a field of view is in range");
  fuzzCheck(inRange(state.sensorAltitudeM, -900, 19000), "an altitude is in range");
  const std::vector<std::uint8_t> again = klv::encode(state);
  const klv::Decoded decoded = klv::decode(again.data(), again.size());
  fuzzCheck(decoded.verdict == klv::Verdict::Good, "what was written can be read");
  fuzzCheck(decoded.size == again.size(), "all of it is read");
  fuzzCheck(klv::encode(decoded.state) == again, "writing again changes nothing");
}

/// The same packet with the right checksum: a fuzzer hardly ever guesses it.
klv::Decoded withRightChecksum(const std::uint8_t* data, const klv::Decoded& wrong) {
  std::vector<std::uint8_t> packet(data, data + wrong.size);
  packet[packet.size() - 2] = static_cast<std::uint8_t>(wrong.computed >> 8);
  packet[packet.size() - 1] = static_cast<std::uint8_t>(wrong.computed & 0xFF);
  return klv::decode(packet.data(), packet.size());
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const std::vector<std::uint8_t> exact(data, data + size);  // reading behind its end is seen
  for (std::size_t at = klv::findPacket(exact.data(), exact.size()); at < exact.size();
       at = klv::findPacket(exact.data(), exact.size(), at + 1)) {
    klv::Decoded decoded = klv::decode(exact.data() + at, exact.size() - at);
    fuzzCheck(decoded.size <= exact.size() - at, "a packet ends inside the bytes");
    if (decoded.verdict == klv::Verdict::BadChecksum) decoded = withRightChecksum(exact.data() + at, decoded);
    if (decoded.verdict == klv::Verdict::Good) checkState(decoded.state);
  }
  return 0;
}
