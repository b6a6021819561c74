#include "plugin/guard_choice.h"

#include "base/host_error.h"

namespace host {

GuardChoice guardChoiceOf(const std::string& word) {
  if (word == "off") return GuardChoice::Off;
  if (word == "colour") return GuardChoice::Colour;
  if (word == "network") throw HostError(ExitCode::Usage, "--guard network is not part of this program");
  throw HostError(ExitCode::Usage, "--guard '" + word + "' is neither off nor colour");
}

}  // namespace host
