// How badgemint-admin speaks: what was asked for goes to standard output, what kept it from its
// work to standard error; and with which status it ends.
#ifndef BADGEMINT_ADMIN_CONSOLE_H
#define BADGEMINT_ADMIN_CONSOLE_H

#include <ostream>
#include <stdexcept>
#include <string>
#include <string_view>

namespace badgemint::admin {

enum class ExitStatus {
  kAllWell = 0,
  kFound = 1,    // Warnings, differences, nothing that fits: nothing that stops a build.
  kRefused = 2,  // Errors in the files of a build, a proof that failed, a guard: nothing changed.
  kNotDone = 3,  // The work could not be done: arguments, memory, a file, the output.
};

// Ends a verb from anywhere below it: the text is for people, without the program's name and
// without a newline.
class Failure : public std::runtime_error {
 public:
  Failure(ExitStatus status, const std::string& text) : std::runtime_error(text), _status(status) {}
  ExitStatus status() const { return _status; }

 private:
  ExitStatus _status;
};

class Console {
 public:
  // `colours` is for words of the output alone; standard error is always plain.
  Console(std::ostream& output, std::ostream& errors, bool colours)
      : _output(output), _errors(errors), _colours(colours) {}

  // For what was asked for. A failed write is remembered until finish().
  std::ostream& output() { return _output; }

  // "badgemint-admin: TEXT\n" on standard error, behind all output so far; bytes that do not print,
  // as names of files may have them, as printable() shows them.
  void complain(std::string_view text);

  // A word in the colour of errors or of warnings, where colours are wanted.
  std::string inErrorColour(std::string_view word) const { return coloured(word, "31"); }
  std::string inWarningColour(std::string_view word) const { return coloured(word, "35"); }

  // From now on output that cannot be written costs a message, but not the status: what a verb has
  // done stays done.
  void keepStatus() { _keepsStatus = true; }
  bool keepsStatus() const { return _keepsStatus; }

  // Writes out what is still to be written. False when anything could not be written.
  [[nodiscard]] bool finish();

 private:
  std::string coloured(std::string_view word, std::string_view colour) const;

  std::ostream& _output;
  std::ostream& _errors;
  bool _colours;
  bool _keepsStatus = false;
};

}  // namespace badgemint::admin

#endif  // BADGEMINT_ADMIN_CONSOLE_H
