// Do OpenCV's tracker and the engine give the same boxes? Runs both side by side and says on how many frames any
// coordinate differs. Exit status: 0 equal, 1 not equal, 2 the engine computes nothing itself or bad arguments.
//
// usage: engine_equality [--short] [--clip FILE] [--pictures FOLDER]... [--starts N] [--frames N] [--seed N]
//                        [--answers FILE]
//
// --answers writes OpenCV's answers, a line each: two runs, one of them with OPENCV_CPU_DISABLE=AVX2 in the
// environment, say how often OpenCV's tracker differs from itself on another processor.
#include <atomic>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <exception>
#include <fstream>
#include <functional>
#include <opencv2/core/utility.hpp>
#include <opencv2/core/utils/logger.hpp>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

#include "csrt_engine/csrt_engine.h"
#include "parameter_sets.h"
#include "side_by_side.h"

namespace {

using namespace equality;

struct Options {
  Material material;
  int starts = 220;
  int frames = 60;  ///< Of a run.
  std::uint64_t seed = 1;
  std::string answers;  ///< File for OpenCV's answers; empty: none.
};

long numberOf(const char* text, const char* what) {
  char* end = nullptr;
  const long value = std::strtol(text, &end, 10);
  if (*end != '\0' || value < 1 || value > 1000000)
    throw std::runtime_error(std::string(what) + " is not a number from 1");
  return value;
}

Options parse(int argc, char** argv) {
  Options options;
  const auto valueAfter = [&](int& i) {
    if (i + 1 >= argc) throw std::runtime_error(std::string(argv[i]) + " needs a value");
    return argv[++i];
  };
  for (int i = 1; i < argc; ++i) {
    const std::string name = argv[i];
    if (name == "--short") {
      options.material.isShort = true;
      options.starts = 8;
      options.frames = 10;
    } else if (name == "--clip") {
      options.material.clip = valueAfter(i);
    } else if (name == "--pictures") {
      options.material.pictures.emplace_back(valueAfter(i));
    } else if (name == "--answers") {
      options.answers = valueAfter(i);
    } else if (name == "--starts") {
      options.starts = static_cast<int>(numberOf(valueAfter(i), "--starts"));
    } else if (name == "--frames") {
      options.frames = static_cast<int>(numberOf(valueAfter(i), "--frames"));
    } else if (name == "--seed") {
      options.seed = static_cast<std::uint64_t>(numberOf(valueAfter(i), "--seed"));
    } else {
      throw std::runtime_error("'" + name + "' is not an option; see the head of tools/equality/main.cpp");
    }
  }
  options.material.frames = options.frames * 3 / 2 + 2;  // runs begin in the first third
  return options;
}

/// Rows of the table: what is compared under one name.
struct Row {
  std::string name;
  std::vector<Start> starts;
  Comparison result;
};

std::vector<Row> rowsOf(const std::vector<Sequence>& sequences, const Options& options) {
  std::vector<Row> rows;
  const int each = (options.starts + static_cast<int>(sequences.size()) - 1) / static_cast<int>(sequences.size());
  for (const Sequence& sequence : sequences) {
    rows.push_back({sequence.name, startsOn(sequence, each, options.seed * 1000 + rows.size()), {}});
  }
  std::size_t index = 0;
  for (const ParameterSet& set : parameterSets()) {
    Row row{"parameters: " + set.name, {}, {}};
    const int count = options.material.isShort ? 1 : 3;
    for (int i = 0; i < count; ++i) {  // in turn, so that a short run meets several sequences too
      const Sequence& sequence = sequences[(index + static_cast<std::size_t>(i)) % sequences.size()];
      row.starts.push_back(startsOn(sequence, count, options.seed * 77 + index)[static_cast<std::size_t>(i)]);
      row.starts.back().params = set.params;
    }
    if (!csrt_engine::handling(set.params).own)
      row.name += " (OpenCV's: " + csrt_engine::handling(set.params).why + ")";
    rows.push_back(std::move(row));
    ++index;
  }
  return rows;
}

/// All starts of all rows, on every core; the results are put together in the order of the starts.
void compareAll(std::vector<Row>& rows, int frames) {
  std::vector<const Start*> starts;
  for (const Row& row : rows) {
    for (const Start& start : row.starts) starts.push_back(&start);
  }
  std::vector<Comparison> results(starts.size());
  std::atomic<std::size_t> next{0};
  const auto work = [&] {
    for (std::size_t i = next++; i < starts.size(); i = next++) results[i] = compare(*starts[i], frames);
  };
  std::vector<std::thread> others(std::max(1U, std::thread::hardware_concurrency()) - 1);
  for (std::thread& thread : others) thread = std::thread(work);
  work();
  for (std::thread& thread : others) thread.join();
  std::size_t done = 0;
  for (Row& row : rows) {
    for (std::size_t i = 0; i < row.starts.size(); ++i) row.result.add(results[done++]);
  }
}

void print(const std::string& name, std::size_t starts, const Comparison& c) {
  std::printf("%-52s %6zu %8ld %6ld %10ld %9ld %8d\n", name.c_str(), starts, c.frames, c.lost, c.exceptions,
              c.different, c.largest);
}

int run(const Options& options) {
  cv::setNumThreads(1);
  const csrt_engine::Handling usual = csrt_engine::handling({});
  if (!usual.own) {
    std::fprintf(stderr, "engine_equality: nothing to compare: %s\n", usual.why.c_str());
    return 2;
  }
  std::ofstream answers(options.answers, std::ios::binary);  // at once: a wrong name is found before the work
  if (!options.answers.empty() && !answers) throw std::runtime_error("cannot write '" + options.answers + "'");
  const std::vector<Sequence> sequences = makeSequences(options.material);
  std::vector<Row> rows = rowsOf(sequences, options);
  std::printf("OpenCV %s, engine with %s\n", cv::getVersionString().c_str(), csrt_engine::instructionSet());
  std::printf("%-52s %6s %8s %6s %10s %9s %8s\n", "", "starts", "frames", "lost", "exceptions", "different", "largest");
  compareAll(rows, options.frames);
  Comparison all;
  std::size_t starts = 0;
  for (const Row& row : rows) {
    print(row.name, row.starts.size(), row.result);
    all.add(row.result);
    starts += row.starts.size();
  }
  print("all", starts, all);
  answers << all.answers << std::flush;
  if (!options.answers.empty() && !answers) throw std::runtime_error("cannot write '" + options.answers + "'");
  if (all.different == 0) {
    std::printf("equal: no coordinate differs on %ld frames\n", all.frames);
    return 0;
  }
  for (const Row& row : rows) {
    if (!row.result.first.empty()) std::printf("%s\n", row.result.first.c_str());
  }
  std::printf("not equal: %ld of %ld frames differ (%.3f %%), by at most %d pixels\n", all.different, all.frames,
              100.0 * static_cast<double>(all.different) / static_cast<double>(all.frames), all.largest);
  return 1;
}

}  // namespace

int main(int argc, char** argv) {
  cv::utils::logging::setLogLevel(cv::utils::logging::LOG_LEVEL_SILENT);
  try {
    return run(parse(argc, argv));
  } catch (const std::exception& e) {
    std::fprintf(stderr, "engine_equality: %s\n", e.what());
    return 2;
  }
}
