// Where the keys of a JSON text stand, for messages a person can follow with an editor.
#pragma once

#include <cstddef>
#include <string>
#include <vector>

namespace host {

/// A place in a text, as an editor counts.
struct TextPlace {
  std::size_t line = 1;    ///< From 1.
  std::size_t column = 1;  ///< From 1, in characters (UTF-8 continuation bytes do not count).
};

/// The place of a byte of the text; the end of the text for a larger index. Pure.
TextPlace placeOf(const std::string& text, std::size_t index);

/// Where a key of a JSON text stands.
struct KeyPlace {
  std::string path;       ///< "group.key"; the keys on the way, joined by points.
  TextPlace place;        ///< Of the key's opening quote.
  bool repeated = false;  ///< The same object had this key before.
};

/// The keys of an object and of the objects directly in it, in the order of the text.
/// @param text  a valid JSON document; keys of anything else are found as far as the text goes
std::vector<KeyPlace> keyPlaces(const std::string& text);

}  // namespace host
