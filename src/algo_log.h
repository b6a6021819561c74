// The one way a log line leaves the plug-in.
#pragma once

#include <cstdarg>
#include <string>

/// printf-style text with numbers as in the C locale, whatever the host has set. Any thread.
std::string formatInCLocale(const char* format, std::va_list arguments);

/// Writes one whole line to standard output at once and flushes it. Any thread.
void writeLogLine(const std::string& pluginName, const std::string& message);
