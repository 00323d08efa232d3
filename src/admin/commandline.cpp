#include "admin/commandline.h"

#include <poll.h>
#include <unistd.h>

#include <fmt/ranges.h>

#include <CLI/CLI.hpp>
#include <algorithm>
#include <cerrno>
#include <cstring>
#include <new>
#include <numeric>
#include <system_error>

#include "admin/signals.h"
#include "admin/verbs/verb.h"

namespace badgemint::admin {

namespace {

struct VerbEntry {
  const char* name;
  Run (*add)(Options options);
};

// In the order of help: what most people need first.
constexpr VerbEntry kVerbs[] = {
    {"check", addCheck},     {"build", addBuild},   {"show", addShow},     {"list", addList},
    {"why", addWhy},         {"verify", addVerify}, {"diff", addDiff},     {"dump", addDump},
    {"pattern", addPattern}, {"decode", addDecode}, {"format", addFormat},
};

constexpr char kHelp[] = "help";

// How many letters must be added, removed or changed to make one word of the other.
size_t distanceOf(std::string_view a, std::string_view b) {
  std::vector<size_t> row(b.size() + 1);
  std::iota(row.begin(), row.end(), size_t{0});
  for (size_t i = 0; i < a.size(); ++i) {
    size_t diagonal = std::exchange(row[0], i + 1);
    for (size_t j = 0; j < b.size(); ++j) {
      const size_t changed = diagonal + (a[i] == b[j] ? 0 : 1);
      diagonal = row[j + 1];
      row[j + 1] = std::min({changed, diagonal + 1, row[j] + 1});
    }
  }
  return row.back();
}

// "; did you mean CHOICE?"; empty when no choice is like the word.
std::string suggestion(const std::string& word, const std::vector<std::string>& choices) {
  const size_t mostDistance = word.size() > 2 ? 2 : 0;
  const auto distance = [&word](const std::string& choice) {
    const bool isBeginning =
        word != "--" && (choice.starts_with(word) || choice.starts_with('-' + word));
    return isBeginning ? 0 : distanceOf(word, choice);
  };
  const auto best = std::ranges::min_element(choices, {}, distance);
  if (distance(*best) > mostDistance) return "";
  return "; did you mean " + *best + '?';
}

// The program of bash that completes a command line. It is given: options before the verb, verbs,
// and a case with the options of each verb.
constexpr char kCompletion[] =
    R"(# Completion of badgemint-admin in bash; made by badgemint-admin itself.
_badgemint_admin() {{
  local word=${{COMP_WORDS[COMP_CWORD]}} verb='' words='' i
  for ((i = 1; i < COMP_CWORD; ++i)); do
    case ${{COMP_WORDS[i]}} in
    -C) ((++i)) ;;
    -*) ;;
    *) verb=${{COMP_WORDS[i]}}; break ;;
    esac
  done
  [[ ${{COMP_WORDS[COMP_CWORD - 1]}} != -C ]] || verb=-C
  COMPREPLY=()
  case $verb:$word in
    :-*) words='{0}' ;;
    :*|help:*) words='{1}' ;;
{2}    *) compopt -o filenames; mapfile -t COMPREPLY < <(compgen -f -- "$word"); return ;;
  esac
  mapfile -t COMPREPLY < <(compgen -W "$words" -- "$word")
}}
complete -F _badgemint_admin badgemint-admin
)";

// Reads the arguments and runs the verb they name.
class CommandLine {
 public:
  CommandLine() {
    _app.name("badgemint-admin");
    _app.set_version_flag("--version", "badgemint-admin " BADGEMINT_VERSION);
    _app.set_help_flag("--help", "Show this help");
    Options(_app).text("-C", "DIR", _folder, "Work as if started in this folder");
    _app.require_subcommand(0, 1);
    _app.allow_extras();
    addHelp();
    addCompletion();
    for (const VerbEntry& entry : kVerbs) {
      CLI::App* const verb = _app.add_subcommand(entry.name);
      const Run run = entry.add(Options(*verb));
      verb->callback([this, run] { _run = run; });
    }
  }

  ExitStatus run(int argc, const char* const* argv, Console& console) {
    std::string problem;
    try {
      _app.parse(argc, argv);
    } catch (const CLI::CallForVersion& version) {
      console.print("{}\n", version.what());
      return ExitStatus::kAllWell;
    } catch (const CLI::CallForHelp&) {
      const auto verbs = _app.get_subcommands();
      console.print("{}", helpOf(verbs.empty() ? _app : *verbs.front()));
      return ExitStatus::kAllWell;
    } catch (const CLI::ArgumentMismatch& wrong) {
      const std::string_view text = wrong.what();
      problem =
          fmt::format("{}: too few or too many values", text.substr(0, text.find_first_of(": ")));
    } catch (const CLI::ParseError& wrong) {
      problem = wrong.what();
    }
    refuseUnknown();
    if (!problem.empty())
      throw Failure(ExitStatus::kNotDone, "{} (see badgemint-admin help)", problem);
    if (!_run)
      throw Failure(ExitStatus::kNotDone, "no verb given (badgemint-admin help lists them)");
    if (!_folder.empty() && chdir(_folder.c_str()) != 0)
      throw Failure(ExitStatus::kNotDone, "{}: {}", _folder, std::strerror(errno));
    if (!_app.get_subcommands().empty())
      console.showProgress(_app.get_subcommands().front()->get_name());
    return _run(console);
  }

