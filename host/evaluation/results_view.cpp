#include "evaluation/results_view.h"

#include <fmt/format.h>

#include <algorithm>
#include <cstddef>
#include <vector>

#include "base/embedded.h"
#include "base/json_text.h"
#include "picture/html_page.h"

namespace host {
namespace {

constexpr double kSuccessStep = 1.0 / (kSuccessSteps - 1);
constexpr double kPrecisionStep_px = 1.0;

constexpr const char* kLegend =
    "on: share of marked frames with an overlap of 0.3 or more; held: targets on target at their last mark; AUC: area\n"
    "under the success curve; p20: centre within 20 px; off: seconds off target, in all and longest; found: losses "
    "that\n"
    "ended on target again, and their mean delay; wrong: share of the frames called seen whose overlap is below 0.1 "
    "or\n"
    "that show no target; false: boxes while the target is absent; times per update on one thread.\n";

struct Column {
  const char* title;
  std::string value;
};

std::string percent(double share) {
  return fmt::format("{:.1f}%", 100 * share);
}

std::vector<Column> columnsOf(const Figures& f) {
  const Metrics& m = f.metrics;
  const MetricSums& s = f.sums;
  const auto judged = [&s](double share) { return s.present > 0 ? fmt::format("{:.3f}", share) : std::string("-"); };
  return {{"held", s.present > 0 ? fmt::format("{}/{}", s.heldAtEnd, s.targets) : "-"},
          {"on", judged(m.onTarget)},
          {"AUC", judged(m.successAuc)},
          {"p20", judged(m.precision20)},
          {"IoU", judged(m.meanIou)},
          {"off s", fmt::format("{:.1f}", m.offTotal_s)},
          {"longest s", fmt::format("{:.1f}", m.offLongest_s)},
          {"found", fmt::format("{}/{}", s.recoveries, s.losses)},
          {"delay s", s.recoveries > 0 ? fmt::format("{:.2f}", m.redetectDelay_s) : "-"},
          {"wrong", s.seen > 0 ? percent(m.seenElsewhere) : "-"},
          {"false", fmt::format("{}/{}", s.falseBoxes, s.absent)},
          {"ms median", fmt::format("{:.2f}", f.timing.wallMedian_ms)},
          {"ms p95", fmt::format("{:.2f}", f.timing.wallP95_ms)},
          {"cpu ms", fmt::format("{:.2f}", f.timing.cpuMedian_ms)}};
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

std::string htmlRow(const Line& line, const char* style) {
  std::string row = fmt::format("<tr class=\"{}\"><td>{}</td><td>{}</td>", style, escaped(line.who), line.tracker);
  for (const Column& column : line.columns) row += "<td>" + column.value + "</td>";
  return row + "</tr>\n";
}

std::string htmlTable(const EvaluationResult& result) {
  const std::vector<Line> lines = targetLines(result);
  std::string html = "<table id=\"figures\">\n<thead><tr><th>target</th><th>tracker</th>";
  for (const Column& column : columnsOf(Figures())) html += fmt::format("<th>{}</th>", column.title);
  html += "</tr></thead>\n<tbody>\n";
  for (const Line& line : overallLines(result)) html += htmlRow(line, "all");
  for (const Line& line : lines) html += htmlRow(line, "one");
  return html + "</tbody>\n</table>\n";
}

/// Columns of numbers under their tracker's name, for a spreadsheet.
template <std::size_t N>
std::string htmlCurve(const std::map<std::string, Figures>& overall, const char* heading, double step,
                      std::array<double, N> Metrics::*curve) {
  std::string html = fmt::format("<table>\n<thead><tr><th>{}</th>", heading);
  for (const auto& [tracker, figures] : overall) html += "<th>" + escaped(tracker) + "</th>";
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
                        {"success_auc", m.successAuc},
                        {"precision_20px", m.precision20},
                        {"success", curveJson(m.successCurve, kSuccessStep)},
                        {"precision", curveJson(m.precisionCurve, kPrecisionStep_px)}});
  }
  return {{"trackers", trackers}};
}

std::string htmlFacts(const RunFacts& facts) {
  std::string html = "<dl>\n";
  for (const auto& [key, value] : facts) {
    html += "<dt>" + escaped(key) + "</dt><dd><code>" + escaped(value) + "</code></dd>\n";
  }
  return html + "</dl>\n";
}

}  // namespace

std::string tableOf(const EvaluationResult& result) {
  std::vector<Line> lines = targetLines(result);
  const std::size_t targets = lines.size();
  for (Line& line : overallLines(result)) lines.push_back(std::move(line));
  std::size_t who = 6;
  for (const Line& line : lines) who = std::max(who, line.who.size());
  std::string text = fmt::format("{:<{}} {:<9}", "target", who, "tracker");
  for (const Column& column : columnsOf(Figures())) text += fmt::format(" {:>9}", column.title);
  text += '\n';
  for (std::size_t i = 0; i < lines.size(); ++i) {
    if (i == targets) text += std::string(who + 10 + lines[i].columns.size() * 10, '-') + '\n';
    text += fmt::format("{:<{}} {:<9}", lines[i].who, who, lines[i].tracker);
    for (const Column& column : lines[i].columns) text += fmt::format(" {:>9}", column.value);
    text += '\n';
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
                   {"LEGEND", escaped(kLegend)},
                   {"SUCCESS", htmlCurve(overall, "overlap above", kSuccessStep, &Metrics::successCurve)},
                   {"PRECISION", htmlCurve(overall, "pixels", kPrecisionStep_px, &Metrics::precisionCurve)},
                   {"FACTS", htmlFacts(result.facts)}});
}

}  // namespace host
