// The verbs of badgemint-admin over files that may hold anything. Input: a line of arguments,
// separated by blanks; the card sets file, the cards file and a CDF file, each ended by a line "=";
// a byte with the number of ident records, these, and the access database. The formats of the other
// targets are 1 and 2, the CDF file is 3.
#include <sstream>
#include <vector>

#include "admin/verbs/verb.h"
#include "carddb/identrecord.h"
#include "fuzz.h"

namespace badgemint {
namespace {

constexpr const char* kDatabases[] = {"ident.db", "access.db", "cardsets.txt", "formats.txt"};

void writeSite(std::string_view input) {
  for (const auto& entry : std::filesystem::directory_iterator("."))
    std::filesystem::remove_all(entry.path());
  FormatsFolder::writeFormatFiles();
  WorkFolder::write("cardsets.txt", takeUntil(input, "=\n"));
  WorkFolder::write("cards.txt", takeUntil(input, "=\n"));
  const std::string_view format = takeUntil(input, "=\n");
  WorkFolder::write("any.cdf", format);
  WorkFolder::write("formats.txt",
                    std::string("1 bin.cdf\n2 bcd.cdf\n") + (format.empty() ? "" : "3 any.cdf\n"));
  const size_t records = input.empty() ? 0 : static_cast<uint8_t>(input.front());
  const std::string_view databases = input.substr(input.empty() ? 0 : 1);
  const std::string_view idents = databases.substr(0, records * IdentRecord::kSize);
  WorkFolder::write("ident.db", idents);
  WorkFolder::write("access.db", databases.substr(idents.size()));
}

std::string contents() {
  std::string all;
  for (const char* const name : kDatabases) all += WorkFolder::read(name) + '|';
  return all;
}

void requireReadable(const std::string& text) {
  for (const char c : text) require((c >= ' ' && c <= '~') || c == '\n', "a text can be read");
}

void runVerb(std::string_view line) {
  std::istringstream words{std::string(line)};
  std::vector<std::string> arguments = {"badgemint-admin"};
  for (std::string word; words >> word;) arguments.push_back(word);
  std::vector<const char*> argv;
  for (const std::string& argument : arguments) argv.push_back(argument.c_str());
  const std::string before = contents();

  std::ostringstream output, errors;
  admin::Console console(output, errors, {});
  const int status = admin::run(static_cast<int>(argv.size()), argv.data(), console);
  require(status >= 0 && status <= 3, "a status is one of four");
  require(status < 3 || !errors.str().empty(), "what keeps a verb from its work is said");
  requireReadable(output.str() + errors.str());
  if (line.find("build") == line.npos && line.find("output") == line.npos)
    require(contents() == before, "nothing is changed");
}

}  // namespace
}  // namespace badgemint

int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  using namespace badgemint;
  static const WorkFolder folder;
  std::string_view input = textOf(data, size);
  const std::string_view line = takeUntil(input, "\n");
  for (const char* const elsewhere : {"/", "..", "-C"})
    if (line.find(elsewhere) != line.npos) return 0;
  writeSite(input);
  runVerb(line);
  return 0;
}
