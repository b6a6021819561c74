// Opens a page the program wrote in headless Chromium and keeps what came of it.
#pragma once

#include <gtest/gtest.h>

#include <cstdlib>
#include <string>

#include "host_program.h"

namespace host_test {

inline bool hasBrowser() {
  return std::system("command -v chromium >/dev/null") == 0;
}

struct PageVisit {
  std::string dom;  ///< The document after its scripts have run.
  std::string log;  ///< What the browser said.

  /// The lines of the page's console. Pages forbid themselves to fetch anything, so an attempt is among them.
  std::string complaints() const {
    std::string lines;
    for (const std::string& line : linesOf(log)) {
      if (line.find("CONSOLE") != std::string::npos) lines += line + "\n";
    }
    return lines;
  }
};

/// @param folder   for the browser's own files
/// @param options  more for its command line
inline PageVisit openInBrowser(const std::string& page, const TempFolder& folder, const std::string& options = "") {
  const std::string command =
      "chromium --headless --no-sandbox --disable-gpu --disable-quic --no-first-run "
      "--disable-background-networking --disable-component-update --disable-sync --enable-logging=stderr --v=0 "
      "--user-data-dir=" +
      folder.file("profile") + " --virtual-time-budget=5000 " + options + " --dump-dom file://" + page + " >" +
      folder.file("dom") + " 2>" + folder.file("said");
  EXPECT_EQ(std::system(command.c_str()), 0);
  return {textOf(folder.file("dom")), textOf(folder.file("said"))};
}

}  // namespace host_test
