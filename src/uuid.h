#pragma once

#include <string>

/// A random version-4 UUID: 36 characters, lower case. Any thread.
std::string makeUuid();
