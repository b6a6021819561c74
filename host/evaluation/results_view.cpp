#include "evaluation/results_view.h"

#include <fmt/format.h>

#include <algorithm>
#include <cstddef>
#include <utility>
#include <vector>

#include "base/embedded.h"
#include "base/json_text.h"
#include "picture/html_page.h"

namespace host {
namespace {

constexpr double kSuccessStep = 1.0 / (kSuccessSteps - 1);
constexpr double kPrecisionStep_px = 1.0;

constexpr const char* kLegend =
    "held: targets on target at their last mark; on: share of marked frames with an\n"
    "overlap of 0.3 or more; AUC: area under the success curve; p20: centre within\n"
    "20 px; IoU: mean overlap; wrong: share of the frames called seen whose overlap\n"
    "is below 0.1 or that show no target; false: boxes while the target is absent;\n"
    "off s, longest: seconds off target, in all and at a stretch; found: losses that\n"
    "ended on target again, and their mean delay in seconds; ms, p95, cpu ms: time\n"
    "of an update, median, 95 of 100, and processor time; -: nothing to judge by.\n";

constexpr const char* kNothing = "-";
constexpr std::size_t kNameWidth = 21;  // with it both parts of the table are 80 columns wide

/// A figure: in the table's words, in the page's, and what it means.
struct Column {
  const char* title;
  std::size_t width;  ///< In the table.
  const char* heading;
  const char* meaning;
  std::string value;
};

/// How many columns stand in the table's first part: what is right. The rest is time.
constexpr std::size_t kFirstPart = 7;

std::string percent(double share) {
  return fmt::format("{:.1f}%", 100 * share);
}

std::vector<Column> columnsOf(const Figures& f) {
  const Metrics& m = f.metrics;
  const MetricSums& s = f.sums;
  const bool judged = s.present > 0;
  const auto ofMarks = [judged](double figure) { return judged ? fmt::format("{:.3f}", figure) : kNothing; };
  const auto seconds = [&s](double time) { return s.present + s.absent > 0 ? fmt::format("{:.1f}", time) : kNothing; };
  const auto ms = [&f](double time) { return f.timing.updates > 0 ? fmt::format("{:.2f}", time) : kNothing; };
  return {
      {"held", 7, "held to the end", "targets on target in their last visible mark",
       judged ? fmt::format("{}/{}", s.heldAtEnd, s.targets) : kNothing},
      {"on", 6, "on target", "share of marked frames with an overlap (intersection over union) of 0.3 or more",
       ofMarks(m.onTarget)},
      {"AUC", 6, "success AUC", "area under the success curve below; 1 is perfect", ofMarks(m.successAuc)},
      {"p20", 6, "precision at 20 px", "share of marked frames with the centre within 20 pixels of the truth's",
       ofMarks(m.precision20)},
      {"IoU", 6, "mean overlap", "over all marked frames; a frame without a box counts 0", ofMarks(m.meanIou)},
      {"wrong", 7, "called seen wrongly",
       "of the frames called seen: the share whose overlap is below 0.1 or that show no target",
       s.seen > 0 ? percent(m.seenElsewhere) : kNothing},
      {"false", 8, "boxes while absent", "boxes, predicted ones included, of the frames in which the target is absent",
       fmt::format("{}/{}", s.falseBoxes, s.absent)},
      {"off s", 7, "off target, s", "seconds in all that the target was there and not followed", seconds(m.offTotal_s)},
      {"longest", 8, "longest off, s", "the longest of these times", seconds(m.offLongest_s)},
      {"found", 7, "found again", "losses that ended on target again, of all losses",
       fmt::format("{}/{}", s.recoveries, s.losses)},
      {"delay", 6, "delay, s", "mean time until it was found again",
       s.recoveries > 0 ? fmt::format("{:.2f}", m.redetectDelay_s) : kNothing},
      {"ms", 7, "update, ms", "wall-clock time of an update, median", ms(f.timing.wallMedian_ms)},
      {"p95", 7, "slow update, ms", "95 of 100 updates take no longer", ms(f.timing.wallP95_ms)},
      {"cpu ms", 7, "update, CPU ms", "processor time of an update's thread, median", ms(f.timing.cpuMedian_ms)}};
}

/// A line of the table: who, and the figures.
struct Line {
  std::string tracker;
  std::string who;
  std::vector<Column> columns;
};

std::vector<Line> targetLines(const EvaluationResult& result) {
  std::vector<Line> lines;
  for (const TargetResult& t : result.targets) {
    const std::string who = t.sequence + "/" + t.target + (t.complete ? "" : " (cut short)");
    lines.push_back({t.tracker, t.samples.started ? who : who + " (not started)", columnsOf(figuresOf({&t}))});
  }
  return lines;
}

std::vector<Line> overallLines(const EvaluationResult& result) {
  std::vector<Line> lines;
  for (const auto& [tracker, figures] : overallOf(result)) lines.push_back({tracker, "all", columnsOf(figures)});
  return lines;
}

std::string escaped(const std::string& text) {
  std::string safe;
  for (const char c : withBytesEscaped(text)) {
    if (c == '&')
      safe += "&amp;";
    else if (c == '<')
      safe += "&lt;";
    else if (c == '>')
      safe += "&gt;";
    else if (c == '"')
      safe += "&quot;";
    else
      safe += c;
  }
  return safe;
}

/// Every cell says what it is: a narrow page shows a row as a list.
std::string htmlRow(const Line& line, const char* style) {
  std::string row = fmt::format("<tr class=\"{}\"><th scope=\"row\">{}</th><td data-label=\"tracker\">{}</td>", style,
                                escaped(line.who), escaped(line.tracker));
  for (const Column& column : line.columns) {
    row += fmt::format("<td data-label=\"{}\">{}</td>", column.heading, column.value);
  }
  return row + "</tr>\n";
}

std::string htmlTable(const EvaluationResult& result) {
  const std::vector<Line> lines = targetLines(result);
  std::string html = "<table id=\"figures\">\n<thead><tr><th scope=\"col\">target</th><th scope=\"col\">tracker</th>";
  for (const Column& column : columnsOf(Figures())) {
    html += fmt::format("<th scope=\"col\" title=\"{}\">{}</th>", column.meaning, column.heading);
  }
  html += "</tr></thead>\n<tbody>\n";
  for (const Line& line : overallLines(result)) html += htmlRow(line, "all");
  for (const Line& line : lines) html += htmlRow(line, "one");
  return html + "</tbody>\n</table>\n";
}

std::string htmlMeanings() {
  std::string html = "<dl class=\"meanings\">\n";
  for (const Column& column : columnsOf(Figures())) {
    html += fmt::format("<div><dt>{}</dt><dd>{}</dd></div>\n", column.heading, column.meaning);
  }
  return html + "</dl>\n";
}

/// Columns of numbers under their tracker's name, for a spreadsheet.
template <std::size_t N>
std::string htmlCurve(const std::map<std::string, Figures>& overall, const char* heading, double step,
                      std::array<double, N> Metrics::*curve) {
  std::string html = fmt::format("<table>\n<thead><tr><th>{}</th>", heading);
  for (const auto& [tracker, figures] : overall) html += "<th scope=\"col\">" + escaped(tracker) + "</th>";
  html += "</tr></thead>\n<tbody>\n";
  for (std::size_t i = 0; i < N; ++i) {
    html += fmt::format("<tr><td>{:.4g}</td>", static_cast<double>(i) * step);
    for (const auto& [tracker, figures] : overall) html += fmt::format("<td>{:.3f}</td>", (figures.metrics.*curve)[i]);
    html += "</tr>\n";
  }
  return html + "</tbody>\n</table>\n";
}

template <std::size_t N>
nlohmann::ordered_json curveJson(const std::array<double, N>& values, double step) {
  nlohmann::ordered_json steps = nlohmann::ordered_json::array();
  for (std::size_t i = 0; i < N; ++i) steps.push_back(static_cast<double>(i) * step);
  return {{"steps", steps}, {"values", values}};
}

/// The curves of each tracker, for the page's charts.
nlohmann::ordered_json curvesOf(const std::map<std::string, Figures>& overall) {
  nlohmann::ordered_json trackers = nlohmann::ordered_json::array();
  for (const auto& [tracker, figures] : overall) {
    const Metrics& m = figures.metrics;
    trackers.push_back({{"name", tracker},
                        {"judged", figures.sums.present > 0},
                        {"success_auc", m.successAuc},
                        {"precision_20px", m.precision20},
                        {"success", curveJson(m.successCurve, kSuccessStep)},
                        {"precision", curveJson(m.precisionCurve, kPrecisionStep_px)}});
  }
  return {{"trackers", trackers}};
}

std::string htmlIncomplete(const RunFacts& facts) {
  std::string html;
  for (const auto& [key, value] : facts) {
    if (key == kMissingShards) html += "<p><strong>Not complete, " + key + ": " + escaped(value) + "</strong></p>\n";
  }
  return html;
}

std::string htmlFacts(const RunFacts& facts) {
  std::string html = "<dl>\n";
  for (const auto& [key, value] : facts) {
    html += "<dt>" + escaped(key) + "</dt><dd><code>" + escaped(value) + "</code></dd>\n";
  }
  return html + "</dl>\n";
}

/// Some of the table's columns. A name that is too long for its column stands on a line of its own.
std::string partOf(const std::vector<Line>& lines, std::size_t targets, std::size_t from, std::size_t to) {
  const std::vector<Column> titles = columnsOf(Figures());
  std::string text = fmt::format("{:<{}} {:<9}", "target", kNameWidth, "tracker");
  for (std::size_t i = from; i < to; ++i) text += fmt::format("{:>{}}", titles[i].title, titles[i].width);
  const std::size_t width = text.size();
  text += '\n';
  for (std::size_t line = 0; line < lines.size(); ++line) {
    if (line == targets) text += std::string(width, '-') + '\n';
    std::string who = lines[line].who;
    if (who.size() > kNameWidth) text += std::exchange(who, "") + '\n';
    text += fmt::format("{:<{}} {:<9}", who, kNameWidth, lines[line].tracker);
    for (std::size_t i = from; i < to; ++i) {
      text += fmt::format(" {:>{}}", lines[line].columns[i].value, titles[i].width - 1);
    }
    text += '\n';
  }
  return text;
}

}  // namespace

std::string tableOf(const EvaluationResult& result) {
  std::vector<Line> lines = targetLines(result);
  const std::size_t targets = lines.size();
  for (Line& line : overallLines(result)) lines.push_back(std::move(line));
  const std::size_t columns = columnsOf(Figures()).size();
  std::string text = partOf(lines, targets, 0, kFirstPart) + "\n" + partOf(lines, targets, kFirstPart, columns) + "\n";
  for (const auto& [key, value] : result.facts) {
    if (key == kMissingShards) text += "NOT COMPLETE, " + key + ": " + value + "\n";
  }
  for (const auto& [key, value] : result.facts) {
    if (key == "interrupted") text += "interrupted by " + value + ": the figures are of these\n";
  }
  return text + kLegend;
}

std::string htmlOf(const EvaluationResult& result) {
  const std::map<std::string, Figures> overall = overallOf(result);
  return htmlPage(kEvaluationPage, curvesOf(overall),
                  {{"FIGURES", htmlTable(result)},
                   {"INCOMPLETE", htmlIncomplete(result.facts)},
                   {"MEANINGS", htmlMeanings()},
                   {"SUCCESS", htmlCurve(overall, "overlap above", kSuccessStep, &Metrics::successCurve)},
                   {"PRECISION", htmlCurve(overall, "pixels", kPrecisionStep_px, &Metrics::precisionCurve)},
                   {"FACTS", htmlFacts(result.facts)}});
}

}  // namespace host
