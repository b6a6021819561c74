// What can be wrong with a set-up, each with its cause and its remedy in one sentence.
#pragma once

#include <string>
#include <vector>

namespace host {

/// What one check found.
struct DoctorFinding {
  /// Whether anything has to be done.
  enum class Level { Ok, Note, Problem };
  Level level = Level::Ok;  ///< A problem makes `doctor` end with an error.
  std::string subject;      ///< "plug-in", "OpenCV", ...
  std::string sentence;     ///< What is so; for a problem the cause and the remedy.
};

/// The plug-in's file: there, a shared library of this processor, complete, loadable, with the class under the right
/// base. It is loaded in a child process, so that one that crashes is a finding too. The first problem ends the list.
std::vector<DoctorFinding> checkPlugin(const std::string& path);

/// OpenCV's version, the modules it has, and whether a CUDA device would be used.
std::vector<DoctorFinding> checkOpenCv();

/// Whether pictures and video can be written into `folder`: it is there, may be written to, has room, and has codecs.
/// Leaves nothing behind.
std::vector<DoctorFinding> checkOutput(const std::string& folder);

/// Whether a tracker network can be asked by --guard network; without it the other guards still work.
DoctorFinding checkNetworkGuard();

/// Whether --show could open a window.
DoctorFinding checkDisplay();

}  // namespace host
