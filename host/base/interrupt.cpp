#include "base/interrupt.h"

#include <csignal>

namespace host {
namespace {

volatile std::sig_atomic_t received = 0;

void remember(int signal) {
  received = signal;
}

}  // namespace

void catchInterrupts() {
  struct sigaction action {};
  action.sa_handler = remember;
  action.sa_flags = static_cast<int>(SA_RESETHAND);  // the second one finds the default again
  sigaction(SIGINT, &action, nullptr);
  sigaction(SIGTERM, &action, nullptr);
  std::signal(SIGPIPE, SIG_IGN);
}

int interruptSignal() {
  return received;
}

}  // namespace host
