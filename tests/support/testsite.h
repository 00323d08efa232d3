// A small site in the current folder: two formats, and whatever cards a test gives it.
#ifndef BADGEMINT_TESTS_SUPPORT_TESTSITE_H
#define BADGEMINT_TESTS_SUPPORT_TESTSITE_H

#include "formats/formatfile.h"
#include "inputcards/inputcards.h"

namespace badgemint {

// Runs the stages of a build on these lines, in the current folder, and returns its result. Between
// its passes, text can be appended to the lines.
inline int32_t buildCards(const std::string& cards, const std::string& ident = "ident",
                          const std::string& appended = "") {
  for (const char* const name : {"ident", "access", "cardsets"}) fs::remove(name);
  writeFile("cards", cards);
  InputCards loader("cards", ident.c_str(), "access", "cardsets");
  int32_t result = loader.isInitialised() ? loader.loadFormats("", "formats") : -1;
  if (result == 0) result = loader.pass1();
  if (!appended.empty()) std::ofstream("cards", std::ios::app) << appended;
  if (result == 0) result = loader.pass2();
  return result;
}

// What an entry function logged between its start and its end.
inline std::string logOf(const std::string& name, unsigned pause, int32_t result) {
  EXPECT_EQ(takeSleeps(), std::vector{pause});
  const std::string log = contentOf("log"), module = "[0 badgemintdump] " + name;
  const std::string start = module + " version " BADGEMINT_VERSION "\n";
  const std::string end = module + " Complete, result=" + std::to_string(result) + "\n";
  EXPECT_TRUE(log.starts_with(start) && log.ends_with(end)) << log;
  return log.substr(start.size(), log.size() - start.size() - end.size());
}

// Format 1 is 26 bits with an 8-bit facility code and a 16-bit number between parity bits; format 2
// is a 32-bit number alone.
struct TestSite {
  explicit TestSite(const char* formats = "formats") {
    writeFormat("26.cdf",
                {"PAAAAAAAABBBBBBBBBBBBBBBBP", "", "EXXXXXXXXXXXX", ".............XXXXXXXXXXXXO"});
    writeFormat("32.cdf", {std::string(32, 'B')});
    takeSleeps();  // Of tests before.
    writeFile(formats, "1 26.cdf\n2 = dir/32.cdf # wide\n");
  }
  static void writeFormat(const char* name, const FormatLines& masks) {
    writeFile(name, fileOf("CDF", linesOf("CDF", masks)));
  }
};

}  // namespace badgemint

#endif  // BADGEMINT_TESTS_SUPPORT_TESTSITE_H
