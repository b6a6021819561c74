#include "input/metadata_file.h"

#include <cmath>
#include <cstdint>
#include <limits>
#include <nlohmann/json.hpp>
#include <optional>
#include <set>
#include <stdexcept>
#include <utility>
#include <vector>

#include "base/host_error.h"
#include "base/json_text.h"
#include "base/text_file.h"
#include "base/text_parts.h"
#include "input/metadata_keys.h"

namespace host {
namespace {

using Json = nlohmann::json;
using Value = ocula::OculaPicture::MetadataValue;
using Keys = ocula::OculaPicture::BaseMetadata::Keys;

constexpr long kMaxFrame = 1L << 40;

/// What is wrong with a row; the line is added where it is known.
struct RowError : std::runtime_error {
  using std::runtime_error::runtime_error;
};

/// One value as both kinds of file can give it: nothing, a number or a text.
struct Cell {
  bool given = false;
  std::optional<double> number;
  std::optional<std::uint64_t> whole;  // exact where a double is not
  std::string text;
};

std::string keyOf(const std::string& column) {
  std::string key = column == "follow_me" ? Keys::kFollowMeEnabledCommand : column;
  if (metadataKindOf(key) == MetadataKind::Unknown) throw RowError("there is no metadata key '" + column + "'");
  return key;
}

double numberOf(const std::string& column, const Cell& cell) {
  if (!cell.number) throw RowError(column + " '" + cell.text + "' is not a number");
  if (!std::isfinite(*cell.number)) throw RowError(column + " '" + cell.text + "' is not finite");
  return *cell.number;
}

int intOf(const std::string& column, const Cell& cell) {
  const double number = numberOf(column, cell);
  if (number != std::floor(number) || std::fabs(number) > std::numeric_limits<int>::max()) {
    throw RowError(column + " '" + cell.text + "' is not a whole number of 32 bits");
  }
  return static_cast<int>(number);
}

Value valueOf(const std::string& column, const std::string& key, const Cell& cell) {
  switch (metadataKindOf(key)) {
    case MetadataKind::Text:
      return cell.text;
    case MetadataKind::Int:
      return intOf(column, cell);
    case MetadataKind::Unsigned:
      if (!cell.whole) throw RowError(column + " '" + cell.text + "' is not a whole number from 0");
      return static_cast<unsigned long>(*cell.whole);
    default:
      return numberOf(column, cell);
  }
}

/// The row of one line, put together value by value.
struct Row {
  std::optional<long> frame;
  MetadataTable::Metadata metadata;

  void add(const std::string& column, const Cell& cell) {
    if (column == "frame") {
      const bool good = cell.whole && *cell.whole <= static_cast<std::uint64_t>(kMaxFrame);
      if (!good) throw RowError("frame '" + cell.text + "' is not a whole number from 0");
      frame = static_cast<long>(*cell.whole);
      return;
    }
    const std::string key = keyOf(column);
    if (cell.given && !metadata.emplace(key, valueOf(column, key, cell)).second) {
      throw RowError("'" + column + "' is given twice");
    }
  }
};

std::vector<std::string> cellsOf(const std::string& line) {
  std::vector<std::string> cells;
  if (!trySplitCsv(line, cells)) throw RowError("a quoted text does not end");
  return cells;
}

bool isAllDigits(const std::string& text) {
  return !text.empty() && text.find_first_not_of("0123456789") == std::string::npos;
}

Cell cellOf(const std::string& text) {
  Cell cell;
  cell.given = !text.empty();
  cell.text = text;
  try {
    std::size_t used = 0;
    const double number = std::stod(text, &used);
    const bool decimal = text.find_first_of("xX") == std::string::npos;
    if (used == text.size() && decimal) cell.number = number;
    if (isAllDigits(text)) cell.whole = std::stoull(text);
  } catch (const std::exception&) {  // not a number, or one too large
  }
  return cell;
}

Cell cellOf(const std::string& name, const Json& json) {
  Cell cell;
  cell.given = !json.is_null();
  cell.text = json.is_string() ? json.get<std::string>() : json.dump();
  if (json.is_boolean()) cell.number = json.get<bool>() ? 1.0 : 0.0;
  if (json.is_number()) cell.number = json.get<double>();
  if (json.is_number_unsigned()) cell.whole = json.get<std::uint64_t>();
  if (json.is_structured()) throw RowError("'" + name + "' is neither a number nor a text");
  const bool wantsText = name != "frame" && metadataKindOf(keyOf(name)) == MetadataKind::Text;
  if (wantsText && cell.given && !json.is_string()) throw RowError(name + " " + cell.text + " is not a text");
  return cell;
}

/// Turns lines into rows, remembering the heading where there is one.
class RowReader {
 public:
  explicit RowReader(bool isJson) : isJson_(isJson) {}

