#include "admin/files/process.h"

#include "admin/console.h"

namespace badgemint::admin {

namespace {

constexpr int kEndingSignals[] = {SIGHUP, SIGINT, SIGQUIT, SIGTERM};

}  // namespace

HeldSignals::HeldSignals() {
  sigemptyset(&_held);
  for (const int signal : kEndingSignals) {
    struct sigaction action;
    const bool isIgnored = sigaction(signal, nullptr, &action) == 0 && action.sa_handler == SIG_IGN;
    if (!isIgnored) sigaddset(&_held, signal);  // Such as a hang-up under nohup.
  }
  sigprocmask(SIG_BLOCK, &_held, &_before);
}

HeldSignals::~HeldSignals() {
  sigprocmask(SIG_SETMASK, &_before, nullptr);
}

void HeldSignals::endIfAsked() const {
  sigset_t waiting;
  sigpending(&waiting);
  for (const int signal : kEndingSignals)
    if (sigismember(&waiting, signal) == 1 && sigismember(&_before, signal) == 0)
      throw Failure(ExitStatus::kNotDone, "interrupted: nothing was changed");
}

}  // namespace badgemint::admin
