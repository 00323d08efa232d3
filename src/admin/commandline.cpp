#include "admin/commandline.h"

#include <unistd.h>

#include <CLI/CLI.hpp>
#include <cerrno>
#include <cstring>
#include <functional>
#include <new>
#include <system_error>

#include "admin/verbs.h"

namespace badgemint::admin {

namespace {

using Action = std::function<ExitStatus(Console&)>;

// The verbs and their options. CLI11 stores what it reads in the option structs here.
class CommandLine {
 public:
  CommandLine() {
    _app.name("badgemint-admin");
    _app.set_version_flag("--version", "badgemint-admin " BADGEMINT_VERSION);
    _app.set_help_flag("--help", "Show what there is to choose from");
    _app.add_option("-C", _folder, "Work as if started in this folder")->type_name("DIR");
    _app.require_subcommand(0, 1);
    addHelp();
    addCheck();
    addBuild();
    addShow();
    addVerify();
    addDiff();
    addDump();
    addPattern();
    addDecode();
    addFormat();
  }

  ExitStatus run(int argc, const char* const* argv, Console& console) {
    try {
      _app.parse(argc, argv);
    } catch (const CLI::CallForVersion& version) {
      console.output() << version.what() << '\n';
      return ExitStatus::kAllWell;
    } catch (const CLI::CallForHelp&) {
      const auto verbs = _app.get_subcommands();
      console.output() << helpOf(verbs.empty() ? _app : *verbs.front());
      return ExitStatus::kAllWell;
    } catch (const CLI::ParseError& wrong) {
      throw Failure(ExitStatus::kNotDone,
                    std::string(wrong.what()) + " (badgemint-admin help tells more)");
    }
    if (!_action)
      throw Failure(ExitStatus::kNotDone, "which verb? (badgemint-admin help names them)");
    if (!_folder.empty() && chdir(_folder.c_str()) != 0)
      throw Failure(ExitStatus::kNotDone, _folder + ": " + std::strerror(errno));
    return _action(console);
  }

 private:
  // Not CLI::App::help, which tells of the verb on the command line whatever it is asked about.
  std::string helpOf(CLI::App& app) const {
    const std::string name =
        &app == &_app ? "badgemint-admin" : "badgemint-admin " + app.get_name();
    return app.get_formatter()->make_help(&app, name, CLI::AppFormatMode::Normal);
  }

  CLI::App* addVerb(const char* name, const char* what, const Action& action) {
    CLI::App* const verb = _app.add_subcommand(name, what);
    verb->set_help_flag("--help", "Show the options of this verb");
    verb->callback([this, action] { _action = action; });
    return verb;
  }

  static CLI::Option* addFile(CLI::App* verb, const char* option, std::string& name,
                              const char* what) {
    return verb->add_option(option, name, what)->type_name("FILE")->capture_default_str();
  }

  static void addInputFiles(CLI::App* verb, SiteNames& site) {
    addFile(verb, "--cards", site.cards, "The input cards file");
    addFile(verb, "--formats", site.formats, "The formats file");
  }

  void addHelp() {
    CLI::App* const verb = addVerb("help", "Show the options of a verb", [this](Console& console) {
      console.output() << helpOf(topic());
      return ExitStatus::kAllWell;
    });
    verb->add_option("VERB", _helpTopic, "Which one");
  }

  // What `help` is asked about.
  CLI::App& topic() {
    if (_helpTopic.empty()) return _app;
    for (CLI::App* const verb : _app.get_subcommands({}))
      if (verb->get_name() == _helpTopic) return *verb;
    throw Failure(ExitStatus::kNotDone, "there is no verb " + _helpTopic);
  }

  void addCheck() {
    CLI::App* const verb =
        addVerb("check", "Name everything that is wrong or dangerous in a site's files",
                [this](Console& console) { return check(_check, console); });
    addInputFiles(verb, _check.site);
    addFile(verb, "--levels", _check.levels, "Check access levels against this file");
    verb->add_flag("--strict", _check.strict, "Warnings count as errors for the exit status");
    verb->add_flag("--all", _check.all, "Print more than 100 findings of one kind");
    verb->add_flag("--with-pins", _check.withPins, "Show PINs");
  }

  void addBuild() {
    CLI::App* const verb =
        addVerb("build", "Replace a site's databases by proved ones, or leave them",
                [this](Console& console) { return build(_build, console); });
    addInputFiles(verb, _build.site);
    addFile(verb, "--ident", _build.site.ident, "The ident database");
    addFile(verb, "--access", _build.site.access, "The access database");
    addFile(verb, "--cardsets", _build.site.cardSets, "The card sets file");
    addFile(verb, "--log", _build.log, "Write the log of the build here; it holds PINs");
    verb->add_option("--level", _build.logLevel, "The highest level that is logged")
        ->type_name("N")
        ->capture_default_str();
    verb->add_option("--max-removed", _build.maxRemoved, "How many holders may be gone at most")
        ->type_name("N or N%")
        ->capture_default_str();
    verb->add_flag("--strict", _build.strict, "Warnings refuse, too");
    verb->add_flag("--allow-empty", _build.allowEmpty, "Also without a single credential");
    verb->add_flag("--dry-run", _build.dryRun, "Do all but replace, and say what would change");
    verb->add_flag("--keep", _build.keep, "Keep the replaced files under .old");
  }

  static void addDatabases(CLI::App* verb, SiteNames& site) {
    addFile(verb, "--ident", site.ident, "The ident database");
    addFile(verb, "--access", site.access, "The access database");
    addFile(verb, "--cardsets", site.cardSets, "The card sets file");
    addFile(verb, "--formats", site.formats, "The formats file");
  }

