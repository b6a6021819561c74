// Which type of value a camera delivers for each metadata key.
#pragma once

#include <string>

namespace host {

/// The type in which a camera hands over a value.
enum class MetadataKind {
  Unknown,   ///< There is no such key.
  Text,      ///< std::string
  Int,       ///< int
  Unsigned,  ///< unsigned long
  Double     ///< double
};

/// Pure, any thread. @param key  a key text such as "pan_deg"
MetadataKind metadataKindOf(const std::string& key);

}  // namespace host
