// Parts of a text: without blanks, in small letters, the cells of a line.
#pragma once

#include <string>
#include <vector>

namespace host {

/// The text without blanks at its ends. Pure.
std::string trimmed(const std::string& text);

/// The text in small letters; what is not ASCII stays. Pure.
std::string lowered(std::string text);

/// The cells of one line of comma-separated values, without the blanks around them; a cell in double quotes may hold
/// commas, and "" in it stands for one quote. Pure.
/// @return false when a quoted text does not end
bool trySplitCsv(const std::string& line, std::vector<std::string>& cells);

}  // namespace host
