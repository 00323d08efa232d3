// What a verb that writes asks of the process while it works.
#ifndef BADGEMINT_ADMIN_FILES_PROCESS_H
#define BADGEMINT_ADMIN_FILES_PROCESS_H

#include <sys/stat.h>

#include <csignal>

namespace badgemint::admin {

// While it lives, files are created for their owner alone.
class OwnerOnlyFiles {
 public:
  OwnerOnlyFiles() : _umask(umask(S_IRWXG | S_IRWXO)) {}
  ~OwnerOnlyFiles() { umask(_umask); }
  OwnerOnlyFiles(const OwnerOnlyFiles&) = delete;
  OwnerOnlyFiles& operator=(const OwnerOnlyFiles&) = delete;

  // The umask before.
  mode_t userMask() const { return _umask; }

 private:
  mode_t _umask;
};

// While it lives, the signals that ask a program to end wait; they strike when it goes, by when all
// is clean.
class HeldSignals {
 public:
  HeldSignals();
  ~HeldSignals();
  HeldSignals(const HeldSignals&) = delete;
  HeldSignals& operator=(const HeldSignals&) = delete;

  // Throws Failure when one waits.
  void endIfAsked() const;

 private:
  sigset_t _held;
  sigset_t _before;
};

}  // namespace badgemint::admin

#endif  // BADGEMINT_ADMIN_FILES_PROCESS_H