 private:
  // Throws Failure for the first argument that nothing was declared for.
  void refuseUnknown() const {
    const auto verbs = _app.get_subcommands();
    const CLI::App& verb = verbs.empty() ? _app : *verbs.front();
    const auto before = _app.remaining();
    auto words = before.empty() ? verb.remaining() : before;
    std::erase(words, "--");
    if (words.empty()) return;
    const std::string& word = words.front();
    const std::string option = word.substr(0, word.find('='));
    const bool isBefore = !verbs.empty() && !before.empty();
    if (isBefore && std::ranges::count(optionsOf(verb), option) > 0)
      throw Failure(ExitStatus::kNotDone, "{0} comes after the verb: badgemint-admin {1} {0}",
                    option, verb.get_name());
    if (before.empty() && option == "-C")
      throw Failure(ExitStatus::kNotDone, "-C comes before the verb: badgemint-admin -C DIR {}",
                    verb.get_name());
    refuse(word, before.empty() ? verb : _app);
  }

  [[noreturn]] void refuse(const std::string& word, const CLI::App& app) const {
    const bool isVerb = &app != &_app;
    const std::string name = isVerb ? app.get_name() : "badgemint-admin";
    if (word.starts_with('-'))
      throw Failure(ExitStatus::kNotDone, "{} has no option {}{} (see badgemint-admin help{})",
                    name, word, suggestion(word, optionsOf(app)), isVerb ? ' ' + name : "");
    if (!isVerb) refuseVerb(word);
    throw Failure(ExitStatus::kNotDone, "{}: unexpected word {} (see badgemint-admin help {})",
                  name, word, name);
  }

  [[noreturn]] static void refuseVerb(const std::string& word) {
    throw Failure(ExitStatus::kNotDone, "there is no verb {}{} (see badgemint-admin help)", word,
                  suggestion(word, verbNames()));
  }

  static std::vector<std::string> optionsOf(const CLI::App& app) {
    std::vector<std::string> names;
    for (const CLI::Option* const option : app.get_options())
      if (!option->get_positional()) names.push_back(option->get_name());
    return names;
  }

  static std::vector<std::string> verbNames() {
    std::vector<std::string> names = {kHelp};
    for (const VerbEntry& entry : kVerbs) names.emplace_back(entry.name);
    return names;
  }

  // Not CLI::App::help, which describes the verb on the command line whatever it is asked about.
  std::string helpOf(CLI::App& app) const {
    const std::string name =
        &app == &_app ? "badgemint-admin" : "badgemint-admin " + app.get_name();
    return app.get_formatter()->make_help(&app, name, CLI::AppFormatMode::Normal);
  }

  void addHelp() {
    CLI::App* const verb = _app.add_subcommand(kHelp, "Show the options of a verb");
    verb->add_option("VERB", _helpTopic, "The verb; without it, all of them are listed");
    verb->callback([this] {
      _run = [this](Console& console) {
        console.print("{}", helpOf(helpTopic()));
        return ExitStatus::kAllWell;
      };
    });
  }

  void addCompletion() {
    CLI::App* const verb =
        _app.add_subcommand("completion", "Print the completion script for bash");
    verb->group("");  // Not in the list of verbs: packages install what it prints.
    verb->callback([this] {
      _run = [this](Console& console) {
        printCompletion(console);
        return ExitStatus::kAllWell;
      };
    });
  }

  // The words of verbs and options; file names for all other words.
  void printCompletion(Console& console) const {
    std::string words;
    for (const CLI::App* const verb : _app.get_subcommands({}))
      words += fmt::format("    {}:-*) words='{}' ;;\n", verb->get_name(),
                           fmt::join(optionsOf(*verb), " "));
    console.print(kCompletion, fmt::join(optionsOf(_app), " "), fmt::join(verbNames(), " "), words);
  }

  CLI::App& helpTopic() {
    if (_helpTopic.empty()) return _app;
    for (CLI::App* const verb : _app.get_subcommands({}))
      if (verb->get_name() == _helpTopic) return *verb;
    refuseVerb(_helpTopic);
  }

  CLI::App _app{"Looks after the files of a badgemint site."};
  std::string _folder;
  std::string _helpTopic;
  Run _run;
};

ExitStatus runGuarded(int argc, const char* const* argv, Console& console) noexcept {
  try {
    return CommandLine().run(argc, argv, console);
  } catch (const Failure& failure) {
    console.reportText(failure.what());
    return failure.status();
  } catch (const std::bad_alloc&) {
    console.reportText("not enough memory");
  } catch (const std::exception& error) {
    console.reportText(error.what());
  }
  return ExitStatus::kNotDone;
}

// Whether standard output is a pipe that nobody reads any more, as with `head`.
bool isReaderGone() {
  struct pollfd output = {STDOUT_FILENO, POLLOUT, 0};
  return poll(&output, 1, 0) == 1 && (output.revents & POLLERR) != 0;
}

}  // namespace

int run(int argc, const char* const* argv, Console& console) noexcept {
  ExitStatus status = runGuarded(argc, argv, console);
  if (!console.finish() && !isReaderGone()) {
    console.reportText("standard output cannot be written");
    if (!console.keepsStatus()) status = ExitStatus::kNotDone;
  }
  deliverDeferredSignals();
  return static_cast<int>(status);
}

}  // namespace badgemint::admin
