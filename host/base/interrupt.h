// An interrupted run ends in order: the loop looks at a flag, the outputs are closed as always.
#pragma once

#include <string>

namespace host {

/// From now on SIGINT, SIGTERM and SIGHUP only set a flag; a second SIGINT or SIGTERM ends the process as usual. A lost
/// connection sends SIGHUP more than once, so that every one of them only sets the flag; where it was ignored, as under
/// nohup, it stays so. SIGPIPE and SIGXFSZ are ignored, so that a closed pipe and a file that may grow no further are
/// errors of the write.
void catchInterrupts();

/// 0, or the number of the signal that asked to stop. Any thread.
int interruptSignal();

/// The name of that signal, such as "SIGINT"; empty for none. Any thread.
std::string interruptName();

}  // namespace host
