// What can be told about a plug-in's file without loading it. A file that is cut short must not be loaded: its missing
// pages end the process.
#pragma once

#include <string>

namespace host {

/// What is wrong with the file, in one sentence with the remedy: it is not there, may not be read, is no shared library
/// of this processor, is cut short. Empty when nothing is.
std::string problemOfPluginFile(const std::string& path);

}  // namespace host
