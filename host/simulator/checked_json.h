// Reads an object of a JSON file member by member and complains with the place about what is wrong.
#pragma once

#include <nlohmann/json.hpp>
#include <opencv2/core.hpp>
#include <optional>
#include <set>
#include <string>
#include <vector>

namespace host::sim {

/// A range, both ends allowed, with the words to complain with.
struct Range {
  double min;  ///< The smallest value that is allowed.
  double max;  ///< The largest one.
};

/// One object of the file. Each member is asked for by its key; finish() complains about those nobody asked for.
/// Errors: HostError (Usage), one sentence such as "scenario 'a.json': camera.hfov_deg: 0 is not between 1 and 180".
class CheckedObject {
 public:
  using Json = nlohmann::ordered_json;

  /// @param place  of this object in the file, such as "target.path[2]"; empty: the whole file
  CheckedObject(const Json& json, std::string file, std::string place);

  /// Whether the member is there. It counts as asked for.
  bool has(const std::string& key);
  /// The member, where it is there; the value stays where it is not. @throws HostError for another type or range
  void read(const std::string& key, const Range& range, double& value);
  void read(const std::string& key, const Range& range, int& value);
  void read(const std::string& key, const Range& range, std::optional<double>& value);
  void read(const std::string& key, const Range& range, std::optional<long>& value);
  void read(const std::string& key, bool& value);
  void read(const std::string& key, std::optional<bool>& value);
  void read(const std::string& key, std::string& value);
  /// @param allowed  the texts it may be
  void read(const std::string& key, const std::vector<std::string>& allowed, std::string& value);
  void read(const std::string& key, const std::vector<std::string>& allowed, std::vector<std::string>& value);
  /// Two numbers in an array.
  void read(const std::string& key, const Range& range, double& first, double& second);

  /// The member as an object of its own, or nothing.
  std::optional<CheckedObject> object(const std::string& key);
  /// The objects of an array; empty when the member is not there.
  std::vector<CheckedObject> objects(const std::string& key);

  /// The member as it stands. @throws when it is not an object
  Json rawObject(const std::string& key);

  /// @throws HostError naming the first member that was not asked for
  void finish() const;

  /// @throws HostError naming file, place and member
  [[noreturn]] void fail(const std::string& key, const std::string& what) const;

 private:
  const Json* find_(const std::string& key);
  const Json& array_(const std::string& key, const Json& json) const;
  double number_(const std::string& key, const Json& json, const Range& range) const;
  std::string oneOf_(const std::string& key, const Json& json, const std::vector<std::string>& allowed) const;

  const Json* json_;  // the file's text outlives its reader
  std::string file_;
  std::string place_;
  std::set<std::string> asked_;
};

}  // namespace host::sim
