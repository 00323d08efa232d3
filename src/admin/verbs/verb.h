// The verbs of badgemint-admin, and how a verb declares its options. Each verb has a file here.
// Only commandline.cpp uses the argument parser, so all options have one form and none accepts an
// empty value.
#ifndef BADGEMINT_ADMIN_VERBS_VERB_H
#define BADGEMINT_ADMIN_VERBS_VERB_H

#include <algorithm>
#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "admin/files/folder.h"
#include "admin/records/wording.h"
#include "cardsets/card_functions.h"

namespace CLI {
class App;
class Option;
}  // namespace CLI

namespace badgemint::admin {

// The variables handed in receive the values and must outlive the parsing of the arguments; those
// that hold something beforehand show it in help as the default. `type` is how help names a value.
class Options {
 public:
  explicit Options(CLI::App& verb) : _verb(verb) {}

  // One line for the list of verbs, and a command as an example for the verb's own help.
  void describe(const char* summary, const char* example);

  CLI::Option* flag(const char* option, bool& isSet, const char* help);
  // A flag that may be given only once.
  void filter(const char* option, bool& isSet, const char* help);
  // A text, or a word without an option; `option` then is how help calls it.
  void text(const char* option, const char* type, std::string& value, const char* help);
  void file(const char* option, std::string& path, const char* help);

  // An option that may be given several times, or any number of words; or this number of values.
  void texts(const char* option, const char* type, std::vector<std::string>& values,
             const char* help, int count = 0);

  // The files of a site that several verbs share.
  void databases(SitePaths& paths);
  void formatsAndCardSets(SitePaths& paths);

 private:
  CLI::App& _verb;
};

// Words that several verbs accept: keys, numbers, times, card sets and cards.

// A key of 1 to 32 hexadecimal digits, with or without "0x"; zeros at its end may be missing. None
// for any other word.
std::optional<CardPattern> keyOfHex(std::string_view word);

// A decimal number of 32 bits, digits alone. None for any other word.
std::optional<uint32_t> numberOf(std::string_view word);

// The encoder for the cards of a card set. Throws Failure (refused) when there is no such card set,
// or its format is missing.
CardEncoder encoderOfSet(std::string_view set, const cardsets& sets, const CheckedFormats& formats);

// Words of the command line. Throw Failure: not done for a word that cannot be one, refused for a
// card that the site does not have.
uint32_t parseHolder(const std::string& word);
CardPattern parseKey(const std::string& word);
// "1:15890".
CardPattern parseCard(const std::string& word, const Site& site);
// The value of `option`, digits alone; 0 when it was not given.
uint32_t parseNumber(const char* option, const std::string& word, uint32_t most);
// The value of `option`, such as "2026/01/31 18:00:00", which is UTC, as seconds since 1970; the
// clock when it was not given.
uint32_t parseTimeOrNow(const char* option, const std::string& word);

// Chooses holders.
using HolderTest = std::function<bool(const Holder&)>;
// Those with a credential for which `test` is true.
template <typename Test>
HolderTest anyCredential(Test test) {
  return [test](const Holder& holder) { return std::ranges::any_of(holder.credentials, test); };
}
// Chooses credentials. PINs are found by their keys only with --with-pins: nobody can try them out
// otherwise.
inline auto hasKey(const CardPattern& key, bool withPins) {
  return [key, withPins](const IdentRecord& record) {
    return record.cardnumber == key && (withPins || !isPinEntry(record));
  };
}

// Runs a verb after its options have been parsed. It returns the exit status, and may throw Failure
// and what the standard library throws.
using Run = std::function<ExitStatus(Console&)>;

// Each declares the options of its verb; the function returned holds their values.
Run addBuild(Options options);
Run addCheck(Options options);
Run addDecode(Options options);
Run addDiff(Options options);
Run addDump(Options options);
Run addFormat(Options options);
Run addList(Options options);
Run addPattern(Options options);
Run addShow(Options options);
Run addVerify(Options options);
Run addWhy(Options options);

// Does what the arguments ask for and returns the exit status of the program. `-C DIR` changes the
// current folder of the process. Throws nothing.
int run(int argc, const char* const* argv, Console& console) noexcept;

}  // namespace badgemint::admin

#endif  // BADGEMINT_ADMIN_VERBS_VERB_H
