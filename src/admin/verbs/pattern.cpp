// The verb `pattern`: what a reader sends for cards of these numbers, bit by bit.
#include <cerrno>

#include "admin/bits/cards.h"
#include "admin/verbs/verb.h"
#include "support/result.h"

namespace badgemint::admin {

namespace {

struct PatternOptions {
  SitePaths site;
  std::string cards;               // A cards file that defines the card sets; empty for none.
  std::string format;              // A format file, in place of a site; empty for none.
  std::string values;              // Of its fields, such as "A=101 B=7".
  std::vector<std::string> words;  // A card set, unless there is a format file; card numbers.
};

// Reads the card sets from the 'f' lines of a cards file.
void readCardSets(const std::string& path, SiteCards& site, Console& console) {
  requireRegularFile(path);
  LineReader reader;
  throwErrnoUnless(reader.open(path.c_str()), path);
  while (reader.readLine(kMaxInputLine) == LineReader::Status::kLine) {
    const int64_t number = reader.lineNumber();
    if (*reader.line() == kFieldsLine && reader.bytesBefore() == 0 &&
        site.defineCardSet({reader.line(), static_cast<int32_t>(number)}) != kSuccess)
      console.report("{}:{}: this line does not define a card set", path, number);
  }
  throwErrnoUnless(!reader.failed(), path);
}

// Prints the cards of these numbers and reports words that are not card numbers. `name` is the card
// set and format, or the format file.
ExitStatus printCards(std::span<const std::string> numbers, const CardEncoder& encoder,
                      const std::string& name, Console& console) {
  const CardLayout layout(*encoder.format);
  ExitStatus status = ExitStatus::kAllWell;
  const char* separator = "";
  for (const std::string& word : numbers) try {
      const CardPattern card = encodeWord(encoder, word);
      console.print("{}card  {}   {}   {} bits\nmask  {}\nbits  {}\nkey   {}\n",
                    std::exchange(separator, "\n"), encoder.decode(card), name, layout.count(),
                    layout.mergedRow(), layout.bitsOf(card), keyText(card));
    } catch (const Failure& failure) {
      console.report("{}", failure.what());
      status = ExitStatus::kRefused;
    }
  return status;
}

ExitStatus printCardsOfSet(const PatternOptions& options, Console& console) {
  SitePaths paths = options.site;
  paths.ident = paths.access = "";
  const bool hasSets = options.cards.empty();
  if (!hasSets)
    paths.cardSets = "";
  else if (access(paths.cardSets.c_str(), F_OK) != 0 && errno == ENOENT)
    throw NotDone("{} does not exist: a build writes it; until then give --cards and a cards file",
                  paths.cardSets);
  const Site site(paths, {.formats = true}, &console);
  if (!hasSets) readCardSets(options.cards, site.siteCards(), console);
  const cardsets& sets = hasSets ? site.sets() : site.siteCards().cardSets();
  const std::string& set = options.words.front();
  const CardEncoder encoder = encoderOfSet(set, sets, site.formats());
  const auto listed =
      std::ranges::find(site.formats().formats, encoder.format, &CheckedFormat::format);
  return printCards(
      std::span(options.words).subspan(1), encoder,
      fmt::format("set {}   format {} {}", *numberOf(set), listed->id, printable(listed->fileName)),
      console);
}

ExitStatus printCardsOfFormat(const PatternOptions& options, Console& console) {
  CardFormatSet formats;
  CheckedFormat checked;
  Findings findings, ofValues;
  checkFormatFile(options.format, checked, formats, findings);
  if (checked.format == nullptr) {
    const Finding error = findings.sorted().front();
    throw NotDone("{}: {}", findings.placeText(error.place), error.text);
  }
  const auto values = readSiteValues(options.values, *checked.format, ofValues);
  if (!values) throw Refused("--set is refused: {}", ofValues.sorted().front().text);
  for (const Finding& finding : ofValues.sorted()) console.report("{}", finding.text);
  return printCards(options.words, {checked.format, checked.format->encodeSite(*values)},
                    printable(options.format), console);
}

ExitStatus pattern(const PatternOptions& options, Console& console) {
  const bool hasSite = options.format.empty();
  if (hasSite && !options.values.empty()) throw NotDone("--set needs --format");
  if (options.words.size() < (hasSite ? 2 : 1))
    throw NotDone("{}", hasSite ? "give a card set, then one or more card numbers"
                                : "give one or more card numbers");
  return hasSite ? printCardsOfSet(options, console) : printCardsOfFormat(options, console);
}

}  // namespace

Run addPattern(Options options) {
  const auto given = std::make_shared<PatternOptions>();
  options.describe("Show what readers send for cards, bit by bit",
                   "badgemint-admin pattern 1 15890");
  options.texts("WORDS", "", given->words, "A card set, and card numbers of it");
  options.file("--format", given->format, "Without a card set: the format of the cards");
  options.text("--set", "\"A=101 B=7\"", given->values, "The values of its fields");
  options.file("--cards", given->cards, "Before the first build: a cards file with the card sets");
  options.formatsAndCardSets(given->site);
  return [given](Console& console) { return pattern(*given, console); };
}

}  // namespace badgemint::admin
