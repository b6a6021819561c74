#pragma once

#include <string>

namespace sw {

/// Reads one JSON string literal. Bytes above 127 pass unchecked. Throws nothing but for lack of memory.
class JsonStringReader {
 public:
  /// @param json  the text, referred to while reading
  /// @param pos   byte offset of the opening quote
  /// @param out   cleared, then receives the text with its escapes replaced
  JsonStringReader(const std::string& json, std::size_t pos, std::string& out);

  /// @return false when the literal is wrong: problem() at pos()
  bool read();

  std::size_t pos() const { return pos_; }  ///< just past the closing quote, or the place of the problem
  const char* problem() const { return problem_; }

 private:
  bool atEnd_() const { return pos_ >= json_.size(); }
  bool fail_(const char* problem, std::size_t pos);
  void copyPlain_();
  bool readEscape_();
  bool readUnicode_();
  bool readCode_(unsigned& code);
  bool readLowSurrogate_(unsigned& code);
  void appendUtf8_(unsigned code);

  const std::string& json_;
  std::size_t pos_;
  std::string& out_;
  const char* problem_ = "";
};

}  // namespace sw
