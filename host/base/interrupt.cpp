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
  struct sigaction before {};
  action.sa_flags = 0;
  if (sigaction(SIGHUP, nullptr, &before) == 0 && before.sa_handler != SIG_IGN) sigaction(SIGHUP, &action, nullptr);
  std::signal(SIGPIPE, SIG_IGN);
  std::signal(SIGXFSZ, SIG_IGN);
}

int interruptSignal() {
  return received;
}

std::string interruptName() {
  switch (received) {
    case 0:
      return {};
    case SIGINT:
      return "SIGINT";
    case SIGTERM:
      return "SIGTERM";
    case SIGHUP:
      return "SIGHUP";
    default:
      return "signal " + std::to_string(received);
  }
}

}  // namespace host
