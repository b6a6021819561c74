// Metadata of a recorded video: what the camera said when each frame was taken.
#pragma once

#include <cstddef>
#include <string>
#include <unordered_map>

#include "ocula/ocula_picture.h"

namespace host {

/// Metadata by frame number, each value in the type that a live camera delivers it in: angles, rates and positions as
/// double, counts and switches as int, time stamps as unsigned long, names as text.
class MetadataTable {
 public:
  using Metadata = ocula::OculaPicture::BaseMetadata;

  /// @param name  shown in complaints
  /// @throws HostError (Usage) naming `name`, the line (from 1) and what is wrong with it
  static MetadataTable parse(const std::string& text, const std::string& name);

  /// What is known about a frame; empty where there is no row for it.
  const Metadata& of(long frame) const;
  std::size_t rows() const { return rows_.size(); }

 private:
  std::unordered_map<long, Metadata> rows_;
};

/// Reads a file of comma-separated values with a heading, or of one JSON object per line. Columns or members: "frame"
/// (counted from 0, required), "follow_me" (0 or 1) and any key text such as "pan_deg". An empty cell or null: the
/// camera said nothing.
/// @throws HostError (Usage) when it cannot be read or a row is wrong
MetadataTable readMetadataFile(const std::string& path);

}  // namespace host
