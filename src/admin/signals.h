// The signals that ask a program to end, for verbs that must not end halfway: such a verb cleans up
// and says what happened before the process ends by the signal.
#ifndef BADGEMINT_ADMIN_SIGNALS_H
#define BADGEMINT_ADMIN_SIGNALS_H

#include <csignal>

namespace badgemint::admin {

// From now on SIGHUP, SIGINT, SIGQUIT and SIGTERM are only remembered: a call that waits fails with
// EINTR, and the verb asks whether it was interrupted. Signals that the process ignores, as under
// nohup, stay ignored. Lasts until deliverDeferredSignals().
void deferTerminationSignals();
bool isInterrupted();
// Throws Failure (not done) when one has arrived.
void throwIfInterrupted();

// Ends the deferral, and the process by the signal that arrived meanwhile, if any. run() calls it
// when all output is flushed.
void deliverDeferredSignals();

// While one lives, these signals wait in the system: no call fails because of them.
class BlockedSignals {
 public:
  BlockedSignals();
  ~BlockedSignals();
  BlockedSignals(const BlockedSignals&) = delete;
  BlockedSignals& operator=(const BlockedSignals&) = delete;

 private:
  sigset_t _before;
};

}  // namespace badgemint::admin

#endif  // BADGEMINT_ADMIN_SIGNALS_H
