#pragma once

#include <cstdint>
#include <map>
#include <memory>
#include <string>
#include <utility>
#include <variant>
#include <vector>

#include "sw_string.h"

class SwJsonObject;
class SwJsonArray;

/// One JSON value. A copy of a value shares its object or array with the original; storing a value into an object or
/// an array makes a copy of everything below it, so that no container can come to hold itself.
/// Threads: as for a standard container, reading may run at the same time, a change may not.
class SwJsonValue {
 public:
  enum class Kind { Null, Bool, Int, Double, String, Object, Array };

  SwJsonValue() = default;  ///< null
  explicit SwJsonValue(bool value) : data_(value) {}
  explicit SwJsonValue(int value) : data_(std::int64_t{value}) {}
  explicit SwJsonValue(std::int64_t value) : data_(value) {}
  explicit SwJsonValue(double value) : data_(value) {}
  explicit SwJsonValue(std::string value) : data_(std::move(value)) {}
  explicit SwJsonValue(const char* value) : data_(std::string(value)) {}
  /// Shares the object or array; an empty pointer gives null.
  explicit SwJsonValue(std::shared_ptr<SwJsonObject> value);
  explicit SwJsonValue(std::shared_ptr<SwJsonArray> value);

  Kind kind() const { return static_cast<Kind>(data_.index()); }

  /// A boolean as it is, a number unless it is zero; false for every other kind.
  bool toBool() const;
  /// An integer as it is, a double cut towards zero (beyond 64 bits the nearest end, NaN 0), a boolean 1 or 0;
  /// 0 for every other kind.
  std::int64_t toInt64() const;
  /// A double as it is, an integer converted, a boolean 1.0 or 0.0; 0.0 for every other kind.
  double toDouble() const;
  /// A string's own text, "true" or "false", an integer in decimal, a double with six decimals and a point whatever
  /// the locale, "null"; "{}" and "[]" stand for any object and array.
  std::string toString() const;
  /// The object itself, not a copy; an empty pointer when the value is of another kind.
  std::shared_ptr<SwJsonObject> toObject() const;
  /// The array itself, not a copy; an empty pointer when the value is of another kind.
  std::shared_ptr<SwJsonArray> toArray() const;

 private:
  friend class SwJsonContainer;

  // In the order of Kind.
  std::variant<std::monostate, bool, std::int64_t, double, std::string, std::shared_ptr<SwJsonObject>,
               std::shared_ptr<SwJsonArray>>
      data_;
};

/// What objects and arrays share: copying and destroying a tree of any depth without recursion.
class SwJsonContainer {
 protected:
  using Link = std::shared_ptr<SwJsonContainer>;

  SwJsonContainer() = default;
  SwJsonContainer(const SwJsonContainer&) {}                            // the link below is nobody's content
  SwJsonContainer& operator=(const SwJsonContainer&) { return *this; }  // NOLINT(bugprone-unhandled-self-assignment)
  ~SwJsonContainer() = default;

  /// Puts onto `doomed` every container below that nothing else holds, and drops the rest.
  virtual void releaseChildren(Link& doomed) noexcept = 0;
  /// Destroys everything below level by level; needs no memory.
  void dismantle() noexcept;
  static void release(SwJsonValue& child, Link& doomed) noexcept;
  /// A copy of `source` and of everything below it.
  static SwJsonValue deepCopy(const SwJsonValue& source);

 private:
  class Copier;

  Link next_;  // the list of containers that wait to be dismantled
};

/// Keys in byte-wise order, each with one value.
class SwJsonObject final : public SwJsonContainer {
 public:
  using Map = std::map<std::string, SwJsonValue, std::less<>>;

  SwJsonObject() = default;
  SwJsonObject(const SwJsonObject& other);  ///< copies everything below
  SwJsonObject(SwJsonObject&& other) noexcept : values_(std::move(other.values_)) {}
  SwJsonObject& operator=(SwJsonObject other) noexcept;
  ~SwJsonObject() { dismantle(); }

  /// As those of std::map.
  bool contains(const std::string& key) const { return values_.find(key) != values_.end(); }
  std::size_t size() const { return values_.size(); }
  Map::const_iterator begin() const { return values_.begin(); }
  Map::const_iterator end() const { return values_.end(); }

  /// The value of the key; a null value shared by all when the key is absent. Never inserts.
  const SwJsonValue& operator[](const std::string& key) const;
  /// Stores a copy of the value and of everything below it; replaces the key's earlier value.
  void set(const std::string& key, const SwJsonValue& value);

 private:
  friend class SwJsonContainer;
  friend class SwJsonDocument;

  void releaseChildren(Link& doomed) noexcept override;

  Map values_;
};

/// Values in document order.
class SwJsonArray final : public SwJsonContainer {
 public:
  SwJsonArray() = default;
  SwJsonArray(const SwJsonArray& other);  ///< copies everything below
  SwJsonArray(SwJsonArray&& other) noexcept : values_(std::move(other.values_)) {}
  SwJsonArray& operator=(SwJsonArray other) noexcept;
  ~SwJsonArray() { dismantle(); }

  /// Number of values.
  std::size_t size() const { return values_.size(); }
  /// @throws std::out_of_range "Index out of bounds" when index >= size()
  const SwJsonValue& operator[](std::size_t index) const;
  /// Stores a copy of the value and of everything below it at the end.
  void append(const SwJsonValue& value);

 private:
  friend class SwJsonContainer;
  friend class SwJsonDocument;

  void releaseChildren(Link& doomed) noexcept override;

  std::vector<SwJsonValue> values_;
};

/// Reads JSON text: strict about the grammar but for the white space (vertical tab and form feed count too), without a
/// limit on nesting, in time linear in the text, in the C locale. UTF-8 in strings passes unchecked.
/// Errors: never thrown but for lack of memory; the first one is left in `error`, and the value is then null.
/// Threads: no state, any thread.
class SwJsonDocument {
 public:
  /// Reads one value.
  /// @param json   the text
  /// @param pos    byte offset to start at; moved past the value, or to the place of the error
  /// @param key    decrypts every string value (not the object keys); empty: strings are taken as they are
  /// @param error  receives the first error; when it holds text already, nothing is read and the value is null
  static SwJsonValue parseJson(const SwString& json, std::size_t& pos, const SwString& key, SwString& error);

  /// Reads a string literal.
  /// @param pos  byte offset of the opening quote; moved past the closing quote, or to the place of the error
  /// @param out  receives the text with its escapes replaced; unspecified after an error
  /// @return     false when `error` received a message
  static bool parseString(const SwString& json, std::size_t& pos, std::string& out, SwString& error);

  /// Writes the message, the index and up to twenty bytes of text on each side of it into `error`, unless `error`
  /// holds an earlier one.
  static void reportError(SwString& error, const SwString& json, std::size_t index, const std::string& message);

  /// Reads a text that holds one value, white space around it and nothing more.
  static SwJsonValue parseDocument(const SwString& json, const SwString& key, SwString& error);

 private:
  class Parser;
};
