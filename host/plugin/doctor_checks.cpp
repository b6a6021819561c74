#include "plugin/doctor_checks.h"

#include <fmt/format.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <opencv2/core.hpp>
#include <opencv2/core/cuda.hpp>
#include <opencv2/videoio.hpp>
#include <system_error>

#include "base/host_error.h"
#include "plugin/guard_network.h"
#include "plugin/plugin_file.h"
#include "plugin/plugin_library.h"

namespace host {
namespace {

namespace fs = std::filesystem;
using Level = DoctorFinding::Level;

constexpr double kScarceMb = 100.0;  // a minute of annotated video takes about that

/// Loads the plug-in and makes an object. @return what is wrong with it; empty when nothing
std::string tryToUse(const std::string& path) {
  try {
    PluginLibrary library(path);
    const std::shared_ptr<IAlgoPlugin> plugin = library.create();
    for (const AlgoOutputDeclaration& record : plugin->getOutputDeclarations()) {
      if (record.name == "detection.v1") return {};
    }
    return fmt::format(
        "'{}' has the class {} but does not declare detection.v1; it is another plug-in: name the right "
        "file with --plugin",
        path, kPluginClass);
  } catch (const HostError& e) {
    return std::string(e.what()) + "; install what it names, or the package csrt-tracking-plugin anew";
  } catch (const std::exception& e) {
    return fmt::format("'{}' loads, but making its object failed: {}; install a matching version", path, e.what());
  }
}

constexpr int kTried = 77;  // exit status of the child that came to the end; a library may end it with any other

/// The same in a child process, so that a crash is an answer as well.
std::string tryToUseApart(const std::string& path) {
  std::array<int, 2> channel{};
  if (pipe(channel.data()) != 0) return fmt::format("no pipe could be made: {}", std::strerror(errno));
  const pid_t child = fork();
  if (child < 0) return fmt::format("no process could be started: {}", std::strerror(errno));
  if (child == 0) {
    const std::string problem = tryToUse(path);
    const bool written = write(channel[1], problem.data(), problem.size()) >= 0;
    _exit(written ? kTried : 1);
  }
  close(channel[1]);
  std::string problem;
  std::array<char, 512> part{};
  for (ssize_t n = 0; (n = read(channel[0], part.data(), part.size())) > 0;)
    problem.append(part.data(), static_cast<std::size_t>(n));
  close(channel[0]);
  int status = 0;
  waitpid(child, &status, 0);
  if (WIFSIGNALED(status)) {
    return fmt::format("loading '{}' crashes ({}); it was built against other libraries: install a matching version",
                       path, strsignal(WTERMSIG(status)));
  }
  if (problem.empty() && WEXITSTATUS(status) != kTried) {
    return fmt::format("loading '{}' ends the program (status {}); it is no plug-in for this host", path,
                       WEXITSTATUS(status));
  }
  return problem;
}

bool openCvHas(const std::string& module) {
  const std::string& information = cv::getBuildInformation();
  const std::size_t begin = information.find("To be built:");
  if (begin == std::string::npos) return false;
  const std::string modules = information.substr(begin, information.find('\n', begin) - begin) + " ";
  return modules.find(" " + module + " ") != std::string::npos;
}

DoctorFinding cudaFinding() {
  int devices = 0;
  try {
    devices = cv::cuda::getCudaEnabledDeviceCount();
  } catch (const cv::Exception&) {
    devices = 0;
  }
  const bool modules = openCvHas("cudaimgproc") && openCvHas("cudawarping");
  if (modules && devices > 0) return {Level::Ok, "CUDA", fmt::format("{} device(s); searches run on the GPU", devices)};
  if (modules)
    return {Level::Note, "CUDA",
            "OpenCV has its CUDA modules but sees no device (driver?); searches run on the processor"};
  return {Level::Note, "CUDA", "this OpenCV has no CUDA modules; searches run on the processor"};
}

/// Tries to make a file of that name and removes it. @return why not; empty when it worked
std::string problemOfWriting(const fs::path& file) {
  errno = 0;
  const bool written = static_cast<bool>(std::ofstream(file) << "csrt-track" << std::flush);
  std::string reason = written ? "" : std::strerror(errno);
  std::error_code ignored;
  fs::remove(file, ignored);
  return reason;
}

DoctorFinding codecFinding(const fs::path& folder) {
  const fs::path file = folder / fmt::format(".csrt-track-doctor-{}.mp4", getpid());
  cv::VideoWriter writer(file.string(), cv::VideoWriter::fourcc('m', 'p', '4', 'v'), 25.0, cv::Size(64, 48));
  const bool opened = writer.isOpened();
  writer.release();
  std::error_code ignored;
  fs::remove(file, ignored);
  if (opened) return {Level::Ok, "video", "MPEG-4 video can be written"};
  return {Level::Problem, "video",
          "this OpenCV cannot write MPEG-4 video; install Debian's libopencv-videoio, or leave out --video"};
}

}  // namespace

std::vector<DoctorFinding> checkPlugin(const std::string& path) {
  std::string problem = problemOfPluginFile(path);
  if (problem.empty()) problem = tryToUseApart(path);
  if (!problem.empty()) return {{Level::Problem, "plug-in", problem}};
  return {{Level::Ok, "plug-in", fmt::format("'{}' loads and offers {} under IAlgoPlugin", path, kPluginClass)}};
}

std::vector<DoctorFinding> checkOpenCv() {
  std::vector<DoctorFinding> findings;
  if (cv::getVersionString() == CV_VERSION) {
    findings.push_back({Level::Ok, "OpenCV", cv::getVersionString()});
  } else {
    findings.push_back({Level::Problem, "OpenCV",
                        fmt::format("this program was built with {} and runs with {}; install matching packages",
                                    CV_VERSION, cv::getVersionString())});
  }
  for (const char* module : {"tracking", "ximgproc"}) {
    if (!openCvHas(module)) {
      findings.push_back(
          {Level::Problem, "OpenCV",
           fmt::format("the module {} is missing; install Debian's libopencv-contrib packages", module)});
    }
  }
  findings.push_back(cudaFinding());
  return findings;
}

std::vector<DoctorFinding> checkOutput(const std::string& folder) {
  std::error_code failed;
  if (!fs::is_directory(folder, failed)) {
    return {{Level::Problem, "output",
             fmt::format("'{}' is not a folder; make it, or name another with --output", folder)}};
  }
  const std::string reason = problemOfWriting(fs::path(folder) / fmt::format(".csrt-track-doctor-{}", getpid()));
  if (!reason.empty()) {
    return {{Level::Problem, "output",
             fmt::format("'{}' cannot be written to ({}); choose another with --output", folder, reason)}};
  }
  std::vector<DoctorFinding> findings{{Level::Ok, "output", fmt::format("'{}' can be written to", folder)}};
  const double freeMb = static_cast<double>(fs::space(folder, failed).available) / 1e6;
  if (!failed && freeMb < kScarceMb) {
    findings.push_back(
        {Level::Problem, "output",
         fmt::format("only {:.0f} MB are free in '{}'; make room or choose another folder", freeMb, folder)});
  }
  findings.push_back(codecFinding(folder));
  return findings;
}

DoctorFinding checkNetworkGuard() {
  const std::string missing = whyNoNetworkGuard();
  if (!missing.empty()) return {Level::Note, "guard", "no --guard network: " + missing};
  return {Level::Ok, "guard", "--guard network works with a network of yours, given with --guard-model"};
}

DoctorFinding checkDisplay() {
  const char* x11 = std::getenv("DISPLAY");
  const char* wayland = std::getenv("WAYLAND_DISPLAY");
  const bool display = (x11 != nullptr && *x11 != '\0') || (wayland != nullptr && *wayland != '\0');
  if (display) return {Level::Ok, "display", "there is one; --show can open a window"};
  return {Level::Note, "display", "there is none, so --show cannot open a window; use --video instead"};
}

}  // namespace host
