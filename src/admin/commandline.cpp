// The command line of badgemint-admin: the options of verbs, suggestions for what is misspelt,
// help, completion.
#include <poll.h>

#include <CLI/CLI.hpp>
#include <cerrno>
#include <cstring>
#include <new>
#include <numeric>
#include <system_error>

#include "admin/verbs/verb.h"

namespace badgemint::admin {

namespace {

// In the order of help: what most people need first.
constexpr std::pair<const char*, Run (*)(Options)> kVerbs[] = {
    {"check", addCheck},     {"build", addBuild},   {"show", addShow},     {"list", addList},
    {"why", addWhy},         {"verify", addVerify}, {"diff", addDiff},     {"dump", addDump},
    {"pattern", addPattern}, {"decode", addDecode}, {"format", addFormat},
};

// An unset variable of a script must not be taken for an option that was not given.
std::string refuseEmpty(const std::string& value) {
  return value.empty() ? "the value is empty" : "";
}

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
  local word=${{COMP_WORDS[COMP_CWORD]}} verb='' words='' i=1
  [[ ${{COMP_WORDS[1]}} != -C ]] || i=3
  ((COMP_CWORD <= i)) || verb=${{COMP_WORDS[i]}}
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
    _app.set_version_flag("--version", "badgemint-admin " BADGEMINT_VERSION, "Show the version");
    _app.set_help_flag("--help", "Show this help");
    Options(_app).text("-C", "DIR", _folder, "Work as if started in this folder");
    _app.require_subcommand(0, 1)->group("Verbs");  // Which the verbs inherit.
    _app.get_formatter()->label("SUBCOMMAND", "VERB");
    _app.get_formatter()->label("Positionals", "Arguments");
    _app.allow_extras();
    _runs["help"] = [this](Console& console) { return printHelp(console); };
    _app.add_subcommand("help", "Show the options of a verb")
        ->add_option("VERB", _helpTopic, "The verb; without it, all of them are listed");
    _runs["completion"] = [this](Console& console) { return printCompletion(console); };
    _app.add_subcommand("completion", "Print the completion script for bash")
        ->group("");  // Not in the list of verbs: packages install what it prints.
    for (const auto& [name, add] : kVerbs) _runs[name] = add(Options(*_app.add_subcommand(name)));
  }

  ExitStatus run(int argc, const char* const* argv, Console& console) {
    std::string problem;
    try {
      _app.parse(argc, argv);
    } catch (const CLI::Success& asked) {  // For help or for the version.
      _app.exit(asked, console.output());
      return ExitStatus::kAllWell;
    } catch (const CLI::ArgumentMismatch& wrong) {
      const std::string_view text = wrong.what();
      problem =
          fmt::format("{}: too few or too many values", text.substr(0, text.find_first_of(": ")));
    } catch (const CLI::ParseError& wrong) {
      problem = wrong.what();
    }
    refuseUnknown();
    if (!problem.empty()) throw NotDone("{} (see badgemint-admin help)", problem);
    const auto verb = _runs.find(chosen().get_name());
    if (verb == _runs.end()) throw NotDone("no verb given (badgemint-admin help lists them)");
    if (!_folder.empty() && chdir(_folder.c_str()) != 0)
      throw NotDone("{}: {}", _folder, std::strerror(errno));
    console.showProgress(verb->first);
    return verb->second(console);
  }

 private:
  // The verb that the arguments name, or the program itself.
  const CLI::App& chosen() const {
    const auto verbs = _app.get_subcommands();
    return verbs.empty() ? _app : *verbs.front();
  }

  // Throws Failure for the first argument that nothing was declared for.
  void refuseUnknown() const {
    const bool isBefore = !_app.remaining().empty();
    const CLI::App& app = isBefore ? _app : chosen();
    const CLI::App& other = isBefore ? chosen() : _app;
    auto words = app.remaining();
    std::erase(words, "--");
    if (words.empty()) return;
    const std::string& word = words.front();
    const std::string option = word.substr(0, word.find('='));
    const bool isMisplaced = &other != &app && std::ranges::count(optionsOf(other), option) > 0;
    if (isMisplaced && isBefore)
      throw NotDone("{0} comes after the verb: badgemint-admin {1} {0}", option,
                    chosen().get_name());
    if (isMisplaced)
      throw NotDone("{0} comes before the verb: badgemint-admin {0} DIR {1}", option,
                    chosen().get_name());
    const std::string name = app.get_name(), verb = &app == &_app ? "" : ' ' + name;
    if (word.starts_with('-'))
      throw NotDone("{} has no option {}{} (see badgemint-admin help{})", name, word,
                    suggestion(word, optionsOf(app)), verb);
    if (verb.empty()) refuseVerb(word);
    throw NotDone("{}: unexpected word {} (see badgemint-admin help{})", name, word, verb);
  }

