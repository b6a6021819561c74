// Finds the modules that receive live sources, beside the plug-in.
#pragma once

#include <string>
#include <vector>

#include "live/receiver.h"

namespace live {

/// An optional part of the program, where it lies and whether it can be used.
struct FoundModule {
  std::string path;          ///< The shared library; empty: not found.
  Module* module = nullptr;  ///< Null: it cannot be used, and `fault` says why.
  std::string fault;         ///< One sentence; empty: it can be used.
};

/// Where the modules lie that are installed; none of them is loaded. Any thread.
std::vector<std::string> modulePaths();

/// The modules in the program's library folder, loaded once and kept. Any thread.
const std::vector<FoundModule>& modules();

/// The module for a kind of address; null with `fault` set to a sentence saying what to install.
/// MPEG-TS, HTTP, SDP and standard input go to libavformat first, because it hands on what the camera says inside;
/// the rest to GStreamer first.
Module* moduleFor(AddressKind kind, std::string& fault);

}  // namespace live
