// The verb `decode`: which cards the bits that a reader sent can be, in the formats of a site.
#include <cerrno>
#include <set>

#include "admin/bits/cards.h"
#include "admin/verbs/verb.h"

namespace badgemint::admin {

namespace {

constexpr size_t kMostOfSameNumber = 10;

struct DecodeOptions {
  SitePaths site;
  std::string ident;               // Empty: that of the site, which may be missing.
  std::vector<std::string> words;  // Bits, or a key: one.
  std::string decimal;             // The value of the bits, in place of a word; empty for none.
  bool json = false;
};

// What readers and controllers print of a card: bits, a key, or a number.
struct CardInput {
  std::string bits{};               // '0' and '1'; of a key or a number without leading zeros.
  bool isNumber = true;             // Whether zeros may be missing in front of the bits.
  std::vector<CardPattern> keys{};  // From a key with an odd number of digits there are two.
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
  return fmt::format("{:b}", value);
}

CardInput parseInput(const DecodeOptions& options) {
  if (!options.decimal.empty()) {
    if (const auto value = bitsOfNumber(options.decimal, 10)) return {.bits = *value};
    throw Refused("--decimal {} is not a decimal number of up to 128 bits",
                  inQuotes(options.decimal));
  }
  std::string digits = options.words.front();
  std::erase_if(digits,
                [](char c) { return std::string_view(" :-_").find(c) != std::string::npos; });
  const bool hasPrefix = digits.starts_with("0b") || digits.starts_with("0B");
  const std::string bits = digits.substr(hasPrefix ? 2 : 0);
  if (!bits.empty() && bits.find_first_not_of("01") == std::string::npos)
    return {.bits = bits, .isNumber = false};
  const auto key = keyOfHex(digits);
  if (!key)
    throw Refused("{} is neither bits (0 and 1) nor a key (1 to 32 hexadecimal digits)",
                  inQuotes(options.words.front()));
  digits.erase(0, digits.find_first_of("xX") + 1);
  CardInput input{.bits = *bitsOfNumber(digits, 16), .keys = {*key}};
  // Numbers lose a zero in front.
  if (digits.size() % 2 == 1 && keyOfHex("0" + digits) != key)
    input.keys.push_back(*keyOfHex("0" + digits));
  return input;
}

// A format that can have made the input.
struct Match {
  const CheckedFormat* listed;
  CardPattern key;
  const char* change;  // What was done to the input: "", "reversed" or "right-aligned".
  int64_t number;
  CardFormat::FieldValues values;   // Of the other fields.
  std::vector<std::string> faults;  // None for a card of the format.
  std::vector<uint32_t> sets;       // Those whose cards have its values.

  bool isChanged() const { return *change != '\0'; }
  bool fits() const { return faults.empty(); }
  // What was changed counts only if it fits, and nothing else does.
  int rank() const { return (fits() ? 0 : 2) + (isChanged() ? 1 : 0); }
};

CardFormat::FieldValues valuesOf(const CardFormat& format, const CardPattern& card) {
  CardFormat::FieldValues values{};
  for (int32_t field = 0; int64_t & value : values)
    static_cast<void>(format.decodeField(card, field++, value));
  return values;
}

// One run of the verb; refers to its arguments.
class Decode {
 public:
  Decode(const CardInput& input, const Site& site, bool hasIdent, bool isJson, Console& console)
      : _input(input), _site(site), _hasIdent(hasIdent), _isJson(isJson), _console(console) {}

  // True when the input is a card of a format, or is known as a card without format.
  bool run() {
    findMatches();
    _wanted.insert(_input.keys.begin(), _input.keys.end());
    for (const Match& match : _matches) _wanted.insert(match.key);
    const bool isFormatless = printHolders();
    for (const Match& match : _matches) print(textOf(match), jsonOf(match));
    if (_matches.empty() && !_isJson) _console.print("no format has such a card\n");
    return isFormatless || (hasFit() && !_matches.front().isChanged());
  }

 private:
  bool hasFit() const { return !_matches.empty() && _matches.front().fits(); }

  void findMatches() {
    for (const CheckedFormat& listed : _site.formats().formats)
      // Of two formats with one ID the second is never used.
      if (listed.format != nullptr && listed.format == _site.formatSet().findFormat(listed.id))
        addMatches(listed);
    if (_matches.empty() && !_input.isNumber)
      throw Refused("no format has cards of {} bits (write 0x before a key of 0 and 1 alone)",
                    _input.bits.size());
    std::ranges::stable_sort(_matches, {}, &Match::rank);
    if (hasFit() && !_matches.front().isChanged())
      std::erase_if(_matches, std::mem_fn(&Match::isChanged));
  }

