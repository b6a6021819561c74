// Files of the source tree that the program carries inside; the build makes their definitions.
#pragma once

namespace host {

extern const char* const kRecordsSchema;  ///< records.schema.json, the schema of one record line.

extern const char* const kReportPage;      ///< report_page.html, with marks for what a run fills in.
extern const char* const kEvaluationPage;  ///< evaluation_page.html, likewise.
extern const char* const kPageStyle;       ///< page_style.css, of both pages.
extern const char* const kPageCharts;      ///< page_charts.js, of both pages.
extern const char* const kChartLibrary;    ///< Chart.js.

/// A file that is part of the program.
struct EmbeddedText {
  const char* name;  ///< File name without its ending; null behind the last one.
  const char* text;  ///< The whole file; null behind the last one.
};

extern const EmbeddedText kPresets[];    ///< presets/*.json, sorted by name.
extern const EmbeddedText kScenarios[];  ///< scenarios/*.json, sorted by name.

}  // namespace host
