// Options that evaluate and tune share.
#pragma once

#include <string>
#include <vector>

#include "evaluation/sequence.h"

namespace CLI {
class App;
}

namespace host {

class FilePlan;

/// The texts behind a SequenceOptions.
struct SequenceArguments {
  std::vector<std::string> sources;  ///< Folders and videos.
  std::vector<std::string> truths;   ///< For sources that bring none, in their order.
  std::vector<std::string> only;     ///< Names of targets; empty: all.
  std::string format = "auto";       ///< Of the truth.
  long firstNumber = 1;              ///< Of a table's first frame.
  double fps = 0.0;                  ///< Frames per second; 0: what the source says.

  /// Adds the options to a command; `this` must outlive it.
  void addTo(CLI::App& command);
  /// Declares all that is read: sources, the truth in their folders, the truths given.
  void addTo(FilePlan& plan) const;
  /// @throws HostError (Usage) for a word or number that cannot be
  SequenceOptions read() const;
};

/// --format and --first-number: how a truth is written. The variables must outlive the command.
void addTruthFormatOptions(CLI::App& command, std::string& format, long& firstNumber);

}  // namespace host
