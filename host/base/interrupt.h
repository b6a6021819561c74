// An interrupted run ends in order: the loop looks at a flag, the outputs are closed as always.
#pragma once

namespace host {

/// From now on SIGINT and SIGTERM only set a flag; a second one ends the process as usual. SIGPIPE is ignored, so that
/// a closed pipe is an error of the write.
void catchInterrupts();

/// 0, or the number of the signal that asked to stop. Any thread.
int interruptSignal();

}  // namespace host