  [[noreturn]] void refuseVerb(const std::string& word) const {
    throw NotDone("there is no verb {}{} (see badgemint-admin help)", word,
                  suggestion(word, verbNames()));
  }

  static std::vector<std::string> optionsOf(const CLI::App& app) {
    std::vector<std::string> names;
    for (const CLI::Option* const option : app.get_options())
      if (!option->get_positional()) names.push_back(option->get_name());
    return names;
  }

  std::vector<std::string> verbNames() const {
    std::vector<std::string> names;
    for (const CLI::App* const verb : _app.get_subcommands({})) names.push_back(verb->get_name());
    return names;
  }

  ExitStatus printHelp(Console& console) const {
    if (!_helpTopic.empty() && !_runs.contains(_helpTopic)) refuseVerb(_helpTopic);
    const std::string program = _app.get_name();
    if (!_helpTopic.empty())
      console.print("{}", _app.get_subcommand(_helpTopic)->help(program));
    else  // Not CLI::App::help, which would describe the verb `help`.
      console.print("{}",
                    _app.get_formatter()->make_help(&_app, program, CLI::AppFormatMode::Normal));
    return ExitStatus::kAllWell;
  }

  // The words of verbs and options; file names for all other words.
  ExitStatus printCompletion(Console& console) const {
    std::string words;
    for (const CLI::App* const verb : _app.get_subcommands({}))
      words += fmt::format("    {}:-*) words='{}' ;;\n", verb->get_name(),
                           fmt::join(optionsOf(*verb), " "));
    console.print(kCompletion, fmt::join(optionsOf(_app), " "), fmt::join(verbNames(), " "), words);
    return ExitStatus::kAllWell;
  }

  CLI::App _app{"Looks after the files of a badgemint site."};
  std::string _folder;
  std::string _helpTopic;
  std::map<std::string, Run> _runs;  // By the names of the verbs.
};

// Whether standard output is a pipe that nobody reads any more, as with `head`.
bool isReaderGone() {
  struct pollfd output = {STDOUT_FILENO, POLLOUT, 0};
  return poll(&output, 1, 0) == 1 && (output.revents & POLLERR) != 0;
}

}  // namespace

void Options::describe(const char* summary, const char* example) {
  _verb.description(summary);
  _verb.footer(
      fmt::format("Example: {}\nManual: badgemint-admin-{}(1)", example, _verb.get_name()));
}

CLI::Option* Options::flag(const char* option, bool& isSet, const char* help) {
  return _verb.add_flag(option, isSet, help)->disable_flag_override();
}

void Options::filter(const char* option, bool& isSet, const char* help) {
  flag(option, isSet, help)->multi_option_policy(CLI::MultiOptionPolicy::Throw);
}

void Options::text(const char* option, const char* type, std::string& value, const char* help) {
  _verb.add_option(option, value, help)->type_name(type)->check(refuseEmpty)->capture_default_str();
}

void Options::file(const char* option, std::string& path, const char* help) {
  text(option, "FILE", path, help);
}

void Options::texts(const char* option, const char* type, std::vector<std::string>& values,
                    const char* help, int count) {
  CLI::Option* const declared = _verb.add_option(option, values, help);
  declared->type_name(type)->check(refuseEmpty);
  count > 0 ? declared->expected(count) : declared->allow_extra_args(*option != '-');
}

void Options::databases(SitePaths& paths) {
  file("--ident", paths.ident, "The ident database");
  file("--access", paths.access, "The access database");
  formatsAndCardSets(paths);
}

void Options::formatsAndCardSets(SitePaths& paths) {
  file("--cardsets", paths.cardSets, "The card sets file");
  file("--formats", paths.formats, "The formats file");
}

int run(int argc, const char* const* argv, Console& console) noexcept {
  ExitStatus status = ExitStatus::kNotDone;
  try {
    status = CommandLine().run(argc, argv, console);
  } catch (const Failure& failure) {
    console.reportText(failure.what());
    status = failure.status();
  } catch (const std::bad_alloc&) {
    console.reportText("not enough memory");
  } catch (const std::exception& error) {
    console.reportText(error.what());
  }
  if (!console.finish() && !isReaderGone()) {
    console.reportText("standard output cannot be written");
    if (!console.keepsStatus()) status = ExitStatus::kNotDone;
  }
  deliverDeferredSignal();
  return static_cast<int>(status);
}

}  // namespace badgemint::admin
