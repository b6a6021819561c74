// The plug-in's own words for why it gave a target up or did not start, said in plain English for people. Log lines and
// records keep the plug-in's words.
#pragma once

#include <string>

namespace host {

/// What every phrase of the plug-in that `text` holds means, joined by "; "; empty when none of them is known. ASCII
/// only, so that it can be drawn into a picture. Pure.
std::string plainWords(const std::string& text);

/// "plain words (the plug-in's)", or `text` itself where nothing is known about it. Pure.
std::string explained(const std::string& text);

}  // namespace host
