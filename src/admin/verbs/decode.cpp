// The verb `decode`: which cards the bits that a reader sent can be, in the formats of a site.
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <functional>
#include <memory>
#include <optional>
#include <set>
#include <stdexcept>
#include <vector>

#include "admin/bits/cards.h"
#include "admin/check/sitecheck.h"
#include "admin/files/folder.h"
#include "admin/records/site.h"
#include "admin/records/wording.h"
#include "admin/verbs/verb.h"
#include "cardsets/card_functions.h"
#include "support/textutil.h"

namespace badgemint::admin {

namespace {

constexpr size_t kMostNamesakes = 10;

struct DecodeOptions {
  SitePaths site;
  bool needsIdent = false;         // The ident database may be missing unless it was asked for.
  std::vector<std::string> words;  // Bits, or a key: one.
  std::string decimal;             // The value of the bits, in place of a word; empty for none.
  bool json = false;
};

// What readers and controllers print of a card: bits, or a key, or a decimal number.
struct CardInput {
  std::string bits{};               // '0' and '1'.
  std::vector<CardPattern> keys{};  // From a key with an odd number of digits there are two.
  std::string value{};              // The bits of the key or number without leading zeros.
};

// The bits of a number without leading zeros. None for what is not a number of up to 128 bits.
std::optional<std::string> bitsOfNumber(std::string_view digits, unsigned base) {
  __extension__ using Value = unsigned __int128;
  Value value = 0;
  for (const char c : digits) {
    const auto digit = static_cast<unsigned>(isDigit(c) ? c - '0' : (c | 0x20) - 'a' + 10);
    if (digit >= base || value > (~Value{0} - digit) / base) return std::nullopt;
    value = value * base + digit;
  }
  std::string bits;
  for (; value != 0 || bits.empty(); value /= 2) bits += value % 2 == 0 ? '0' : '1';
  std::ranges::reverse(bits);
  return bits;
}

CardInput parseInput(const DecodeOptions& options) {
  if (!options.decimal.empty()) {
    const auto value = bitsOfNumber(options.decimal, 10);
    if (value) return {.value = *value};
    throw Failure(ExitStatus::kRefused, "--decimal {} is not a decimal number of up to 128 bits",
                  inQuotes(options.decimal));
  }
  std::string digits = options.words.front();
  std::erase_if(digits,
                [](char c) { return std::string_view(" :-_").find(c) != std::string::npos; });
  const bool hasPrefix = digits.starts_with("0b") || digits.starts_with("0B");
  const std::string bits = digits.substr(hasPrefix ? 2 : 0);
  if (!bits.empty() && bits.find_first_not_of("01") == std::string::npos) return {.bits = bits};
  const auto key = keyOfHex(digits);
  if (!key)
    throw Failure(ExitStatus::kRefused,
                  "{} is neither bits (0 and 1) nor a key (1 to 32 hexadecimal digits)",
                  inQuotes(options.words.front()));
  digits.erase(0, digits.find_first_of("xX") + 1);
  CardInput input{.keys = {*key}, .value = *bitsOfNumber(digits, 16)};
  // Numbers lose a zero in front.
  if (digits.size() % 2 == 1 && keyOfHex("0" + digits) != key)
    input.keys.push_back(*keyOfHex("0" + digits));
  return input;
}

// A key that the input can be in a format.
struct Candidate {
  CardPattern key;
  const char* change;  // What was done to the input: "", "reversed" or "right-aligned".
};

// A format that can have made it.
struct Match {
  const CheckedFormat* listed;
  Candidate candidate;
  DecodedCard card;
  std::vector<uint32_t> sets;  // Those whose cards have its values.

  bool isChanged() const { return *candidate.change != '\0'; }
  bool fits() const { return card.faults.empty(); }
};

class Decode {
 public:
  Decode(const CardInput& input, const Site& site, bool hasIdent, bool isJson, Console& console)
      : _input(input), _site(site), _hasIdent(hasIdent), _isJson(isJson), _console(console) {}

  // True when the input is a card of a format, or is known as a card without format.
  bool run() {
    findMatches();
    _wanted.insert(_input.keys.begin(), _input.keys.end());
    for (const Match& match : _matches) _wanted.insert(match.candidate.key);
    const bool isFormatless = printHolders();
    for (const Match& match : _matches) print(textOf(match), jsonOf(match));
    if (_matches.empty()) printText("no format has such a card\n");
    return isFormatless || (hasFit() && !_matches.front().isChanged());
  }

 private:
  bool hasFit() const { return !_matches.empty() && _matches.front().fits(); }