  /// @return false for a line that is no row: empty, a comment, the heading
  bool tryRead(const std::string& line, Row& row) {
    if (line.empty() || line[0] == '#') return false;
    if (isJson_) {
      readJson_(line, row);
    } else if (columns_.empty()) {
      readHeading_(line);
      return false;
    } else {
      readCsv_(line, row);
    }
    if (!row.frame) throw RowError("there is no frame number");
    return true;
  }

 private:
  void readHeading_(const std::string& line) {
    std::set<std::string> seen;
    for (const std::string& column : cellsOf(line)) {
      if (column != "frame") keyOf(column);
      if (!seen.insert(column).second) throw RowError("the column '" + column + "' is there twice");
      columns_.push_back(column);
    }
    if (seen.count("frame") == 0) throw RowError("the heading has no column 'frame'");
  }

  void readCsv_(const std::string& line, Row& row) const {
    const std::vector<std::string> cells = cellsOf(line);
    if (cells.size() != columns_.size()) {
      throw RowError(std::to_string(cells.size()) + " values for " + std::to_string(columns_.size()) + " columns");
    }
    for (std::size_t i = 0; i < cells.size(); ++i) row.add(columns_[i], cellOf(cells[i]));
  }

  static void readJson_(const std::string& line, Row& row) {
    if (tooDeepAt(line) != std::string::npos) throw RowError("this is nested too deeply");
    const Json json = Json::parse(line, nullptr, false);
    if (json.is_discarded()) throw RowError("this is not JSON");
    if (!json.is_object()) throw RowError("this is not a JSON object");
    for (const auto& [name, value] : json.items()) row.add(name, cellOf(name, value));
  }

  bool isJson_;
  std::vector<std::string> columns_;
};

std::string withoutByteOrderMark(const std::string& text) {
  return text.rfind("\xEF\xBB\xBF", 0) == 0 ? text.substr(3) : text;
}

bool looksLikeJson(const std::string& text) {
  const std::size_t first = text.find_first_not_of(" \t\r\n");
  return first != std::string::npos && text[first] == '{';
}

}  // namespace

MetadataTable MetadataTable::parse(const std::string& whole, const std::string& name) {
  const std::string text = withoutByteOrderMark(whole);
  RowReader reader(looksLikeJson(text));
  MetadataTable table;
  long number = 0;
  for (std::size_t begin = 0; begin < text.size();) {
    const std::size_t end = std::min(text.find('\n', begin), text.size());
    ++number;
    try {
      Row row;
      if (reader.tryRead(trimmed(text.substr(begin, end - begin)), row) &&
          !table.rows_.emplace(*row.frame, std::move(row.metadata)).second) {
        throw RowError("frame " + std::to_string(*row.frame) + " is there twice");
      }
    } catch (const RowError& error) {
      throw HostError(ExitCode::Usage, "metadata '" + name + "', line " + std::to_string(number) + ": " + error.what());
    }
    begin = end + 1;
  }
  if (table.rows_.empty()) throw HostError(ExitCode::Usage, "metadata '" + name + "' has no row");
  return table;
}

const MetadataTable::Metadata& MetadataTable::of(long frame) const {
  static const Metadata kNothing;
  const auto found = rows_.find(frame);
  return found == rows_.end() ? kNothing : found->second;
}

MetadataTable readMetadataFile(const std::string& path) {
  return MetadataTable::parse(readTextFile(path), path);
}

}  // namespace host
