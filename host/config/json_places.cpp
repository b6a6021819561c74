#include "config/json_places.h"

#include <algorithm>
#include <set>

#include "sw_json.h"

namespace host {
namespace {

constexpr std::size_t kDeepest = 2;  // groups and the keys in them

bool isBlank(char c) {
  return c == ' ' || (c >= '\t' && c <= '\r');
}

/// The place behind one more byte.
void advance(TextPlace& place, char c) {
  if (c == '\n') {
    ++place.line;
    place.column = 1;
  } else if ((static_cast<unsigned char>(c) & 0xC0U) != 0x80U) {
    ++place.column;
  }
}

/// Walks the text once. `open_` holds one entry per bracket that is open.
class Walker {
 public:
  explicit Walker(const std::string& text) : text_(text) {}

  std::vector<KeyPlace> walk() {
    while (at_ < text_.size()) {
      const char c = text_[at_];
      if (c == '"') {
        readString();
        continue;
      }
      if (c == '{' || c == '[') open_.push_back({c == '{', {}, {}});
      if ((c == '}' || c == ']') && !open_.empty()) open_.pop_back();
      ++at_;
    }
    return std::move(found_);
  }

 private:
  struct Level {
    bool isObject;
    std::set<std::string> keys;
    std::string current;
  };

  /// Objects all the way down, and not too deep.
  bool wantsKeys() const {
    return !open_.empty() && open_.size() <= kDeepest &&
           std::all_of(open_.begin(), open_.end(), [](const Level& level) { return level.isObject; });
  }

  void readString() {
    const std::size_t begin = at_;
    std::string value;
    SwString error;
    if (!SwJsonDocument::parseString(json_, at_, value, error)) {
      at_ = text_.size();
      return;
    }
    std::size_t next = at_;
    while (next < text_.size() && isBlank(text_[next])) ++next;
    if (next < text_.size() && text_[next] == ':' && wantsKeys()) addKey(value, begin);
  }

  /// Places are asked for in the order of the text: each goes on where the last one was.
  TextPlace placeAt(std::size_t index) {
    for (; placed_ < index; ++placed_) advance(place_, text_[placed_]);
    return place_;
  }

  void addKey(const std::string& key, std::size_t begin) {
    const bool isNew = open_.back().keys.insert(key).second;
    open_.back().current = key;
    std::string path;
    for (const Level& level : open_) path += (path.empty() ? "" : ".") + level.current;
    found_.push_back({path, placeAt(begin), !isNew});
  }

  const std::string& text_;
  const SwString json_{text_};
  std::size_t at_ = 0;
  std::size_t placed_ = 0;
  TextPlace place_;
  std::vector<Level> open_;
  std::vector<KeyPlace> found_;
};

}  // namespace

TextPlace placeOf(const std::string& text, std::size_t index) {
  TextPlace place;
  for (std::size_t i = 0; i < std::min(index, text.size()); ++i) advance(place, text[i]);
  return place;
}

std::vector<KeyPlace> keyPlaces(const std::string& text) {
  return Walker(text).walk();
}

}  // namespace host
