#include "sw_json.h"

#include <charconv>
#include <limits>
#include <stdexcept>

namespace {

std::int64_t cutToInt64(double value) {
  constexpr double kLimit = 9223372036854775808.0;  // 2^63: the first double that no longer fits
  if (value >= kLimit) return std::numeric_limits<std::int64_t>::max();
  if (value < -kLimit) return std::numeric_limits<std::int64_t>::min();
  return value == value ? static_cast<std::int64_t>(value) : 0;
}

std::string sixDecimals(double value) {
  char text[400];  // the largest double has 309 digits before the point
  const auto written = std::to_chars(text, text + sizeof(text), value, std::chars_format::fixed, 6);
  return std::string(text, written.ptr);
}

}  // namespace

SwJsonValue::SwJsonValue(std::shared_ptr<SwJsonObject> value) {
  if (value) data_ = std::move(value);
}

SwJsonValue::SwJsonValue(std::shared_ptr<SwJsonArray> value) {
  if (value) data_ = std::move(value);
}

bool SwJsonValue::toBool() const {
  switch (kind()) {
    case Kind::Bool:
      return std::get<bool>(data_);
    case Kind::Int:
      return std::get<std::int64_t>(data_) != 0;
    case Kind::Double:
      return std::get<double>(data_) != 0.0;
    default:
      return false;
  }
}

std::int64_t SwJsonValue::toInt64() const {
  switch (kind()) {
    case Kind::Bool:
      return std::get<bool>(data_) ? 1 : 0;
    case Kind::Int:
      return std::get<std::int64_t>(data_);
    case Kind::Double:
      return cutToInt64(std::get<double>(data_));
    default:
      return 0;
  }
}

double SwJsonValue::toDouble() const {
  switch (kind()) {
    case Kind::Bool:
      return std::get<bool>(data_) ? 1.0 : 0.0;
    case Kind::Int:
      return static_cast<double>(std::get<std::int64_t>(data_));
    case Kind::Double:
      return std::get<double>(data_);
    default:
      return 0.0;
  }
}

std::string SwJsonValue::toString() const {
  switch (kind()) {
    case Kind::Bool:
      return std::get<bool>(data_) ? "true" : "false";
    case Kind::Int:
      return std::to_string(std::get<std::int64_t>(data_));
    case Kind::Double:
      return sixDecimals(std::get<double>(data_));
    case Kind::String:
      return std::get<std::string>(data_);
    case Kind::Object:
      return "{}";
    case Kind::Array:
      return "[]";
    default:
      return "null";
  }
}

std::shared_ptr<SwJsonObject> SwJsonValue::toObject() const {
  const auto* const object = std::get_if<std::shared_ptr<SwJsonObject>>(&data_);
  return object != nullptr ? *object : nullptr;
}

std::shared_ptr<SwJsonArray> SwJsonValue::toArray() const {
  const auto* const array = std::get_if<std::shared_ptr<SwJsonArray>>(&data_);
  return array != nullptr ? *array : nullptr;
}

// Copies level by level: each container met gets an empty twin, which is filled when its turn comes.
class SwJsonContainer::Copier {
 public:
  SwJsonValue copy(const SwJsonValue& source) {
    SwJsonValue root = twin(source);
    while (!waiting_.empty()) {
      const Pair next = waiting_.back();
      waiting_.pop_back();
      if (next.fromObject) {
        for (const auto& [key, value] : *next.fromObject) {
          next.toObject->values_.emplace_hint(next.toObject->values_.end(), key, twin(value));
        }
      } else {
        next.toArray->values_.reserve(next.fromArray->size());
        for (const SwJsonValue& value : next.fromArray->values_) next.toArray->values_.push_back(twin(value));
      }
    }
    return root;
  }

 private:
  struct Pair {
    const SwJsonObject* fromObject;
    SwJsonObject* toObject;
    const SwJsonArray* fromArray;
    SwJsonArray* toArray;
  };

  SwJsonValue twin(const SwJsonValue& source) {
    if (const auto* const object = std::get_if<std::shared_ptr<SwJsonObject>>(&source.data_)) {
      auto copied = std::make_shared<SwJsonObject>();
      waiting_.push_back({object->get(), copied.get(), nullptr, nullptr});
      return SwJsonValue(std::move(copied));
    }
    if (const auto* const array = std::get_if<std::shared_ptr<SwJsonArray>>(&source.data_)) {
      auto copied = std::make_shared<SwJsonArray>();
      waiting_.push_back({nullptr, nullptr, array->get(), copied.get()});
      return SwJsonValue(std::move(copied));
    }
    return source;
  }

  std::vector<Pair> waiting_;
};

SwJsonValue SwJsonContainer::deepCopy(const SwJsonValue& source) {
  return Copier().copy(source);
}

void SwJsonContainer::release(SwJsonValue& child, Link& doomed) noexcept {
  Link last;
  if (auto* const object = std::get_if<std::shared_ptr<SwJsonObject>>(&child.data_)) {
    if (object->use_count() == 1) last = std::move(*object);
  } else if (auto* const array = std::get_if<std::shared_ptr<SwJsonArray>>(&child.data_)) {
    if (array->use_count() == 1) last = std::move(*array);
  }
  if (!last) return;
  last->next_ = std::move(doomed);
  doomed = std::move(last);
}

void SwJsonContainer::dismantle() noexcept {
  Link doomed;
  releaseChildren(doomed);
  while (doomed) {
    const Link current = std::move(doomed);
    doomed = std::move(current->next_);
    current->releaseChildren(doomed);
  }
}

SwJsonObject::SwJsonObject(const SwJsonObject& other) : SwJsonContainer(other) {
  for (const auto& [key, value] : other) values_.emplace_hint(values_.end(), key, deepCopy(value));
}

SwJsonObject& SwJsonObject::operator=(SwJsonObject other) noexcept {
  values_.swap(other.values_);
  return *this;
}

const SwJsonValue& SwJsonObject::operator[](const std::string& key) const {
  static const SwJsonValue absent;
  const auto found = values_.find(key);
  return found != values_.end() ? found->second : absent;
}

void SwJsonObject::set(const std::string& key, const SwJsonValue& value) {
  values_.insert_or_assign(key, deepCopy(value));
}

void SwJsonObject::releaseChildren(Link& doomed) noexcept {
  for (auto& [key, value] : values_) release(value, doomed);
  values_.clear();
}

SwJsonArray::SwJsonArray(const SwJsonArray& other) : SwJsonContainer(other) {
  values_.reserve(other.values_.size());
  for (const SwJsonValue& value : other.values_) values_.push_back(deepCopy(value));
}

SwJsonArray& SwJsonArray::operator=(SwJsonArray other) noexcept {
  values_.swap(other.values_);
  return *this;
}

const SwJsonValue& SwJsonArray::operator[](std::size_t index) const {
  if (index >= values_.size()) throw std::out_of_range("Index out of bounds");
  return values_[index];
}

void SwJsonArray::append(const SwJsonValue& value) {
  values_.push_back(deepCopy(value));
}

void SwJsonArray::releaseChildren(Link& doomed) noexcept {
  for (SwJsonValue& value : values_) release(value, doomed);
  values_.clear();
}
