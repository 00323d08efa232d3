// Plays a transcript: a text file under tests/data/ of commands and of what they print and log. The
// test fails when they print anything else; run with BADGEMINT_RECORD set it writes the file anew.
//
//   # a remark, or an empty line
//   $ command word word    what follows is what it printed, then what it logged
//   > a line of its input
//
// Words and texts know \n, \r, \t, \xHH, \\ and "\{300x}" for 300 x's; a "\" at the end of a line
// of text says that the line has no end; "" is an empty word.
#ifndef BADGEMINT_TESTS_SUPPORT_SCRIPT_H
#define BADGEMINT_TESTS_SUPPORT_SCRIPT_H

#include <cstdint>
#include <functional>
#include <map>
#include <sstream>
#include <string>
#include <vector>

#include "support/faults.h"

namespace badgemint {

// One command of a transcript, and what it prints.
struct Step {
  std::vector<std::string> words;  // Without the command itself.
  std::string text;                // The words as they are written.
  std::string input;
  std::ostringstream out;

  std::string word(size_t i) const { return i < words.size() ? words[i] : ""; }
  const char* name(size_t i) const { return words.at(i).c_str(); }
  int64_t number(size_t i) const;  // 0 for a word that is missing.
  // Of the words: a call, and a number, "short" or "interrupted".
  Fault fault() const;
  template <typename T>
  T as(size_t i) const {
    return static_cast<T>(number(i));
  }
};
using Commands = std::map<std::string, std::function<void(Step&)>>;

// Plays in a TestSite with a log of its own. Every transcript has these commands too:
//   level N         log up to level N, 25 at the start
//   file NAME       writes its input      append NAME   appends it
//   show NAME       prints a file         hex NAME N    prints it, N bytes a line
//   folder NAME     makes a folder        remove NAME     cut NAME N    to N bytes
//   modes NAME...   prints the access modes of files
//   fail CALL N     lets the N-th such call of the next command fail, see Step::fault
void play(const std::string& name, Commands commands);

}  // namespace badgemint

#endif  // BADGEMINT_TESTS_SUPPORT_SCRIPT_H
