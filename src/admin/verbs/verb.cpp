#include "admin/verbs/verb.h"

#include <CLI/CLI.hpp>

#include "admin/arguments.h"

namespace badgemint::admin {

namespace {

constexpr char kFile[] = "FILE";  // How help names a value that is a file.

// An unset variable of a script must not be taken for an option that was not given.
std::string refuseEmpty(const std::string& value) {
  return value.empty() ? "the value is empty" : "";
}

std::string refuseOtherThanNumber(const std::string& value) {
  return numberOf(value) ? "" : '"' + value + "\" is not a number";
}

CLI::Option* valued(CLI::Option* option, const char* type) {
  return option->type_name(type)->check(CLI::Validator(refuseEmpty, ""));
}

}  // namespace

void Options::describe(const char* summary, const char* example) {
  _verb.description(summary);
  _verb.footer(std::string("Example: ") + example + "\nManual: badgemint-admin-" +
               _verb.get_name() + "(1)");
}

CLI::Option* Options::flag(const char* option, bool& isSet, const char* help) {
  return _verb.add_flag(option, isSet, help)->disable_flag_override();
}

CLI::Option* Options::filter(const char* option, bool& isSet, const char* help) {
  return flag(option, isSet, help)->multi_option_policy(CLI::MultiOptionPolicy::Throw);
}

CLI::Option* Options::number(const char* option, const char* type, uint32_t& value,
                             const char* help) {
  return valued(_verb.add_option(option, value, help), type)
      ->check(CLI::Validator(refuseOtherThanNumber, ""))
      ->capture_default_str();
}

CLI::Option* Options::text(const char* option, const char* type, std::string& value,
                           const char* help) {
  return valued(_verb.add_option(option, value, help), type)->capture_default_str();
}

CLI::Option* Options::file(const char* option, std::string& path, const char* help) {
  return text(option, kFile, path, help);
}

CLI::Option* Options::texts(const char* option, const char* type, std::vector<std::string>& values,
                            const char* help) {
  return valued(_verb.add_option(option, values, help), type)->allow_extra_args(*option != '-');
}

void Options::filePair(const char* option, const char* type, std::vector<std::string>& paths,
                       const char* help) {
  valued(_verb.add_option(option, paths, help), type)->expected(2);
}

void Options::files(const char* name, std::vector<std::string>& paths, const char* help) {
  texts(name, kFile, paths, help)->required();
}

void Options::needs(CLI::Option* option, CLI::Option* other) {
  option->needs(other);
}

bool Options::isGiven(const CLI::Option* option) {
  return option->count() > 0;
}

void Options::cardsAndFormats(SitePaths& paths) {
  file("--cards", paths.cards, "The cards file");
  file("--formats", paths.formats, "The formats file");
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

}  // namespace badgemint::admin
