// How badgemint-admin talks to its user: results go to standard output, problems to standard error,
// and the exit status sums up the run. A verb that must not stop halfway defers termination
// signals: it cleans up, reports what happened, and then the process ends with the signal.
#ifndef BADGEMINT_ADMIN_CONSOLE_H
#define BADGEMINT_ADMIN_CONSOLE_H

#include <fmt/format.h>

#include <csignal>
#include <optional>
#include <ostream>
#include <stdexcept>
#include <string>
#include <string_view>
#include <thread>
#include <utility>

#include "admin/json.h"

namespace badgemint::admin {

enum class ExitStatus {
  kAllWell = 0,
  kFound = 1,    // Warnings, differences, no match: nothing that stops a build.
  kRefused = 2,  // Errors in the input files, a failed comparison, a limit: nothing changed.
  kNotDone = 3,  // The work could not be done: arguments, memory, a file, the output.
};

// Ends a verb from anywhere below it. The text is for people, without the program's name and
// without a newline; the compiler checks the arguments against the format.
class Failure : public std::runtime_error {
 public:
  template <typename... Args>
  Failure(ExitStatus status, fmt::format_string<Args...> format, Args&&... args)
      : std::runtime_error(fmt::format(format, std::forward<Args>(args)...)), _status(status) {}

  ExitStatus status() const { return _status; }

 private:
  ExitStatus _status;
};
// Most end with one of these two.
template <ExitStatus kStatus>
class FailureOf : public Failure {
 public:
  template <typename... Args>
  explicit FailureOf(fmt::format_string<Args...> format, Args&&... args)
      : Failure(kStatus, format, std::forward<Args>(args)...) {}
};
using Refused = FailureOf<ExitStatus::kRefused>;
using NotDone = FailureOf<ExitStatus::kNotDone>;

// A text whose bytes may be any: what does not print is shown as "\xNN".
std::string printable(std::string_view text);

// The two streams of a run. They stay the caller's and outlive the console.
class Console {
 public:
  // Which of the two are terminals, and whether the user wants colours there.
  struct Terminals {
    bool output = false, errors = false, colours = true;
  };

  Console(std::ostream& output, std::ostream& errors, Terminals terminals)
      : _output(output), _errors(errors), _terminals(terminals) {}

  // Shows a line on the terminal of standard error while the verb works for longer than a second,
  // up to finish() or the first text that is printed on a terminal.
  void showProgress(const std::string& verb);

  bool isTerminal() const { return _terminals.output; }

  // For results. A failed write is remembered until finish().
  std::ostream& output() {
    if (_terminals.output) _progress.reset();
    return _output;
  }
  template <typename... Args>
  void print(fmt::format_string<Args...> format, Args&&... args) {
    output() << fmt::format(format, std::forward<Args>(args)...);
  }

  // A line of --json.
  void printJson(const JsonObject& object) { output() << object.text() << '\n'; }

  // Prints "badgemint-admin: TEXT\n" on standard error, after all output so far. Bytes that are not
  // printable, as file names may have them, appear as printable() shows them.
  void reportText(std::string_view text);
  template <typename... Args>
  void report(fmt::format_string<Args...> format, Args&&... args) {
    reportText(fmt::format(format, std::forward<Args>(args)...));
  }

  // "error" or "warning", in its colour where colours are wanted.
  std::string severityText(bool isError) const;

  // From now on output that cannot be written is reported without changing the exit status: what a
  // verb has done stays done.
  void keepStatus() { _keepsStatus = true; }
  bool keepsStatus() const { return _keepsStatus; }

  // Flushes the output. False when any of it could not be written.
  [[nodiscard]] bool finish();

 private:
  std::ostream& _output;
  std::ostream& _errors;
  const Terminals _terminals;
  bool _keepsStatus = false;
  std::optional<std::jthread> _progress;  // Shows the line; nobody else uses a terminal meanwhile.
};

// From now on SIGHUP, SIGINT, SIGQUIT and SIGTERM are only remembered: a call that waits fails with
// EINTR, and the verb asks whether it was interrupted. Signals that the process ignores, as under
// nohup, stay ignored.
void deferTerminationSignals();
bool isInterrupted();
// Throws Failure (not done) when one has arrived.
void throwIfInterrupted();

// Ends the process by the signal that has arrived, if any. run() calls it when all output is
// flushed.
void deliverDeferredSignal();

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

#endif  // BADGEMINT_ADMIN_CONSOLE_H
