#include "picture/html_page.h"

#include <cstddef>

#include "base/embedded.h"
#include "base/json_text.h"

namespace host {
namespace {

/// JSON inside a <script> element: nothing in it may look like the element's end, or like a comment's begin.
std::string forScript(const nlohmann::ordered_json& json) {
  std::string text = jsonText(json);
  for (std::size_t at = 0; (at = text.find('<', at)) != std::string::npos;) text.replace(at, 1, "\\u003c");
  return text;
}

}  // namespace

std::string htmlPage(const char* page, const nlohmann::ordered_json& data,
                     const std::map<std::string, std::string>& parts) {
  std::map<std::string, std::string> marks = parts;
  marks["STYLE"] = kPageStyle;
  marks["CHART_LIBRARY"] = kChartLibrary;
  marks["CHART_HELPERS"] = kPageCharts;
  marks["DATA"] = forScript(data);
  const std::string text = page;
  std::string filled;
  std::size_t done = 0;
  for (std::size_t at = text.find('@'); at != std::string::npos; at = text.find('@', at + 1)) {
    const std::size_t end = text.find('@', at + 1);
    const auto mark = end == std::string::npos ? marks.end() : marks.find(text.substr(at + 1, end - at - 1));
    if (mark == marks.end()) continue;
    filled += text.substr(done, at - done) + mark->second;
    done = end + 1;
    at = end;
  }
  return filled + text.substr(done);
}

}  // namespace host
