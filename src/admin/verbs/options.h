// How a verb declares what stands after its name on the command line. It hides the library that
// reads arguments, so that every verb has its options in the same form: an empty value of an option
// is refused everywhere, and help and completion know which values are files.
#ifndef BADGEMINT_ADMIN_VERBS_OPTIONS_H
#define BADGEMINT_ADMIN_VERBS_OPTIONS_H

#include <cstdint>
#include <string>
#include <vector>

#include "admin/files/sitepaths.h"

namespace CLI {
class App;
class Option;
}  // namespace CLI

namespace badgemint::admin {

// The variables handed in receive the values and must outlive the parsing of the arguments; those
// that hold something beforehand show it in help as the default. `type` is how help names a value.
class Options {
 public:
  static constexpr char kFile[] = "FILE", kFolder[] = "FOLDER";  // How help names such values.

  explicit Options(CLI::App& verb) : _verb(verb) {}

  // One line for the list of verbs, and a command as an example for the verb's own help.
  void describe(const char* summary, const char* example);

  CLI::Option* flag(const char* option, bool& isSet, const char* help);
  // A flag that may be given only once.
  CLI::Option* filter(const char* option, bool& isSet, const char* help);
  CLI::Option* number(const char* option, const char* type, uint32_t& value, const char* help);
  CLI::Option* text(const char* option, const char* type, std::string& value, const char* help);
  CLI::Option* file(const char* option, std::string& path, const char* help);

  // An option that may be given several times.
  void texts(const char* option, const char* type, std::vector<std::string>& values,
             const char* help);
  // An option with two values, which are files.
  void filePair(const char* option, const char* type, std::vector<std::string>& paths,
                const char* help);

  // Words without an option. `name` is how help calls them.
  void word(const char* name, const char* type, std::string& value, const char* help);
  void optionalWord(const char* name, const char* type, std::string& value, const char* help);
  void words(const char* name, const char* type, std::vector<std::string>& values,
             const char* help);
  // At least one of them is required.
  void files(const char* name, std::vector<std::string>& paths, const char* help);

  // `option` makes sense only beside `other`, or never beside it.
  static void needs(CLI::Option* option, CLI::Option* other);
  static void excludes(CLI::Option* option, CLI::Option* other);
  // Whether the user has given it, once the arguments are parsed.
  static bool isGiven(const CLI::Option* option);

  // The files of a site that several verbs share.
  void cardsAndFormats(SitePaths& paths);
  void databases(SitePaths& paths);
  void formatsAndCardSets(SitePaths& paths);

 private:
  CLI::App& _verb;
};

}  // namespace badgemint::admin

#endif  // BADGEMINT_ADMIN_VERBS_OPTIONS_H
