#include "admin/signals.h"

#include <array>
#include <cstddef>

#include "admin/console.h"

namespace badgemint::admin {

namespace {

constexpr std::array kSignals = {SIGHUP, SIGINT, SIGQUIT, SIGTERM};

// What a handler may use is global.
volatile std::sig_atomic_t arrivedSignal = 0;
bool areDeferred = false;
std::array<struct sigaction, kSignals.size()> actionsBefore;

void rememberSignal(int signal) {
  arrivedSignal = signal;
}

}  // namespace

void deferTerminationSignals() {
  if (areDeferred) return;
  areDeferred = true;
  arrivedSignal = 0;
  struct sigaction action = {};
  action.sa_handler = rememberSignal;  // Without SA_RESTART: waiting calls shall end.
  for (size_t i = 0; i < kSignals.size(); ++i) {
    sigaction(kSignals[i], nullptr, &actionsBefore[i]);
    if (actionsBefore[i].sa_handler != SIG_IGN) sigaction(kSignals[i], &action, nullptr);
  }
}

bool isInterrupted() {
  return arrivedSignal != 0;
}

void throwIfInterrupted() {
  if (isInterrupted()) throw Failure(ExitStatus::kNotDone, "interrupted: nothing was changed");
}

void deliverDeferredSignals() {
  if (!areDeferred) return;
  areDeferred = false;
  for (size_t i = 0; i < kSignals.size(); ++i) sigaction(kSignals[i], &actionsBefore[i], nullptr);
  const int signal = arrivedSignal;
  arrivedSignal = 0;
  if (signal != 0) raise(signal);
}

BlockedSignals::BlockedSignals() {
  sigset_t blocked;
  sigemptyset(&blocked);
  for (const int signal : kSignals) sigaddset(&blocked, signal);
  sigprocmask(SIG_BLOCK, &blocked, &_before);
}

BlockedSignals::~BlockedSignals() {
  sigprocmask(SIG_SETMASK, &_before, nullptr);
}

}  // namespace badgemint::admin
