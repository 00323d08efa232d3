#include "admin/console.h"

#include "admin/check/finding.h"

namespace badgemint::admin {

void Console::reportText(std::string_view text) {
  _output.flush();
  _errors << "badgemint-admin: ";
  for (const char c : text)
    _errors << printable({&c, 1});  // Needs no memory: it may be what is missing.
  _errors << std::endl;
}

bool Console::finish() {
  return _output.flush().good();
}

std::string Console::coloured(std::string_view word, std::string_view colour) const {
  if (!_colours) return std::string(word);
  return std::string("\033[1;").append(colour).append("m").append(word).append("\033[0m");
}

}  // namespace badgemint::admin
