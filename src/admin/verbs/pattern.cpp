// The verb `pattern`: what a reader sends for cards of these numbers, bit by bit.
#include <algorithm>
#include <memory>
#include <span>
#include <utility>

#include "admin/arguments.h"
#include "admin/bits/cards.h"
#include "admin/bits/layout.h"
#include "admin/check/formatscheck.h"
#include "admin/check/sitecheck.h"
#include "admin/records/site.h"
#include "admin/records/wording.h"
#include "admin/verbs/verb.h"

namespace badgemint::admin {

namespace {

struct PatternOptions {
  SitePaths site;
  std::string format;              // A format file, in place of a site; empty for none.
  std::string values;              // Of its fields, such as "A=101 B=7".
  std::vector<std::string> words;  // A card set, unless there is a format file; card numbers.
};

// The cards of one site, and what the first line of each prints after its number.
struct Cards {
  CardEncoder encoder;
  std::string name;
};

Cards cardsOfSet(const std::string& set, const SitePaths& names, Site& site, Console& console) {
  tellOfCutShort({names.cardSets}, console);
  site.loadFormats(names.formats);
  site.loadCardSets(names.cardSets, console);
  const CardEncoder encoder = encoderOfSet(set, site);
  const uint32_t csid = *numberOf(set), fmtid = encoder.format->getFormatID();
  const auto listed = std::ranges::find(site.formats(), encoder.format, &CheckedFormat::format);
  return {encoder, fmt::format("set {}   format {} {}", csid, fmtid, printable(listed->fileName))};
}

CardFormat::FieldValues valuesOf(const std::string& text, const CardFormat& format,
                                 Console& console) {
  Findings findings;
  const auto values = readSiteValues(text, format, findings);
  if (!values)
    throw Failure(ExitStatus::kRefused, "--set is refused: {}", findings.sorted().front().text);
  for (const Finding& finding : findings.sorted()) console.report("{}", finding.text);
  return *values;
}

Cards cardsOfFile(const PatternOptions& options, CardFormatSet& formats, Console& console) {
  Findings findings;
  const CardFormat* const format = checkFormatAlone(options.format, formats, findings);
  if (format == nullptr) {
    const Finding error = findings.sorted().front();
    throw Failure(ExitStatus::kNotDone, "{}: {}", findings.placeText(error.place), error.text);
  }
  return {{format, format->encodeSite(valuesOf(options.values, *format, console))},
          printable(options.format)};
}

void print(const NumberedCard& card, const Cards& cards, Console& console) {
  const CardLayout layout(*cards.encoder.format);
  console.print("card  {}   {}   {} bits\n", card.number, cards.name, layout.count());
  console.print("mask  {}\n", layout.mergedRow());
  console.print("bits  {}\n", layout.bitsOf(card.pattern));
  console.print("key   {}\n", keyText(card.pattern));
}

// Prints the cards of these numbers, and reports words that are none. Returns whether all are.
bool printCards(std::span<const std::string> numbers, const Cards& cards, Console& console) {
  bool areAll = true;
  const char* separator = "";
  for (const std::string& word : numbers) {
    try {
      const NumberedCard card = encodeWord(cards.encoder, word);
      console.print("{}", std::exchange(separator, "\n"));
      print(card, cards, console);
    } catch (const Failure& failure) {
      console.report("{}", failure.what());
      areAll = false;
    }
  }
  return areAll;
}

ExitStatus pattern(const PatternOptions& options, Console& console) {
  const std::span<const std::string> words = options.words;
  const bool hasSite = options.format.empty();
  if (words.size() < (hasSite ? 2 : 1))
    throw Failure(ExitStatus::kNotDone, "{}",
                  hasSite ? "give a card set, then one or more card numbers"
                          : "give one or more card numbers");
  Site site;
  CardFormatSet formats;
  const Cards cards = hasSite ? cardsOfSet(words.front(), options.site, site, console)
                              : cardsOfFile(options, formats, console);
  const bool areAll = printCards(words.subspan(hasSite ? 1 : 0), cards, console);
  return areAll ? ExitStatus::kAllWell : ExitStatus::kRefused;
}

}  // namespace

Run addPattern(Options options) {
  const auto given = std::make_shared<PatternOptions>();
  options.describe("Show what readers send for cards, bit by bit",
                   "badgemint-admin pattern 1 15890");
  options.words("WORDS", "SET NUMBER ...", given->words, "A card set, and card numbers of it");
  CLI::Option* const format =
      options.file("--format", given->format, "Without a card set: the format of the cards");
  CLI::Option* const values =
      options.text("--set", "\"A=101 B=7\"", given->values, "The values of its fields");
  Options::needs(values, format);
  options.formatsAndCardSets(given->site);
  return [given](Console& console) { return pattern(*given, console); };
}

}  // namespace badgemint::admin