  void addShow() {
    CLI::App* const verb = addVerb("show", "Show holders with all that they have",
                                   [this](Console& console) { return show(_show, console); });
    verb->add_option("HOLDER", _show.holders, "Unique IDs of holders");
    verb->add_option("--card", _show.cards, "The holder of a card")
        ->type_name("SET:NUMBER")
        ->allow_extra_args(false);
    verb->add_option("--key", _show.keys, "The holder of a credential with this key")
        ->type_name("HEX")
        ->allow_extra_args(false);
    addFile(verb, "--levels", _show.levels, "Tell what access levels open by this file");
    verb->add_option("--at", _show.at, "The time that counts as now, in UTC")
        ->type_name("\"YYYY/MM/DD HH:MM:SS\"");
    addDatabases(verb, _show.site);
    verb->add_flag("--with-pins", _show.withPins, "Show PINs, and find them by their keys");
  }

  void addVerify() {
    CLI::App* const verb = addVerb("verify", "Tell what is wrong with existing databases",
                                   [this](Console& console) { return verify(_verify, console); });
    addFile(verb, "--cards", _verify.cards, "Compare with what a build of this file would make");
    addDatabases(verb, _verify.site);
    verb->add_flag("--all", _verify.all, "Print more than 100 faults of one kind");
    verb->add_flag("--with-pins", _verify.withPins, "Show PINs");
  }

  void addDiff() {
    CLI::App* const verb = addVerb("diff", "Tell what differs between old and new databases",
                                   [this](Console& console) { return diff(_diff, console); });
    verb->add_option("FOLDERS", _diff.folders, "The folder of the old ones and that of the new")
        ->type_name("OLD NEW")
        ->expected(2);
    verb->add_option("--old", _diff.oldFiles, "The old databases, in place of a folder")
        ->type_name("IDENT ACCESS")
        ->expected(2);
    verb->add_option("--new", _diff.newFiles, "The new databases")
        ->type_name("IDENT ACCESS")
        ->expected(2);
    addFile(verb, "--ident", _diff.site.ident, "The ident database in both folders");
    addFile(verb, "--access", _diff.site.access, "The access database in both folders");
    addFile(verb, "--formats", _diff.site.formats, "The formats file");
    addFile(verb, "--cardsets", _diff.site.cardSets, "The card sets file");
    verb->add_flag("--stat", _diff.counts, "Print counts instead of a line for each change");
    verb->add_flag("--with-pins", _diff.withPins, "Show PINs");
  }

  void addDump() {
    CLI::App* const verb = addVerb("dump", "Write the cards file of existing databases",
                                   [this](Console& console) { return dump(_dump, console); });
    addDatabases(verb, _dump.site);
    verb->add_option("--output", _dump.output, "Write here, not to standard output")
        ->type_name("FILE");
    verb->add_flag("--force", _dump.force, "Also over a file that is there");
    verb->add_flag("--with-pins", _dump.withPins, "With the PINs, as a build needs them");
  }

  void addPattern() {
    CLI::App* const verb = addVerb("pattern", "Show what readers deliver for cards, bit by bit",
                                   [this](Console& console) { return pattern(_pattern, console); });
    verb->add_option("WORDS", _pattern.words, "A card set, and card numbers of it")
        ->type_name("SET NUMBER ...");
    CLI::Option* const format =
        verb->add_option("--format", _pattern.format, "Without a card set: the format of the cards")
            ->type_name("FILE");
    verb->add_option("--set", _pattern.values, "The values of its fields")
        ->type_name("\"A=101 B=7\"")
        ->needs(format);
    addFile(verb, "--formats", _pattern.site.formats, "The formats file");
    addFile(verb, "--cardsets", _pattern.site.cardSets, "The card sets file");
  }

  void addDecode() {
    CLI::App* const verb = addVerb("decode", "Tell which cards have these bits",
                                   [this](Console& console) { return decode(_decode, console); });
    verb->add_option("BITS", _decode.word, "The bits of a card, or its key in hexadecimal")
        ->type_name("BITS|KEY")
        ->required();
    addFile(verb, "--formats", _decode.site.formats, "The formats file");
    addFile(verb, "--cardsets", _decode.site.cardSets, "The card sets file");
    addFile(verb, "--ident", _decode.site.ident, "The ident database, for the holder")
        ->each([this](const std::string&) { _decode.needsIdent = true; });
  }

  void addFormat() {
    CLI::App* const verb = addVerb("format", "Show format files so that two can be compared",
                                   [this](Console& console) { return format(_format, console); });
    verb->add_option("FILE", _format.files, "CDF, EFF and VFF files")->required();
  }

  CLI::App _app{"Looks after the files of a badgemint site."};
  std::string _folder;
  std::string _helpTopic;
  Action _action;
  CheckOptions _check;
  BuildOptions _build;
  ShowOptions _show;
  VerifyOptions _verify;
  DiffOptions _diff;
  DumpOptions _dump;
  PatternOptions _pattern;
  DecodeOptions _decode;
  FormatOptions _format;
};

ExitStatus runGuarded(int argc, const char* const* argv, Console& console) noexcept {
  try {
    return CommandLine().run(argc, argv, console);
  } catch (const Failure& failure) {
    console.complain(failure.what());
    return failure.status();
  } catch (const std::bad_alloc&) {
    console.complain("not enough memory");
  } catch (const std::exception& wrong) {
    console.complain(wrong.what());
  }
  return ExitStatus::kNotDone;
}

}  // namespace

int run(int argc, const char* const* argv, Console& console) noexcept {
  ExitStatus status = runGuarded(argc, argv, console);
  if (!console.finish()) {
    console.complain("standard output cannot be written");
    if (!console.keepsStatus()) status = ExitStatus::kNotDone;
  }
  return static_cast<int>(status);
}

}  // namespace badgemint::admin
