// Runs the built csrt-track the way a shell does and keeps what it said.
#pragma once

#include <fcntl.h>
#include <gtest/gtest.h>
#include <signal.h>
#include <spawn.h>
#include <sys/types.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <nlohmann/json.hpp>
#include <string>
#include <utility>
#include <vector>

#include "picture/street_scene.h"
#include "record_schema.h"

namespace host_test {

namespace fs = std::filesystem;

/// A folder that goes away with the object.
class TempFolder {
 public:
  TempFolder() {
    std::string name = (fs::temp_directory_path() / "csrt_XXXXXX").string();
    path_ = mkdtemp(name.data());
  }
  ~TempFolder() {
    std::error_code ignored;
    fs::remove_all(path_, ignored);
  }
  TempFolder(const TempFolder&) = delete;
  TempFolder& operator=(const TempFolder&) = delete;
  std::string file(const std::string& name) const { return (path_ / name).string(); }

 private:
  fs::path path_;
};

inline std::string textOf(const std::string& path) {
  std::ifstream file(path, std::ios::binary);
  return {std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>()};
}

inline void writeText(const std::string& path, const std::string& text) {
  std::ofstream(path, std::ios::binary) << text;
}

inline std::vector<std::string> linesOf(const std::string& text) {
  std::vector<std::string> lines;
  std::size_t begin = 0;
  while (begin < text.size()) {
    const std::size_t end = std::min(text.find('\n', begin), text.size());
    lines.push_back(text.substr(begin, end - begin));
    begin = end + 1;
  }
  return lines;
}

/// Every line of the text as JSON; a line that is none, or that the published schema refuses, fails the test.
inline std::vector<nlohmann::json> recordsOf(const std::string& text) {
  std::vector<nlohmann::json> records;
  for (const std::string& line : linesOf(text)) {
    records.push_back(nlohmann::json::parse(line, nullptr, false));
    EXPECT_FALSE(records.back().is_discarded()) << line;
    EXPECT_EQ(recordFault(records.back()), "") << line;
  }
  return records;
}

struct ProgramResult {
  int status = -1;  ///< Exit status, or 128 + the signal that ended it.
  std::string out;
  std::string err;
};

/// A running csrt-track; wait() collects what it said.
class Program {
 public:
  explicit Program(std::vector<std::string> arguments) {
    arguments.insert(arguments.begin(), CSRT_TRACK_PROGRAM);
    std::vector<char*> argv;
    for (std::string& argument : arguments) argv.push_back(argument.data());
    argv.push_back(nullptr);
    posix_spawn_file_actions_t files;
    posix_spawn_file_actions_init(&files);
    const int flags = O_WRONLY | O_CREAT | O_TRUNC;
    posix_spawn_file_actions_addopen(&files, STDIN_FILENO, "/dev/null", O_RDONLY, 0);
    posix_spawn_file_actions_addopen(&files, STDOUT_FILENO, folder_.file("out").c_str(), flags, 0600);
    posix_spawn_file_actions_addopen(&files, STDERR_FILENO, folder_.file("err").c_str(), flags, 0600);
    started_ = posix_spawn(&pid_, argv[0], &files, nullptr, argv.data(), environ) == 0;
    posix_spawn_file_actions_destroy(&files);
    EXPECT_TRUE(started_) << argv[0];
  }

  void signal(int number) const {
    if (started_) kill(pid_, number);
  }
  /// True once it is over, whether wait() was called or not.
  bool ended() const {
    siginfo_t info{};
    return !started_ ||
           (waitid(P_PID, static_cast<id_t>(pid_), &info, WEXITED | WNOHANG | WNOWAIT) == 0 && info.si_pid == pid_);
  }
  std::string outSoFar() const { return textOf(folder_.file("out")); }

  ProgramResult wait() {
    int state = 0;
    if (!started_ || waitpid(pid_, &state, 0) != pid_) return {};
    return {WIFEXITED(state) ? WEXITSTATUS(state) : 128 + WTERMSIG(state), textOf(folder_.file("out")),
            textOf(folder_.file("err"))};
  }

 private:
  TempFolder folder_;
  pid_t pid_ = -1;
  bool started_ = false;
};

inline ProgramResult runProgram(std::vector<std::string> arguments) {
  return Program(std::move(arguments)).wait();
}

/// A failure is said in one sentence: one line on standard error that names `culprit`, and the right exit status.
inline void expectOneSentence(const ProgramResult& result, int status, const std::string& culprit) {
  EXPECT_EQ(result.status, status) << result.err;
  EXPECT_EQ(linesOf(result.err).size(), 1U) << result.err;
  EXPECT_EQ(result.err.rfind("csrt-track: ", 0), 0U) << result.err;
  EXPECT_NE(result.err.find(culprit), std::string::npos) << result.err;
  EXPECT_EQ(result.out, "");
}

}  // namespace host_test
