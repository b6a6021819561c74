// Which configuration values a search may change, and how.
#pragma once

#include <nlohmann/json.hpp>
#include <string>
#include <vector>

#include "evaluation/seeded_random.h"

namespace host {

/// One key of the configuration: a range of numbers, or a list of values.
struct SearchKey {
  std::string group;                   ///< Of the configuration, such as "redetect".
  std::string key;                     ///< In the group.
  double low = 0.0;                    ///< Of a range.
  double high = 0.0;                   ///< A range where high > low; else `values` count.
  bool byRatio = false;                ///< A range is sampled evenly in its logarithm.
  std::vector<nlohmann::json> values;  ///< The list to choose from; not empty where there is no range.

  /// "group.key".
  std::string path() const { return group + "." + key; }
};

using SearchSpace = std::vector<SearchKey>;

/// The keys that decide how a target is held and found again; not those that fit a camera or a host.
SearchSpace defaultSearchSpace();

/// `base` with about half of the keys set anew.
nlohmann::json randomConfig(const SearchSpace& space, const nlohmann::json& base, SeededRandom& random);

/// `parent` with a few keys changed, at least one: numbers move by up to a fifth of their range, lists to any value.
nlohmann::json neighbourOf(const SearchSpace& space, const nlohmann::json& parent, SeededRandom& random);

}  // namespace host
