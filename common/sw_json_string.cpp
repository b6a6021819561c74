#include "sw_json_string.h"

#include "sw_json_text.h"

namespace sw {

namespace {

bool isControl(char c) {
  return static_cast<unsigned char>(c) < 0x20;
}
bool isHighSurrogate(unsigned code) {
  return code >= 0xD800 && code <= 0xDBFF;
}
bool isLowSurrogate(unsigned code) {
  return code >= 0xDC00 && code <= 0xDFFF;
}

// What a one-letter escape stands for; 0 when the letter is none.
char escapedCharacter(char letter) {
  switch (letter) {
    case '"':
    case '\\':
    case '/':
      return letter;
    case 'b':
      return '\b';
    case 'f':
      return '\f';
    case 'n':
      return '\n';
    case 'r':
      return '\r';
    case 't':
      return '\t';
    default:
      return 0;
  }
}

}  // namespace

JsonStringReader::JsonStringReader(const std::string& json, std::size_t pos, std::string& out)
    : json_(json), pos_(pos), out_(out) {
  out_.clear();
}

bool JsonStringReader::fail_(const char* problem, std::size_t pos) {
  problem_ = problem;
  pos_ = pos;
  return false;
}

bool JsonStringReader::read() {
  ++pos_;  // the opening quote
  for (;;) {
    copyPlain_();
    if (atEnd_()) return fail_("Unterminated string literal", pos_);
    if (json_[pos_] == '"') break;
    if (json_[pos_] != '\\') return fail_("Unescaped control character in string", pos_);
    if (!readEscape_()) return false;
  }
  ++pos_;
  return true;
}

void JsonStringReader::copyPlain_() {
  const char* const first = json_.data() + pos_;
  const char* const end = json_.data() + json_.size();
  const char* last = first;
  while (last != end && *last != '"' && *last != '\\' && !isControl(*last)) ++last;
  out_.append(first, last);
  pos_ += static_cast<std::size_t>(last - first);
}

bool JsonStringReader::readEscape_() {
  ++pos_;  // the backslash
  if (atEnd_()) return fail_("Invalid escape sequence in string", pos_);
  if (json_[pos_] == 'u') return readUnicode_();
  const char character = escapedCharacter(json_[pos_]);
  if (character == 0) return fail_("Invalid escape character in string", pos_);
  out_ += character;
  ++pos_;
  return true;
}

bool JsonStringReader::readUnicode_() {
  const std::size_t digits = ++pos_;  // past the 'u'
  unsigned code = 0;
  if (json_.size() - digits < 4) return fail_("Incomplete Unicode escape sequence", json_.size());
  if (!readCode_(code)) return fail_("Invalid hex digit in Unicode escape", pos_);
  if (isLowSurrogate(code)) return fail_("Unexpected low surrogate without leading high surrogate", digits);
  if (isHighSurrogate(code) && !readLowSurrogate_(code)) return false;
  appendUtf8_(code);
  return true;
}

// Four hexadecimal digits; stops at the first byte that is none.
bool JsonStringReader::readCode_(unsigned& code) {
  code = 0;
  for (int i = 0; i < 4; ++i, ++pos_) {
    const int digit = atEnd_() ? -1 : hexDigit(json_[pos_]);
    if (digit < 0) return false;
    code = code * 16 + static_cast<unsigned>(digit);
  }
  return true;
}

// The second half of a pair; `code` holds the first half and receives the code point.
bool JsonStringReader::readLowSurrogate_(unsigned& code) {
  constexpr const char* kMissing = "Missing low surrogate after high surrogate";
  for (const char expected : {'\\', 'u'}) {
    if (atEnd_() || json_[pos_] != expected) return fail_(kMissing, pos_);
    ++pos_;
  }
  const std::size_t digits = pos_;
  unsigned low = 0;
  if (!readCode_(low)) return fail_(kMissing, pos_);
  if (!isLowSurrogate(low)) return fail_("Invalid low surrogate in Unicode escape", digits);
  code = 0x10000 + ((code - 0xD800) << 10) + (low - 0xDC00);
  return true;
}

void JsonStringReader::appendUtf8_(unsigned code) {
  const auto tail = [&](unsigned shift) { out_ += static_cast<char>(0x80 | ((code >> shift) & 0x3F)); };
  if (code < 0x80) {
    out_ += static_cast<char>(code);
    return;
  }
  if (code < 0x800) {
    out_ += static_cast<char>(0xC0 | (code >> 6));
  } else if (code < 0x10000) {
    out_ += static_cast<char>(0xE0 | (code >> 12));
    tail(6);
  } else {
    out_ += static_cast<char>(0xF0 | (code >> 18));
    tail(12);
    tail(6);
  }
  tail(0);
}

}  // namespace sw
