#include "simulator/checked_json.h"

#include <fmt/format.h>

#include <algorithm>
#include <cmath>

#include "base/host_error.h"

namespace host::sim {
namespace {

std::string kindOf(const CheckedObject::Json& json) {
  switch (json.type()) {
    case CheckedObject::Json::value_t::object:
      return "an object";
    case CheckedObject::Json::value_t::array:
      return "an array";
    case CheckedObject::Json::value_t::string:
      return "a text";
    case CheckedObject::Json::value_t::boolean:
      return "a boolean";
    case CheckedObject::Json::value_t::null:
      return "null";
    default:
      return "a number";
  }
}

std::string listOf(const std::vector<std::string>& texts) {
  std::string list;
  for (const std::string& text : texts) list += (list.empty() ? "" : ", ") + text;
  return list;
}

}  // namespace

CheckedObject::CheckedObject(const Json& json, std::string file, std::string place)
    : json_(&json), file_(std::move(file)), place_(std::move(place)) {
  if (!json.is_object()) fail("", "this must be an object, not " + kindOf(json));
}

void CheckedObject::fail(const std::string& key, const std::string& what) const {
  const std::string between = place_.empty() || key.empty() ? "" : ".";
  const std::string place = place_ + between + key;
  throw HostError(ExitCode::Usage, "scenario '" + file_ + "': " + (place.empty() ? "" : place + ": ") + what);
}

const CheckedObject::Json* CheckedObject::find_(const std::string& key) {
  asked_.insert(key);
  const auto found = json_->find(key);
  return found == json_->end() ? nullptr : &*found;
}

bool CheckedObject::has(const std::string& key) {
  return find_(key) != nullptr;
}

double CheckedObject::number_(const std::string& key, const Json& json, const Range& range) const {
  if (!json.is_number()) fail(key, "this must be a number, not " + kindOf(json));
  const auto value = json.get<double>();
  if (!(value >= range.min && value <= range.max)) {
    fail(key, fmt::format("{} is not between {} and {}", json.dump(), range.min, range.max));
  }
  return value;
}

void CheckedObject::read(const std::string& key, const Range& range, double& value) {
  const Json* json = find_(key);
  if (json != nullptr) value = number_(key, *json, range);
}

void CheckedObject::read(const std::string& key, const Range& range, int& value) {
  std::optional<long> whole;
  read(key, range, whole);
  if (whole) value = static_cast<int>(*whole);
}

void CheckedObject::read(const std::string& key, const Range& range, std::optional<double>& value) {
  const Json* json = find_(key);
  if (json != nullptr) value = number_(key, *json, range);
}

void CheckedObject::read(const std::string& key, const Range& range, std::optional<long>& value) {
  const Json* json = find_(key);
  if (json == nullptr) return;
  const double number = number_(key, *json, range);
  if (number != std::floor(number)) fail(key, json->dump() + " is not a whole number");
  value = static_cast<long>(number);
}

void CheckedObject::read(const std::string& key, bool& value) {
  std::optional<bool> given;
  read(key, given);
  value = given.value_or(value);
}

void CheckedObject::read(const std::string& key, std::optional<bool>& value) {
  const Json* json = find_(key);
  if (json == nullptr) return;
  if (!json->is_boolean()) fail(key, "this must be true or false, not " + kindOf(*json));
  value = json->get<bool>();
}

void CheckedObject::read(const std::string& key, std::string& value) {
  const Json* json = find_(key);
  if (json == nullptr) return;
  if (!json->is_string()) fail(key, "this must be a text, not " + kindOf(*json));
  value = json->get<std::string>();
}

std::string CheckedObject::oneOf_(const std::string& key, const Json& json,
                                  const std::vector<std::string>& allowed) const {
  if (!json.is_string()) fail(key, "this must be a text, not " + kindOf(json));
  auto text = json.get<std::string>();
  if (std::find(allowed.begin(), allowed.end(), text) == allowed.end()) {
    fail(key, "'" + text + "' is none of " + listOf(allowed));
  }
  return text;
}

void CheckedObject::read(const std::string& key, const std::vector<std::string>& allowed, std::string& value) {
  const Json* json = find_(key);
  if (json != nullptr) value = oneOf_(key, *json, allowed);
}

const CheckedObject::Json& CheckedObject::array_(const std::string& key, const Json& json) const {
  if (!json.is_array()) fail(key, "this must be an array, not " + kindOf(json));
  return json;
}

void CheckedObject::read(const std::string& key, const std::vector<std::string>& allowed,
                         std::vector<std::string>& value) {
  const Json* json = find_(key);
  if (json == nullptr) return;
  value.clear();
  for (std::size_t i = 0; i < array_(key, *json).size(); ++i) {
    value.push_back(oneOf_(fmt::format("{}[{}]", key, i), (*json)[i], allowed));
  }
}

void CheckedObject::read(const std::string& key, const Range& range, double& first, double& second) {
  const Json* json = find_(key);
  if (json == nullptr) return;
  if (array_(key, *json).size() != 2) fail(key, "this must be two numbers");
  first = number_(key + "[0]", (*json)[0], range);
  second = number_(key + "[1]", (*json)[1], range);
}

std::optional<CheckedObject> CheckedObject::object(const std::string& key) {
  const Json* json = find_(key);
  if (json == nullptr) return std::nullopt;
  return CheckedObject(*json, file_, place_.empty() ? key : place_ + "." + key);
}

std::vector<CheckedObject> CheckedObject::objects(const std::string& key) {
  std::vector<CheckedObject> all;
  const Json* json = find_(key);
  if (json == nullptr) return all;
  const std::string head = place_.empty() ? key : place_ + "." + key;
  for (std::size_t i = 0; i < array_(key, *json).size(); ++i) {
    all.emplace_back((*json)[i], file_, fmt::format("{}[{}]", head, i));
  }
  return all;
}

CheckedObject::Json CheckedObject::rawObject(const std::string& key) {
  const Json* json = find_(key);
  if (json == nullptr) return Json::object();
  if (!json->is_object()) fail(key, "this must be an object, not " + kindOf(*json));
  return *json;
}

void CheckedObject::finish() const {
  for (const auto& [key, value] : json_->items()) {
    if (asked_.count(key) == 0)
      fail(key, "there is no such key here; known are " + listOf({asked_.begin(), asked_.end()}));
  }
}

}  // namespace host::sim
