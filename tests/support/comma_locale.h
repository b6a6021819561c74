#pragma once

#include <unistd.h>

#include <clocale>
#include <cstdlib>
#include <filesystem>
#include <string>

/// Puts the process under a locale whose decimal sign is a comma, as a host on a European desktop may run, until it
/// goes out of scope. Uses a locale of the machine or compiles one into a folder of its own with `localedef`.
class CommaLocale {
 public:
  CommaLocale() {
    if (tryLocale("de_DE.UTF-8") || tryLocale("fr_FR.UTF-8")) return;
    folder_ = std::filesystem::temp_directory_path() / ("comma_locale_" + std::to_string(getpid()));
    std::filesystem::create_directories(folder_);
    const std::string command = "localedef -i de_DE -f UTF-8 '" + (folder_ / "de_DE.UTF-8").string() + "' >/dev/null";
    if (std::system(command.c_str()) != 0) return;  // the warnings of localedef are no concern here, its result is
    setenv("LOCPATH", folder_.c_str(), 1);
    tryLocale("de_DE.UTF-8");
  }
  ~CommaLocale() {
    std::setlocale(LC_ALL, "C");
    unsetenv("LOCPATH");
    if (!folder_.empty()) std::filesystem::remove_all(folder_);
  }
  CommaLocale(const CommaLocale&) = delete;
  CommaLocale& operator=(const CommaLocale&) = delete;

  /// False where the machine has neither such a locale nor the means to make one (package "locales").
  bool active() const { return std::localeconv()->decimal_point == std::string(","); }

 private:
  static bool tryLocale(const char* name) { return std::setlocale(LC_ALL, name) != nullptr; }

  std::filesystem::path folder_;
};
