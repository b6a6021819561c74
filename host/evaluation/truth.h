// What people marked in a sequence: where each target really is, frame by frame.
#pragma once

#include <opencv2/core.hpp>
#include <string>
#include <vector>

namespace host {

/// One marked frame of one target.
struct TruthMark {
  long frame = 0;       ///< Counted from 0 in the source.
  bool absent = false;  ///< The target is not in the picture, or wholly hidden; `box` then means nothing.
  cv::Rect2d box;       ///< Full-frame pixels.
};

/// Everything that is marked of one target.
struct TruthTarget {
  std::string name;              ///< As the file gives it, or as the caller named it; unique in a sequence.
  std::vector<TruthMark> marks;  ///< By rising frame, each frame once; frames in between are not marked.

  /// The first mark that shows the target; -1: none does.
  long firstVisibleMark() const;
};

/// How the rows of a truth file are to be read.
enum class TruthFormat {
  Auto,     ///< By what the file holds; see recogniseTruth().
  Rect,     ///< One row a frame: x, y, width, height. OTB groundtruth_rect.txt, GOT-10k groundtruth.txt.
  Polygon,  ///< One row a frame: x1, y1, x2, y2, ... as in VOT; the box is the one around all corners.
  Csv,      ///< frame, id, x, y, width, height: several targets, any frames. A heading may say otherwise.
  Mot       ///< The same and more, as in MOTChallenge: a seventh value of 0 means that the row is not to be judged.
};

/// What a truth file does not say of itself.
struct TruthOptions {
  TruthFormat format = TruthFormat::Auto;
  long firstNumber = 1;    ///< Csv, Mot: the number that the file gives to the first frame of the source.
  std::string absentFile;  ///< One 0 or 1 a frame, 1: absent (GOT-10k's absence.label); empty: none.
};

/// @return the format called "auto", "otb", "got10k", "rect", "vot", "polygon", "mot" or "csv". @throws HostError
/// (Usage) for another word
TruthFormat truthFormatOf(const std::string& word);

/// Reads a truth file. Values are separated by commas, semicolons, tabs or blanks; lines that begin with # are notes.
/// "nan" in a row, or a box without area, means absent. Rect and Polygon give one target called `name`.
/// @throws HostError (Usage) with file and row for everything that cannot be read: never a part of the file
std::vector<TruthTarget> readTruth(const std::string& path, const TruthOptions& options, const std::string& name);

/// The same from a text; `path` only names it in errors. Pure.
std::vector<TruthTarget> parseTruth(const std::string& text, const std::string& path, const TruthOptions& options,
                                    const std::string& name);

/// Marks the frames whose line in `text` is 1 as absent; `path` only names it in errors.
/// @throws HostError (Usage) when a line is neither 0 nor 1 or the number of lines is not that of the marks
void applyAbsence(const std::string& text, const std::string& path, TruthTarget& target);

}  // namespace host