  // Readers may send a card from the last bit to the first, or with zeros in front of the bits.
  void addMatches(const CheckedFormat& listed) {
    const CardLayout layout(*listed.format);
    const size_t size = _input.bits.size(), count = layout.count();
    const bool isAligned = size == count || (_input.isNumber && size < count);
    const std::string aligned = isAligned ? std::string(count - size, '0') + _input.bits : "";
    std::vector<std::string> sent;
    if (isAligned && _input.keys.empty()) sent.push_back(aligned);
    for (const CardPattern& key : _input.keys)  // Unless it has bits outside the cards.
      if (layout.patternOf(layout.bitsOf(key)) == key) sent.push_back(layout.bitsOf(key));
    for (const std::string& bits : sent) addMatch(listed, layout, bits, "");
    for (const std::string& bits : sent)
      addMatch(listed, layout, {bits.rbegin(), bits.rend()}, "reversed");
    if (isAligned && !_input.keys.empty()) addMatch(listed, layout, aligned, "right-aligned");
  }

  void addMatch(const CheckedFormat& listed, const CardLayout& layout, const std::string& bits,
                const char* change) {
    const CardPattern key = layout.patternOf(bits);
    const CardFormat& format = *listed.format;
    Match match{&listed, key, change, format.decodeCardNumber(key), valuesOf(format, key), {}, {}};
    const CardPattern encoded = format.encodeNumber(format.encodeSite(match.values), match.number);
    match.faults = layout.faultsOf(key, encoded);
    if (match.number < 0) match.faults.push_back(fmt::format("the number is above {}", INT64_MAX));
    match.sets = cardSetsOf(format, match.number, key);
    if (match.sets.empty()) {
      match.sets = cardSetsOf(format, match.number, encoded);
    } else if (!match.fits()) {
      // A layout with gaps can lose bits of its fields: then only the card sets have their values.
      match.values = _site.sets().getCardSet(match.sets.front())->fldvalues;
      match.faults.clear();
    }
    if (match.fits() || !match.isChanged()) _matches.push_back(std::move(match));
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

  std::string textOf(const Match& match) const {
    const auto& [listed, key, change, number, values, faults, sets] = match;
    std::string text =
        fmt::format("format {} {}: card {}{}; {}{}{}\n", listed->id, printable(listed->fileName),
                    static_cast<uint64_t>(number), siteValuesText(*listed->format, values),
                    match.fits() ? "parity and fixed bits are right" : "does not fit",
                    match.isChanged() ? "; " : "", change);
    if (_wanted.size() > 1) text += fmt::format("  key {}\n", keyText(key));
    for (const std::string& fault : faults) text += fmt::format("  {}\n", fault);
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
    const auto& [listed, key, change, number, values, faults, sets] = match;
    JsonObject object;
    object.add("format", listed->id).add("file", listed->fileName);
    object.add("card", std::to_string(static_cast<uint64_t>(number)));
    object.add("key", keyText(key)).add("values", jsonOf(*listed->format, values));
    object.add("fits", match.fits());
    if (match.isChanged()) object.add("change", change);
    return object.add("faults", faults).add("sets", sets);
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
    if (!_isJson) _console.print("no holder has this card\n");
    printHoldersOfSameNumber();
    return false;
  }

  // Holders who have the same number with other site values.
  void printHoldersOfSameNumber() {
    size_t printed = 0;
    for (const IdentRecord& record : _site.databases().idents) {
      const auto number = _site.cardNumberOf(record);
      if (!number || record.deleted != 0) continue;
      const CardFormat* const format = _site.formatOfSet(record.cardsetcode);
      const auto match = std::ranges::find_if(_matches, [&](const Match& other) {
        return other.fits() && other.listed->format == format && other.number == *number;
      });
      if (match == _matches.end()) continue;
      const CardFormat::FieldValues values = valuesOf(*format, record.cardnumber);
      if (values == match->values || ++printed > kMostOfSameNumber) continue;
      print(fmt::format("holder {} has this number with {}\n", record.uniqid,
                        siteValuesText(*format, values).erase(0, 2)),
            jsonOf(record).add("values", jsonOf(*format, values)));
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
    throw NotDone("only one card at a time; put groups of digits in quotes");
  if (options.words.empty() == options.decimal.empty())
    throw NotDone("give bits, a key or --decimal, only one of them");
  const CardInput input = parseInput(options);
  SitePaths paths = options.site;
  paths.access = "";
  if (!options.ident.empty()) paths.ident = options.ident;
  const bool isMissing = access(paths.ident.c_str(), F_OK) != 0 && errno == ENOENT;
  try {
    requireRegularFile(paths.ident);
    throwErrnoUnless(access(paths.ident.c_str(), R_OK) == 0, paths.ident);
  } catch (const std::runtime_error& problem) {
    if (!isMissing || !options.ident.empty()) console.report("{}", problem.what());
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
  options.texts("BITS", "", given->words,
                "The bits of a card, or its key in hexadecimal, also as 02:2A:7C:24");
  options.text("--decimal", "NUMBER", given->decimal, "The bits as a decimal number");
  options.flag("--json", given->json, "Print JSON, one object a line");
  options.formatsAndCardSets(given->site);
  options.file("--ident", given->ident, "The ident database for the holder, if not ident.db");
  return [given](Console& console) { return decode(*given, console); };
}

}  // namespace badgemint::admin
