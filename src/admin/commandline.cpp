#include "admin/commandline.h"

#include <poll.h>
#include <unistd.h>

#include <CLI/CLI.hpp>
#include <cerrno>
#include <cstring>
#include <new>
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
    {"check", addCheck},     {"build", addBuild},   {"show", addShow},
    {"verify", addVerify},   {"diff", addDiff},     {"dump", addDump},
    {"pattern", addPattern}, {"decode", addDecode}, {"format", addFormat},
};

// Reads the arguments and runs the verb they name.
class CommandLine {
 public:
  CommandLine() {
    _app.name("badgemint-admin");
    _app.set_version_flag("--version", "badgemint-admin " BADGEMINT_VERSION);
    _app.set_help_flag("--help", "Show the verbs and the options that they share");
    _app.add_option("-C", _folder, "Work as if started in this folder")->type_name("DIR");
    _app.require_subcommand(0, 1);
    addHelp();
    for (const VerbEntry& entry : kVerbs) {
      CLI::App* const verb = addSubcommand(entry.name);
      const Run run = entry.add(Options(*verb));
      verb->callback([this, run] { _run = run; });
    }
  }

  ExitStatus run(int argc, const char* const* argv, Console& console) {
    try {
      _app.parse(argc, argv);
    } catch (const CLI::CallForVersion& version) {
      console.print("{}\n", version.what());
      return ExitStatus::kAllWell;
    } catch (const CLI::CallForHelp&) {
      const auto verbs = _app.get_subcommands();
      console.print("{}", helpOf(verbs.empty() ? _app : *verbs.front()));
      return ExitStatus::kAllWell;
    } catch (const CLI::ParseError& wrong) {
      throw Failure(ExitStatus::kNotDone, "{} (see badgemint-admin help)", wrong.what());
    }
    if (!_run)
      throw Failure(ExitStatus::kNotDone, "no verb given (badgemint-admin help lists them)");
    if (!_folder.empty() && chdir(_folder.c_str()) != 0)
      throw Failure(ExitStatus::kNotDone, "{}: {}", _folder, std::strerror(errno));
    return _run(console);
  }

 private:
  // Not CLI::App::help, which describes the verb on the command line whatever it is asked about.
  std::string helpOf(CLI::App& app) const {
    const std::string name =
        &app == &_app ? "badgemint-admin" : "badgemint-admin " + app.get_name();
    return app.get_formatter()->make_help(&app, name, CLI::AppFormatMode::Normal);
  }

  CLI::App* addSubcommand(const char* name) {
    CLI::App* const verb = _app.add_subcommand(name);
    verb->set_help_flag("--help", "Show the options of this verb");
    return verb;
  }

  void addHelp() {
    CLI::App* const verb = addSubcommand("help");
    verb->description("Show the options of a verb");
    verb->add_option("VERB", _helpTopic, "The verb; without it, all of them are listed");
    verb->callback([this] {
      _run = [this](Console& console) {
        console.print("{}", helpOf(helpTopic()));
        return ExitStatus::kAllWell;
      };
    });
  }

  CLI::App& helpTopic() {
    if (_helpTopic.empty()) return _app;
    for (CLI::App* const verb : _app.get_subcommands({}))
      if (verb->get_name() == _helpTopic) return *verb;
    throw Failure(ExitStatus::kNotDone, "there is no verb {}", _helpTopic);
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

// Whether standard output is a pipe that nobody reads any more, as behind `head`.
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
