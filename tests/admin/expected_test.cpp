// What a build makes of a site, known three times over: the proof, verify --cards and dump agree on
// every site that builds, whatever its layouts are, and on every site that was changed since. The
// bits and the key that pattern prints are those of the card for decode.
#include <regex>

#include "admin/buildsite.h"
#include "admin/records/expected.h"

namespace badgemint::admin::expected_test {

// Why the databases are not proved; empty when they are.
std::string objection() {
  try {
    prove({"cards", "formats", "ident", "access", "cardsets"});
  } catch (const Failure& failure) {
    return failure.what();
  }
  return "";
}

class RandomSite : public TestSite {
 public:
  explicit RandomSite(unsigned seed) : _random(seed) { writeFormat("26.cdf", layout()); }

  // A cards file that builds; a holder's PIN is 5 and the unique ID, and 6 and the unique ID.
  std::string cards() {
    std::string text = "f 1 1 A=" + std::to_string(pick(1000)) +
                       "\nf 2 2\nf 9 2 B=4\nc 2 77 577 999" + holder() + " 1\n";
    for (unsigned id = 1000; id < 1006; ++id) {
      const std::string number = std::to_string(id), pin = " 5" + number + ' ' + number;
      const unsigned kind = pick(4);
      const char* const kinds[] = {"c 1 ", "c 2 ", "n 0 ", "p"};
      text += kinds[kind] + (kind < 3 ? number : "") + pin + holder() + (kind < 3 ? " 0\n" : "\n");
      if (kind < 3 && pick(2) == 0) text += "o 6" + number + ' ' + number + '\n';
    }
    return text + "d 1 " + std::to_string(pick(2000)) + " 1 2000 70000\n";
  }
  // Changes the databases in a way that no build would. Returns whether only their order changes.
  bool change() {
    std::string ident = contentOf("ident"), access = contentOf("access");
    std::string& any = pick(2) ? ident : access;
    const unsigned way = pick(6);
    if (way == 0) std::swap_ranges(&access[44], &access[88], &access[88]);
    if (way == 1) any.append(any, 28 * pick(5), 28);
    if (way == 2) any.resize(any.size() - 1 - pick(50));
    if (way > 2) any[pick(any.size())] ^= static_cast<char>(1 << pick(8));
    writeFile("ident", ident);
    writeFile("access", access);
    return way == 0;
  }

 private:
  // A card number of 13 bits among positions that are used by a site value, parity, a fixed bit or
  // nothing at all; fixed bits and parity may cover the site value.
  FormatLines layout() {
    std::string output(pick(35), ' '), fixed, even, odd;
    for (char& position : output) position = "AAP..."[pick(6)];
    output.insert(pick(output.size() + 1), 13, 'B');
    for (const char position : output) {
      const bool isNumber = position == 'B';
      fixed += isNumber ? '.' : "....01"[pick(6)];
      even += isNumber ? "X."[pick(2)] : "XX..E"[pick(5)];
      odd += isNumber ? "X."[pick(2)] : "X...O"[pick(5)];
    }
    return {output, fixed, even, odd};
  }
  // Levels, flags, escort, validity, elevator and relay group.
  std::string holder() {
    const char* const kHolders[] = {
        " 1 2 3 4 5 6 7 65535 1 0 1 999 2010/2/3 1:2:3 2037/12/31 0 255 1",
        " 70000 -1 0 0 0 0 0 0 7 x 0 0 0 0 1999/31/31 0 256 -1",
        " 1 0 0 0 0 0 0 0 0 0 0 0 0 0 0 0 0 0"};
    return kHolders[pick(3)];
  }
  unsigned pick(size_t below) { return static_cast<unsigned>(_random() % below); }
  std::mt19937 _random;
};

TEST(ExpectedRecords, AreThoseOfEverySiteThatBuilds) {
  int built = 0;
  for (unsigned seed = 0; seed < 250 && !HasFailure(); ++seed) {
    RandomSite random(seed);
    SCOPED_TRACE(seed);
    if (buildCards(random.cards()) < 0) continue;  // Some layouts lose a bit of the number.
    EXPECT_EQ(objection(), "");
    const AdminRun verified = runAdmin("verify --cards cards" + kSite);
    EXPECT_EQ(verified.output.substr(0, 9), "no faults") << verified.output;
    const std::string files = " --formats formats --cardsets cardsets",
                      pattern = runAdmin("pattern 1 2000" + files).output;
    if (pattern.empty()) continue;  // Another number loses a bit.
    ++built;
    std::istringstream words(pattern.substr(pattern.find("\nbits ")));
    std::string name, bits, key;
    words >> name >> bits >> name >> key;
    for (const std::string& word : {bits, "0x" + key})
      EXPECT_TRUE(contains(runAdmin("decode " + word + files).output, "26.cdf: card 2000")) << word;

    // A dump builds the same databases, or reports that it does not.
    const bool isReordered = seed % 4 != 0 && random.change(), isProved = objection().empty();
    const std::string ident = contentOf("ident"), access = contentOf("access");
    EXPECT_EQ(runAdmin("verify --cards cards" + kSite).status, isProved || isReordered ? 0 : 2);
    const AdminRun hidden = runAdmin("dump" + kSite), dump = runAdmin("dump --with-pins" + kSite);
    const bool isSame = buildCards(dump.output) == 0 && contentOf("ident") == ident &&
                        contentOf("access") == access;
    EXPECT_EQ(dump.status, isSame ? 0 : 1) << dump.output;
    EXPECT_EQ(dump.errors.empty(), isSame) << dump.errors;
    EXPECT_EQ(hidden.status, dump.status);
    EXPECT_FALSE(std::regex_search(hidden.output, std::regex(" [56]100. "))) << "a PIN";
    EXPECT_LT(buildCards(hidden.output), 0);
  }
  EXPECT_GT(built, 120);
}

TEST(ExpectedRecords, ProveEveryByte) {
  const TestSite site;
  ASSERT_EQ(buildCards(kNewCards), 0);
  for (const char* const name : {"ident", "access", "cardsets"}) {
    const std::string good = contentOf(name);
    std::vector<std::string> wrong = {good + good, good.substr(0, good.size() / 2)};
    for (size_t i = 0; i < good.size(); ++i)  // Blanks of the card sets file may differ.
      if (good[i] != ' ' && good[i] != '\n') wrong.emplace_back(good)[i] ^= 1;
    for (const std::string& bad : wrong) {
      writeFile(name, bad);
      EXPECT_NE(objection(), "") << name << ": " << bad;
    }
    writeFile(name, good);
    EXPECT_EQ(objection(), "");
  }
}

}  // namespace badgemint::admin::expected_test
