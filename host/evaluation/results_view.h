// Results of an evaluation for people: a table for the terminal, a page for the browser.
#pragma once

#include <string>

#include "evaluation/results.h"

namespace host {

/// One line per target and tracker, then one per tracker for all of them; explained below. Ends with a line feed.
std::string tableOf(const EvaluationResult& result);

/// One page that needs nothing but itself.
std::string htmlOf(const EvaluationResult& result);

}  // namespace host