  // Those that fit come first. What was changed counts only if it fits, and nothing else does.
  void findMatches() {
    bool hasCandidates = false;
    for (const CheckedFormat& listed : _site.formats()) {
      // Of two formats with one ID the second is never used.
      if (listed.format == nullptr || listed.format != _site.formatSet().findFormat(listed.id))
        continue;
      for (const Candidate& candidate : candidatesOf(CardLayout(*listed.format))) {
        hasCandidates = true;
        addMatch(listed, candidate);
      }
    }
    if (!hasCandidates && !_input.bits.empty())
      throw Failure(ExitStatus::kRefused,
                    "no format has cards of {} bits (write 0x before a key of 0 and 1 alone)",
                    _input.bits.size());
    const bool hasFit = std::ranges::any_of(
        _matches, [](const Match& match) { return match.fits() && !match.isChanged(); });
    std::erase_if(_matches, [hasFit](const Match& match) {
      return match.isChanged() && (hasFit || !match.fits());
    });
    std::stable_partition(_matches.begin(), _matches.end(), std::mem_fn(&Match::fits));
  }

  // Readers may send a card from the last bit to the first, or with zeros in front of the bits.
  std::vector<Candidate> candidatesOf(const CardLayout& layout) const {
    const size_t count = layout.count();
    std::vector<Candidate> candidates;
    for (const CardPattern& key : _input.keys) candidates.push_back({key, ""});
    if (count > 0 && _input.bits.size() == count)
      candidates.push_back({layout.patternOf(_input.bits), ""});
    const std::string& value = _input.value;
    const bool isAligned = !value.empty() && value.size() <= count;
    const CardPattern aligned =
        isAligned ? layout.patternOf(std::string(count - value.size(), '0') + value)
                  : CardPattern{};
    if (isAligned && _input.keys.empty()) candidates.push_back({aligned, ""});
    for (size_t i = 0, end = candidates.size(); i < end; ++i) {
      std::string bits = layout.bitsOf(candidates[i].key);
      if (layout.patternOf(bits) != candidates[i].key) continue;
      std::ranges::reverse(bits);
      candidates.push_back({layout.patternOf(bits), "reversed"});
    }
    if (isAligned && !_input.keys.empty()) candidates.push_back({aligned, "right-aligned"});
    return candidates;
  }

  void addMatch(const CheckedFormat& listed, const Candidate& candidate) {
    auto card = decodeCard(*listed.format, candidate.key);
    if (!card) return;
    // A layout with gaps can lose bits of its fields: then only the card sets have their values.
    const auto sets = cardSetsOf(*listed.format, card->number, candidate.key);
    if (!card->faults.empty() && !sets.empty())
      card = {.number = card->number,
              .values = _site.sets().getCardSet(sets.front())->fldvalues,
              .encoded = candidate.key,
              .faults = {}};
    _matches.push_back(
        {&listed, candidate, *card, cardSetsOf(*listed.format, card->number, card->encoded)});
  }

  // Those that have this very card.
  std::vector<uint32_t> cardSetsOf(const CardFormat& format, int64_t number,
                                   const CardPattern& key) const {
    std::vector<uint32_t> sets;
    for (uint32_t csid = kFirstCardSetId; csid <= kLastCardSetId; ++csid)
      if (_site.formatOfSet(csid) == &format &&
          format.encodeNumber(format.encodeSite(_site.sets().getCardSet(csid)->fldvalues),
                              number) == key)
        sets.push_back(csid);
    return sets;
  }

  void print(std::string_view text, const JsonObject& object) {
    _isJson ? _console.printJson(object) : _console.print("{}", text);
  }
  void printText(std::string_view text) {
    if (!_isJson) _console.print("{}", text);
  }

  std::string textOf(const Match& match) const {
    const auto& [listed, candidate, card, sets] = match;
    std::string text = fmt::format("format {} {}: card {}{}; {}{}{}\n", listed->id,
                                   printable(listed->fileName), static_cast<uint64_t>(card.number),
                                   siteValuesText(*listed->format, card.values),
                                   match.fits() ? "parity and fixed bits right" : "wrong",
                                   match.isChanged() ? "; " : "", candidate.change);
    if (_wanted.size() > 1) text += fmt::format("  key {}\n", keyText(candidate.key));
    for (const std::string& fault : card.faults) text += fmt::format("  {}\n", fault);
    for (const uint32_t csid : sets) text += fmt::format("  card set {}\n", csid);
    return text;
  }

  static JsonObject jsonOf(const CardFormat& format, const CardFormat::FieldValues& values) {
    JsonObject object;
    for (int32_t field = 0; field < kFieldCount; ++field)
      if (hasSiteValue(format, field))
        object.add(std::string(1, static_cast<char>('A' + field)),
                   static_cast<uint64_t>(values[static_cast<size_t>(field)]));
    return object;
  }

