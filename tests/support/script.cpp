#include "support/script.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <cstring>

#include "support/testsite.h"

namespace badgemint {

int64_t Step::number(size_t i) const {
  return std::strtoll(word(i).c_str(), nullptr, 0);
}

Fault Step::fault() const {
  Fault fault{.call = word(0)};
  for (size_t i = 1; i < words.size(); ++i) {
    fault.isShort |= words[i] == "short";
    if (words[i] == "interrupted") fault.error = EINTR;
    if (number(i) != 0) fault.nth = as<int>(i);
  }
  return fault;
}

namespace {

// Takes the code of a character behind a backslash.
char decoded(const std::string& code, size_t& at) {
  const char c = code[at++];
  if (c != 'x') return c == 't' ? '\t' : c == 'n' ? '\n' : c == 'r' ? '\r' : c;
  at += 2;
  return static_cast<char>(std::stoi(code.substr(at - 2, 2), nullptr, 16));
}

std::string decoded(const std::string& code) {
  std::string text;
  for (size_t at = 0; at < code.size();) {
    size_t times = 0;
    char c = code[at++];
    int used = 0;
    if (c == '\\' && std::sscanf(code.c_str() + at, "{%zu%c}%n", &times, &c, &used) == 2) {
      text.append(times, c);
      at += static_cast<size_t>(used);
    } else {
      text += c == '\\' ? decoded(code, at) : c;
    }
  }
  return text;
}

// The text that `decoded` makes of a line of input.
std::string inputLine(const std::string& code) {
  return code.ends_with('\\') && !code.ends_with("\\\\") ? decoded(code.substr(0, code.size() - 1))
                                                         : decoded(code) + '\n';
}

std::string encodedCharacter(const std::string& text, size_t at) {
  const char c = text[at];
  const bool starts = at == 0 || text[at - 1] == '\n';
  const bool ends = at + 1 == text.size() || text[at + 1] == '\n';
  if (c == '\n') return starts ? "\\n\n" : "\n";
  if (c == '\\') return "\\\\";
  char code[8];
  const bool hides =
      c < ' ' || c > '~' || (c == ' ' && ends) || (starts && std::strchr("#$>", c) != nullptr);
  std::snprintf(code, sizeof code, hides ? "\\x%02X" : "%c", static_cast<unsigned char>(c));
  return code;
}

std::string encoded(const std::string& text) {
  std::string code;
  for (size_t at = 0; at < text.size();) {
    size_t times = 1;
    while (at + times < text.size() && text[at + times] == text[at]) ++times;
    if (times < 30) times = 1;
    code +=
        times == 1 ? encodedCharacter(text, at) : "\\{" + std::to_string(times) + text[at] + "}";
    at += times;
  }
  return text.empty() || text.ends_with('\n') ? code : code + "\\\n";
}

class Player {
 public:
  explicit Player(Commands commands) : _commands(std::move(commands)) {
    _commands["level"] = [&](Step& c) { _log.logger().setThreshold(c.as<uint32_t>(0)); };
    _commands["file"] = [&](Step& c) { _site.folder.write(c.word(0), c.input); };
    _commands["append"] = [&](Step& c) {
      _site.folder.write(c.word(0), _site.folder.read(c.word(0)) + c.input);
    };
    _commands["show"] = [&](Step& c) { c.out << _site.folder.read(c.word(0)); };
    _commands["hex"] = [&](Step& c) {
      c.out << hexLines(_site.folder.read(c.word(0)), c.as<size_t>(1));
    };
    _commands["cut"] = [](Step& c) { std::filesystem::resize_file(c.word(0), c.as<size_t>(1)); };
    _commands["modes"] = [](Step& c) {
      for (const std::string& name : c.words)
        c.out << std::oct << static_cast<int>(std::filesystem::status(name).permissions()) << ' ';
    };
    _commands["folder"] = [](Step& c) { std::filesystem::create_directory(c.word(0)); };
    _commands["fail"] = [&](Step& c) { _fault = c.fault(); };
    _commands["remove"] = [](Step& c) { std::filesystem::remove(c.word(0)); };
  }

  // What a transcript says when it is played.
  std::string play(const std::string& transcript) {
    std::istringstream lines(transcript);
    std::string played;
    for (std::string line; std::getline(lines, line);) {
      if (line.starts_with("> ") || line == ">") {
        _input += inputLine(line.substr(std::min<size_t>(2, line.size())));
      } else if (line.starts_with('$') || line.starts_with('#') || line.empty()) {
        played += finishCommand();
        if (line.starts_with('$')) _command = line.substr(2);
      } else {
        continue;
      }
      played += line + '\n';
    }
    return played + finishCommand();
  }

 private:
  std::string finishCommand() {
    if (_command.empty()) return "";
    Step call;
    std::string name, word;
    std::istringstream words(std::exchange(_command, ""));
    words >> name >> std::ws;
    if (!words.eof()) call.text = decoded(words.str().substr(static_cast<size_t>(words.tellg())));
    while (words >> word) call.words.push_back(word == "\"\"" ? "" : decoded(word));
    call.input = std::exchange(_input, "");
    if (!_commands.contains(name)) return "no such command\n";
    std::optional<ArmedFault> armed;
    testing::internal::CaptureStdout();
    try {
      if (_fault) armed.emplace(*std::exchange(_fault, {}));
      _commands[name](call);
    } catch (const std::exception& wrong) {
      call.out << "exception: " << wrong.what();
    }
    armed.reset();
    std::string output = testing::internal::GetCapturedStdout() + call.out.str();
    if (!output.empty() && !output.ends_with('\n')) output += '\n';
    return encoded(output + _log.take());
  }

  TestSite _site;
  TestLog _log{25};
  Commands _commands;
  std::optional<Fault> _fault;  // Of the next command.
  std::string _command, _input;
};

}  // namespace

// Plays without a log: what is printed must still stand in the transcript, in order.
static bool playsQuietly(const std::string& transcript, const Commands& commands, Logger* logger) {
  Player player(commands);
  theLogger = logger;
  std::istringstream lines(player.play(transcript));
  size_t at = 0;
  for (std::string line; at != transcript.npos && std::getline(lines, line);)
    at = transcript.find(line + '\n', at);
  return at != transcript.npos;
}

void play(const std::string& name, Commands commands) {
  const std::string path = std::string(BADGEMINT_TEST_DATA "/") + name;
  std::ifstream file(path);
  ASSERT_TRUE(file) << path;
  const std::string expected(std::istreambuf_iterator<char>(file), {});
  // Nobody logs, or a log that takes nothing: each in a process that leaves no traces in this one.
  Logger deaf(UINT32_MAX);
  for (Logger* const logger : {static_cast<Logger*>(nullptr), &deaf}) {
    EXPECT_EXIT(std::exit(!playsQuietly(expected, commands, logger)), testing::ExitedWithCode(0),
                "")
        << name << (logger == nullptr ? " without a logger" : " with a log that takes nothing");
  }
  const std::string played = Player(std::move(commands)).play(expected);
  EXPECT_EQ(played, expected);
  if (std::getenv("BADGEMINT_RECORD") != nullptr) std::ofstream(path) << played;
}

}  // namespace badgemint
