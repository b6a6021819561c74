// The option parser's refusals in the words of all others.
#pragma once

#include <string>

namespace host {

/// "--threads: Value 0 not in range 1 to 256" becomes "--threads 0 is not between 1 and 256", and
/// "--pace: brisk not in {fast,video}" becomes "--pace 'brisk' is not one of fast, video". Other texts stay. Pure.
std::string plainRefusal(const std::string& text);

}  // namespace host
