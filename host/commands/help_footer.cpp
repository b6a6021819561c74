#include "commands/help_footer.h"

#include <algorithm>
#include <sstream>

namespace host {

std::string wrapped(const std::string& text, std::size_t width) {
  std::istringstream words(text);
  std::string lines;
  std::size_t column = 0;
  for (std::string word; words >> word;) {
    const bool fits = column == 0 || column + 1 + word.size() <= width;
    if (!lines.empty()) lines += fits ? ' ' : '\n';
    column = fits && column > 0 ? column + 1 + word.size() : word.size();
    lines += word;
  }
  return lines;
}

const char* const kInterrupted =
    "interrupted (129: connection lost, 143: terminated); what is written so far is complete";

std::vector<ExitMeaning> runExits() {
  return {{3, "the source cannot be opened or has no frame"},
          {4, "the plug-in cannot be loaded"},
          {6, "an output could not be written to its end"},
          {130, kInterrupted}};
}

std::string helpFooter(const std::vector<std::string>& examples, std::vector<ExitMeaning> exits) {
  const auto addMissing = [&exits](int status, const char* meaning) {
    const bool named = std::any_of(exits.begin(), exits.end(), [&](const auto& exit) { return exit.first == status; });
    if (!named) exits.emplace_back(status, meaning);
  };
  addMissing(0, "done");
  addMissing(2, "wrong usage, or a file or value given that cannot be used");
  addMissing(6, "standard output cannot be written");
  std::sort(exits.begin(), exits.end());
  std::string text = examples.empty() ? "" : "Examples:\n";
  for (const std::string& example : examples) text += "  csrt-track " + example + "\n";
  text += examples.empty() ? "Exit status:" : "\nExit status:";
  for (const auto& [status, meaning] : exits) {
    const std::string number = std::to_string(status);
    text += "\n  " + std::string(3 - number.size(), ' ') + number + "  " + meaning;
  }
  return text;
}

}  // namespace host