  static JsonObject jsonOf(const Match& match) {
    const auto& [listed, candidate, card, sets] = match;
    JsonObject object;
    object.add("format", listed->id).add("file", listed->fileName);
    object.add("card", std::to_string(static_cast<uint64_t>(card.number)));
    object.add("key", keyText(candidate.key)).add("values", jsonOf(*listed->format, card.values));
    object.add("fits", match.fits());
    if (match.isChanged()) object.add("change", candidate.change);
    return object.add("faults", card.faults).add("sets", sets);
  }

  JsonObject jsonOf(const IdentRecord& record) const {
    JsonObject object;
    object.add("holder", record.uniqid);
    addCredential(object, record, _site, false);
    return object;
  }

  // Returns whether somebody has it as a card without format.
  bool printHolders() {
    bool isHeld = false, isFormatless = false;
    for (const IdentRecord& record : _site.databases().idents) {
      if (!_wanted.contains(record.cardnumber) || isPinEntry(record)) continue;
      print(fmt::format("holder {}: {}{}\n", record.uniqid, credentialText(record, _site, false),
                        record.deleted == 0 ? "" : ", deleted"),
            jsonOf(record));
      isHeld = true;
      isFormatless = isFormatless || record.cardsetcode == kFormatlessCode;
    }
    if (!_hasIdent || isHeld || !hasFit()) return isFormatless;
    printText("no holder has this card\n");
    printNamesakes();
    return false;
  }

  // Holders who have the same number with other site values.
  void printNamesakes() {
    size_t printed = 0;
    for (const IdentRecord& record : _site.databases().idents) {
      const auto number = _site.cardNumberOf(record);
      if (!number || record.deleted != 0) continue;
      const CardFormat* const format = _site.formatOfSet(record.cardsetcode);
      const auto match = std::ranges::find_if(_matches, [&](const Match& other) {
        return other.fits() && other.listed->format == format && other.card.number == *number;
      });
      const auto held =
          match == _matches.end() ? std::nullopt : decodeCard(*format, record.cardnumber);
      if (!held || held->values == match->card.values || ++printed > kMostNamesakes) continue;
      print(fmt::format("holder {} has this number with {}\n", record.uniqid,
                        siteValuesText(*format, held->values).erase(0, 2)),
            jsonOf(record).add("values", jsonOf(*format, held->values)));
    }
  }

  const CardInput& _input;
  const Site& _site;
  const bool _hasIdent, _isJson;
  Console& _console;
  std::vector<Match> _matches;
  std::set<CardPattern> _wanted;  // The keys that holders are searched for.
};

ExitStatus decode(const DecodeOptions& options, Console& console) {
  if (options.words.size() > 1)
    throw Failure(ExitStatus::kNotDone, "only one card at a time; put groups of digits in quotes");
  if (options.words.empty() == options.decimal.empty())
    throw Failure(ExitStatus::kNotDone, "give one of bits, a key and --decimal");
  const CardInput input = parseInput(options);
  SitePaths paths = options.site;
  paths.access = "";
  const bool isMissing = access(paths.ident.c_str(), F_OK) != 0 && errno == ENOENT;
  if (isMissing && !options.needsIdent) paths.ident = "";
  if (!paths.ident.empty()) try {
      requireRegularFile(paths.ident);
      throwErrnoUnless(access(paths.ident.c_str(), R_OK) == 0, paths.ident);
    } catch (const std::runtime_error& problem) {
      console.report("{}", problem.what());
      paths.ident = "";
    }
  const Site site(paths, {}, &console);
  const bool hasIdent = !paths.ident.empty();
  if (Decode(input, site, hasIdent, options.json, console).run()) return ExitStatus::kAllWell;
  return hasIdent || isMissing ? ExitStatus::kFound : ExitStatus::kNotDone;
}

}  // namespace

Run addDecode(Options options) {
  const auto given = std::make_shared<DecodeOptions>();
  options.describe("Show which cards have these bits",
                   "badgemint-admin decode 10001010100111110000100100");
  options.texts("BITS", "BITS|KEY", given->words,
                "The bits of a card, or its key in hexadecimal, also as 02:2A:7C:24");
  options.text("--decimal", "NUMBER", given->decimal, "The bits as a decimal number");
  options.flag("--json", given->json, "Print an object a line, as JSON");
  options.formatsAndCardSets(given->site);
  const CLI::Option* const ident =
      options.file("--ident", given->site.ident, "The ident database, for the holder");
  return [given, ident](Console& console) {
    given->needsIdent = Options::isGiven(ident);
    return decode(*given, console);
  };
}

}  // namespace badgemint::admin
