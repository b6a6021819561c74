#include "evaluation/sequence.h"

#include <algorithm>
#include <charconv>
#include <cstddef>
#include <filesystem>
#include <map>
#include <set>
#include <system_error>
#include <utility>

#include "base/host_error.h"
#include "base/masked_address.h"

namespace host {
namespace {

namespace fs = std::filesystem;

constexpr std::size_t kMostNamedShards = 1000;  // more say nothing more

bool isThere(const fs::path& path) {
  std::error_code ignored;
  return fs::exists(path, ignored);
}

bool isFolder(const fs::path& path) {
  std::error_code ignored;
  return fs::is_directory(path, ignored);
}

/// The first of the names that the folder holds; empty: none.
fs::path firstIn(const fs::path& folder, std::initializer_list<const char*> names) {
  for (const char* name : names) {
    if (isThere(folder / name)) return folder / name;
  }
  return {};
}

/// The last part of the path that says something: "img" and "." do not.
std::string nameOf(const std::string& source) {
  fs::path path = fs::path(source).lexically_normal();
  if (!path.has_filename()) path = path.parent_path();
  const auto saysNothing = [](const fs::path& part) {
    return part == "img" || part == "imgs" || part == "color" || part == "." ||
           part.string().find('%') != std::string::npos;
  };
  while (path.has_parent_path() && path != path.parent_path() && saysNothing(path.filename()))
    path = path.parent_path();
  const std::string stem = path.stem().string();
  return stem.empty() ? source : stem;
}

/// What a folder of known layout holds; without truth where it is just a folder of pictures.
struct Layout {
  std::string pictures;
  std::string truth;
  std::string absence;
};

Layout layoutOf(const std::string& source) {
  if (!isFolder(source)) return {source, "", ""};
  const fs::path folder(source);
  const fs::path inner = firstIn(folder, {"img", "color", "imgs"});
  const fs::path truth = firstIn(folder, {"groundtruth_rect.txt", "groundtruth.txt"});
  const fs::path absence = firstIn(folder, {"absence.label"});
  return {inner.empty() ? source : inner.string(), truth.string(), absence.string()};
}

void keepOnly(const std::vector<std::string>& only, std::vector<TruthTarget>& targets) {
  if (only.empty()) return;
  const auto unwanted = [&only](const TruthTarget& t) {
    return std::find(only.begin(), only.end(), t.name) == only.end();
  };
  targets.erase(std::remove_if(targets.begin(), targets.end(), unwanted), targets.end());
}

void dropNeverVisible(std::vector<TruthTarget>& targets) {
  const auto hidden = [](const TruthTarget& t) { return t.firstVisibleMark() < 0; };
  targets.erase(std::remove_if(targets.begin(), targets.end(), hidden), targets.end());
}

void checkOnly(const SequenceOptions& options, const std::set<std::string>& known) {
  for (const std::string& name : options.only) {
    if (known.count(name) == 0) throw HostError(ExitCode::Usage, "no truth marks a target '" + name + "'");
  }
}

std::string uniqueName(const std::string& source, const std::vector<Sequence>& others) {
  const std::string base = nameOf(withPasswordsMasked(source));
  std::string name = base;
  const auto taken = [&] {
    return std::any_of(others.begin(), others.end(), [&name](const Sequence& s) { return s.name == name; });
  };
  for (int i = 2; taken(); ++i) name = base + "-" + std::to_string(i);
  return name;
}

}  // namespace

std::vector<Sequence> openSequences(const SequenceOptions& options) {
  std::vector<Sequence> sequences;
  std::set<std::string> known;
  std::size_t nextTruth = 0;
  for (const std::string& source : options.sources) {
    Layout layout = layoutOf(source);
    if (layout.truth.empty()) {
      if (nextTruth >= options.truths.size()) {
        throw HostError(ExitCode::Usage, "'" + source + "' brings no truth of its own; name it with --truth");
      }
      layout.truth = options.truths[nextTruth++];
      layout.absence.clear();
    }
    Sequence sequence;
    sequence.name = uniqueName(source, sequences);
    sequence.source.source = layout.pictures;
    sequence.source.fps = options.fps;
    TruthOptions truth = options.truth;
    truth.absentFile = layout.absence;
    sequence.targets = readTruth(layout.truth, truth, "target");
    dropNeverVisible(sequence.targets);
    for (const TruthTarget& target : sequence.targets) known.insert(target.name);
    keepOnly(options.only, sequence.targets);
    if (!sequence.targets.empty()) sequences.push_back(std::move(sequence));
  }
  if (nextTruth < options.truths.size()) {
    throw HostError(ExitCode::Usage, "--truth '" + options.truths[nextTruth] + "' belongs to no sequence");
  }
  checkOnly(options, known);
  return sequences;
}

Shard parseShard(const std::string& text) {
  Shard shard;
  const char* const end = text.data() + text.size();
  const auto [slash, badIndex] = std::from_chars(text.data(), end, shard.index);
  const bool hasSlash = badIndex == std::errc() && slash != end && *slash == '/';
  if (hasSlash) {
    const auto [last, badCount] = std::from_chars(slash + 1, end, shard.count);
    if (badCount == std::errc() && last == end && shard.index >= 1 && shard.index <= shard.count) return shard;
  }
  throw HostError(ExitCode::Usage, "--shard '" + text + "' is not of the form i/n with i from 1 to n");
}

std::vector<std::string> missingShards(const std::vector<std::string>& shards) {
  std::map<long, std::set<long>> known;  // by the number of parts
  for (const std::string& text : shards) {
    try {
      const Shard shard = parseShard(text);
      known[shard.count].insert(shard.index);
    } catch (const HostError&) {  // says nothing about parts
    }
  }
  std::vector<std::string> missing;
  for (const auto& [count, parts] : known) {
    for (long i = 1; i <= count && missing.size() < kMostNamedShards; ++i) {
      if (parts.count(i) == 0) missing.push_back(std::to_string(i) + "/" + std::to_string(count));
    }
  }
  return missing;
}

std::vector<Sequence> shardOf(const std::vector<Sequence>& sequences, const Shard& shard) {
  std::vector<Sequence> mine;
  long counter = 0;
  for (const Sequence& sequence : sequences) {
    Sequence part = sequence;
    part.targets.clear();
    for (const TruthTarget& target : sequence.targets) {
      if (counter++ % shard.count == shard.index - 1) part.targets.push_back(target);
    }
    if (!part.targets.empty()) mine.push_back(std::move(part));
  }
  return mine;
}

}  // namespace host
