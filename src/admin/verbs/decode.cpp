// The verb `decode`: which cards the bits that a reader sent can be, in the formats of a site.
#include <unistd.h>

#include <algorithm>
#include <memory>
#include <set>
#include <utility>
#include <vector>

#include "admin/arguments.h"
#include "admin/bits/cards.h"
#include "admin/bits/layout.h"
#include "admin/check/siterules.h"
#include "admin/records/databases.h"
#include "admin/records/site.h"
#include "admin/records/wording.h"
#include "admin/verbs/verb.h"
#include "cardsets/card_functions.h"

namespace badgemint::admin {

namespace {

struct DecodeOptions {
  SitePaths site;
  bool needsIdent = false;  // The ident database may be missing unless it was asked for.
  std::string word;         // Bits, or a key.
};

bool areBits(const std::string& word) {
  return !word.empty() && word.find_first_not_of("01") == std::string::npos;
}

// The word as a key whose last zeros are left out; when it has an odd number of digits, also as one
// that has lost a zero in front, as numbers do.
std::vector<CardPattern> keysOf(const std::string& word) {
  const auto key = keyOf(word);
  if (!key)
    throw Failure(ExitStatus::kRefused,
                  "{} is neither bits (0 and 1) nor a key (1 to 32 hexadecimal digits)",
                  quoted(word));
  const std::string digits = word.substr(word.find_first_of("xX") + 1);
  const auto other = digits.size() % 2 == 0 ? key : keyOf("0" + digits);
  return other == key ? std::vector{*key} : std::vector{*key, *other};
}

class Decode {
 public:
  Decode(const DecodeOptions& options, Console& console) : _options(options), _console(console) {
    if (!areBits(options.word)) _keys = keysOf(options.word);
    const SitePaths& names = options.site;
    tellOfCutShort({names.ident, names.cardSets}, console);
    tryTo(console, [&] { _site.loadFormats(names.formats); });
    tryTo(console, [&] { _site.loadCardSets(names.cardSets, console); });
    // Of two formats with one ID the second is never used.
    for (const CheckedFormat& listed : _site.formats())
      if (listed.format != nullptr && listed.format == _site.formatSet().findFormat(listed.id))
        _formats.push_back(&listed);
    if (_keys.empty()) useBits(options.word);
  }

  ExitStatus run() {
    for (const CheckedFormat* const listed : _formats)
      for (const CardPattern& key : _keys)
        if (auto card = decodeCard(*listed->format, key))
          _matches.push_back({listed, key, std::move(*card)});
    std::stable_partition(_matches.begin(), _matches.end(),
                          [](const Match& match) { return match.isExact(); });
    for (const Match& match : _matches) print(match);
    const bool isExact = !_matches.empty() && _matches.front().isExact();
    if (_matches.empty()) _console.print("no format has such a card\n");
    return printHolders(isExact) || isExact ? ExitStatus::kAllWell : ExitStatus::kFound;
  }

 private:
  // A format that can have made the bits.
  struct Match {
    const CheckedFormat* listed;
    CardPattern key;
    DecodedCard card;

    bool isExact() const { return card.faults.empty(); }
  };

  // Keeps the formats of as many bits.
  void useBits(const std::string& bits) {
    std::set<size_t> counts;
    std::vector<const CheckedFormat*> formats;
    for (const CheckedFormat* const listed : _formats) {
      const CardLayout layout(*listed->format);
      const auto count = static_cast<size_t>(layout.count());
      counts.insert(count);
      if (count != bits.size()) continue;
      formats.push_back(listed);
      _keys = {layout.patternOf(bits)};
    }
    if (formats.empty())
      throw Failure(ExitStatus::kRefused,
                    "no format has cards of {} bits{}{} (write 0x before a key of 0 and 1 alone)",
                    bits.size(), counts.empty() ? "" : ": they have ", fmt::join(counts, ", "));
    _formats = std::move(formats);
  }

  void print(const Match& match) {
    const CardFormat& format = *match.listed->format;
    _console.print("format {} {}: card {}", match.listed->id, printable(match.listed->fileName),
                   static_cast<uint64_t>(match.card.number));
    for (int32_t field = 0; field < kFieldCount; ++field)
      if (hasSiteValue(format, field))
        _console.print(", {:c}={}", 'A' + field,
                       static_cast<uint64_t>(match.card.values[static_cast<size_t>(field)]));
    _console.print("; {}\n", verdictOn(match));
    if (_keys.size() > 1) _console.print("  key {}\n", keyText(match.key));
    for (const std::string& fault : match.card.faults) _console.print("  {}\n", fault);
    printCardSets(match);
  }

  static const char* verdictOn(const Match& match) {
    if (!match.isExact()) return "wrong";
    const std::string sources = CardLayout(*match.listed->format).mergedRow();
    return sources.find_first_of("P01") != std::string::npos ? "parity and fixed bits right"
                                                             : "no parity, no fixed bits";
  }

  // Those that have this very card.
  void printCardSets(const Match& match) {
    bool isOfSet = false;
    for (uint32_t csid = kFirstCardSetId; csid <= kLastCardSetId; ++csid) {
      if (_site.formatOfSet(csid) != match.listed->format) continue;
      const CardFormat& format = *match.listed->format;
      const SitePattern values = format.encodeSite(_site.sets().getCardSet(csid)->fldvalues);
      if (format.encodeNumber(values, match.card.number) != match.card.encoded) continue;
      _console.print("  card set {}\n", csid);
      isOfSet = true;
    }
    if (!isOfSet && _site.sets().count() > 0) _console.print("  no card set has these values\n");
  }

  // Returns whether it is known as a card without format.
  bool printHolders(bool isExact) {
    const std::string& name = _options.site.ident;
    if (!_options.needsIdent && access(name.c_str(), F_OK) != 0) return false;
    bool isFormatless = false;
    tryTo(_console, [&] {
      Databases databases;
      databases.readIdents(name);
      isFormatless = printRecords(databases.idents, isExact);
    });
    return isFormatless;
  }

  bool printRecords(const std::vector<IdentRecord>& records, bool isExact) {
    bool isHeld = false, isFormatless = false;
    for (const IdentRecord& record : records) {
      if (std::ranges::find(_keys, record.cardnumber) == _keys.end() || isPinEntry(record))
        continue;
      _console.print("holder {}: {}{}\n", record.uniqid, credentialText(record, _site, false),
                     record.deleted == 0 ? "" : ", deleted");
      isHeld = true;
      isFormatless = isFormatless || record.cardsetcode == kFormatlessCode;
    }
    if (isExact && !isHeld) _console.print("no holder has this card\n");
    return isFormatless;
  }

  const DecodeOptions& _options;
  Console& _console;
  Site _site;
  std::vector<const CheckedFormat*> _formats;
  std::vector<CardPattern> _keys;
  std::vector<Match> _matches;
};

ExitStatus decode(const DecodeOptions& options, Console& console) {
  return Decode(options, console).run();
}

}  // namespace

Run addDecode(Options options) {
  const auto given = std::make_shared<DecodeOptions>();
  options.describe("Show which cards have these bits",
                   "badgemint-admin decode 10001010100111110000100100");
  options.word("BITS", "BITS|KEY", given->word, "The bits of a card, or its key in hexadecimal");
  options.formatsAndCardSets(given->site);
  const CLI::Option* const ident =
      options.file("--ident", given->site.ident, "The ident database, for the holder");
  return [given, ident](Console& console) {
    given->needsIdent = Options::isGiven(ident);
    return decode(*given, console);
  };
}

}  // namespace badgemint::admin
