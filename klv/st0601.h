// MISB ST 0601 (UAS Datalink Local Set): what an airborne camera says about itself, packed beside its video.
// The codec alone: bytes in, values out, and back. No dependency, no allocation but for the encoder's result.
#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <vector>

namespace klv {

/// The values that are read and written; a value that a packet does not carry, or carries as "out of range", is empty.
/// Angles in degrees, lengths in metres. Ranges are those of the standard; encoding clamps to them.
struct CameraState {
  std::optional<std::uint64_t> timestampUs;       ///< Tag 2: microseconds since 1970 (UTC).
  std::optional<double> platformHeadingDeg;       ///< Tag 5: [0, 360], clockwise from north.
  std::optional<double> platformPitchDeg;         ///< Tag 6: [-20, 20], nose up positive.
  std::optional<double> platformRollDeg;          ///< Tag 7: [-50, 50], right wing down positive.
  std::optional<double> sensorLatitudeDeg;        ///< Tag 13: [-90, 90].
  std::optional<double> sensorLongitudeDeg;       ///< Tag 14: [-180, 180].
  std::optional<double> sensorAltitudeM;          ///< Tag 15: [-900, 19000].
  std::optional<double> horizontalFovDeg;         ///< Tag 16: [0, 180].
  std::optional<double> verticalFovDeg;           ///< Tag 17: [0, 180].
  std::optional<double> sensorAzimuthDeg;         ///< Tag 18: [0, 360], clockwise from the platform's nose.
  std::optional<double> sensorElevationDeg;       ///< Tag 19: [-180, 180], upwards from the platform's plane.
  std::optional<double> sensorRollDeg;            ///< Tag 20: [0, 360], clockwise about the line of sight.
  std::optional<double> slantRangeM;              ///< Tag 21: [0, 5 000 000].
  std::optional<double> frameCenterLatitudeDeg;   ///< Tag 23: [-90, 90].
  std::optional<double> frameCenterLongitudeDeg;  ///< Tag 24: [-180, 180].
  std::optional<double> frameCenterElevationM;    ///< Tag 25: [-900, 19000].
  std::optional<std::uint8_t> version;            ///< Tag 65: version of the local set.
};

/// Whether a packet can be used.
enum class Verdict {
  Good,        ///< The packet is whole and its checksum right; unknown tags were passed over.
  NotAPacket,  ///< There is no local set's key at the beginning.
  Truncated,   ///< The packet says that it is longer than the bytes given.
  Malformed,   ///< A tag or length makes no sense, or a value has the wrong size.
  NoChecksum,  ///< Whole, but without the checksum at its end that the standard asks for.
  BadChecksum  ///< The stored checksum is not the computed one.
};

/// @return the English word for logs and tests: "good", "not a packet", ...
const char* name(Verdict verdict);

/// A packet as it was read.
struct Decoded {
  Verdict verdict = Verdict::NotAPacket;
  CameraState state;           ///< Empty unless the verdict is Good: values of a damaged packet are never used.
  std::size_t size = 0;        ///< Bytes of the packet from its key on; 0 where it has no end.
  std::uint16_t stored = 0;    ///< The checksum in the packet, where there is one.
  std::uint16_t computed = 0;  ///< The checksum of its bytes, where there is one.
};

/// Reads one packet that begins at `data`. Never reads outside [data, data + size). Pure, any thread.
Decoded decode(const std::uint8_t* data, std::size_t size);

/// Where the next packet's 16-byte key begins at or after `from`; `size` where there is none. Pure, any thread.
std::size_t findPacket(const std::uint8_t* data, std::size_t size, std::size_t from = 0);

/// One packet with the time stamp first and the checksum last, as the standard asks; other tags in rising order.
/// Without a time stamp 0 is written, without a version 13. Values outside their range are clamped; NaN is left out.
std::vector<std::uint8_t> encode(const CameraState& state);

/// The 16-bit sum over `size` bytes, of which the first counts as the upper half of a word (the standard's own rule).
std::uint16_t checksum(const std::uint8_t* data, std::size_t size);

}  // namespace klv
