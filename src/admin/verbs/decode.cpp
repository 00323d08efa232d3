// The verb `decode`: what the bits that a reader delivered can be, under the formats of a site.
#include <unistd.h>

#include <algorithm>
#include <memory>
#include <set>
#include <utility>
#include <vector>

#include "admin/arguments.h"
#include "admin/bits/cardbits.h"
#include "admin/bits/cardreading.h"
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

[[noreturn]] void refuse(const std::string& why) {
  throw Failure(ExitStatus::kRefused, why);
}

bool areBits(const std::string& word) {
  return !word.empty() && word.find_first_not_of("01") == std::string::npos;
}

// The word as a key with zeros at its end left out; when its count of digits is odd, also as one
// that has lost a zero at its front, as numbers do.
std::vector<CardPattern> keysOf(const std::string& word) {
  const auto key = keyOf(word);
  if (!key)
    refuse(quoted(word) + " is neither: bits are 0 and 1, a key is 1 to 32 hexadecimal digits");
  const std::string digits = word.substr(word.find_first_of("xX") + 1);
  const auto other = digits.size() % 2 == 0 ? key : keyOf("0" + digits);
  return other == key ? std::vector{*key} : std::vector{*key, *other};
}

class Decode {
 public:
  Decode(const DecodeOptions& options, Console& console)
      : _options(options), _console(console), _output(console.output()) {
    if (!areBits(options.word)) _keys = keysOf(options.word);
    const SitePaths& names = options.site;
    tellOfCutShort({names.ident, names.cardSets}, console);
    tryTo(console, [&] { _site.loadFormats(names.formats); });
    tryTo(console, [&] { _site.loadCardSets(names.cardSets, console); });
    // Of two formats with one ID the second is never used.
    for (const CheckedFormat& listed : _site.formats())
      if (listed.format != nullptr && listed.format == _site.formatSet().findFormat(listed.id))
        _formats.push_back(&listed);
    if (_keys.empty()) takeBits(options.word);
  }

  ExitStatus run() {
    for (const CheckedFormat* const listed : _formats)
      for (const CardPattern& key : _keys)
        if (auto reading = readCard(*listed->format, key))
          _readings.push_back({listed, key, std::move(*reading)});
    std::stable_partition(_readings.begin(), _readings.end(),
                          [](const Reading& reading) { return reading.isExact(); });
    for (const Reading& reading : _readings) tell(reading);
    const bool isExact = !_readings.empty() && _readings.front().isExact();
    if (_readings.empty()) _output << "no format has such a card\n";
    return tellHolders(isExact) || isExact ? ExitStatus::kAllWell : ExitStatus::kFound;
  }

 private:
  struct Reading {
    const CheckedFormat* listed;
    CardPattern key;
    CardReading card;

    bool isExact() const { return card.faults.empty(); }
  };

  // Only formats of as many bits come into question.
  void takeBits(const std::string& bits) {
    std::set<size_t> counts;
    std::vector<const CheckedFormat*> formats;
    for (const CheckedFormat* const listed : _formats) {
      const CardBits cardBits(*listed->format);
      const auto count = static_cast<size_t>(cardBits.count());
      counts.insert(count);
      if (count != bits.size()) continue;
      formats.push_back(listed);
      _keys = {cardBits.patternOf(bits)};
    }
    if (formats.empty()) refuseCount(bits.size(), counts);
    _formats = std::move(formats);
  }

  [[noreturn]] static void refuseCount(size_t bits, const std::set<size_t>& counts) {
    std::string text = "no format has cards of " + std::to_string(bits) + " bits";
    const char* separator = ": they have ";
    for (const size_t count : counts)
      text += std::exchange(separator, ", ") + std::to_string(count);
    refuse(text + " (a key of 0 and 1 alone needs 0x in front)");
  }

  void tell(const Reading& reading) {
    const CardFormat& format = *reading.listed->format;
    _output << "format " << reading.listed->id << ' ' << printable(reading.listed->fileName)
            << ": card " << static_cast<uint64_t>(reading.card.number);
    for (int32_t field = 0; field < kFieldCount; ++field)
      if (hasSiteValue(format, field))
        _output << ", " << static_cast<char>('A' + field) << '='
                << static_cast<uint64_t>(reading.card.values[static_cast<size_t>(field)]);
    _output << "; " << verdictOn(reading);
    _output << '\n';
    if (_keys.size() > 1) _output << "  key " << keyText(reading.key) << '\n';
    for (const std::string& fault : reading.card.faults) _output << "  " << fault << '\n';
    tellCardSets(reading);
  }

  static const char* verdictOn(const Reading& reading) {
    if (!reading.isExact()) return "wrong";
    const bool isChecked =
        CardBits(*reading.listed->format).drawLayout().find_first_of("P01") != std::string::npos;
    return isChecked ? "parity and fixed bits right" : "no parity, no fixed bits";
  }

  // Those that have this very card.
  void tellCardSets(const Reading& reading) {
    bool isOfSet = false;
    for (uint32_t csid = kFirstCardSetId; csid <= kLastCardSetId; ++csid) {
      if (_site.formatOfSet(csid) != reading.listed->format) continue;
      const CardFormat& format = *reading.listed->format;
      const SitePattern values = format.encodeSite(_site.sets().getCardSet(csid)->fldvalues);
      if (format.encodeNumber(values, reading.card.number) != reading.card.encoded) continue;
      _output << "  card set " << csid << '\n';
      isOfSet = true;
    }
    if (!isOfSet && _site.sets().count() > 0) _output << "  no card set has these values\n";
  }

  // Returns whether it is known as a card without format.
  bool tellHolders(bool isExact) {
    const std::string& name = _options.site.ident;
    if (!_options.needsIdent && access(name.c_str(), F_OK) != 0) return false;
    bool isFormatless = false;
    tryTo(_console, [&] {
      Databases databases;
      databases.readIdents(name);
      isFormatless = tellRecords(databases.idents, isExact);
    });
    return isFormatless;
  }

  bool tellRecords(const std::vector<IdentRecord>& records, bool isExact) {
    bool isHeld = false, isFormatless = false;
    for (const IdentRecord& record : records) {
      if (std::ranges::find(_keys, record.cardnumber) == _keys.end() || isPinEntry(record))
        continue;
      _output << "holder " << record.uniqid << ": " << credentialText(record, _site, false)
              << (record.deleted == 0 ? "\n" : ", deleted\n");
      isHeld = true;
      isFormatless = isFormatless || record.cardsetcode == kFormatlessCode;
    }
    if (isExact && !isHeld) _output << "no holder has this card\n";
    return isFormatless;
  }

  const DecodeOptions& _options;
  Console& _console;
  std::ostream& _output;
  Site _site;
  std::vector<const CheckedFormat*> _formats;
  std::vector<CardPattern> _keys;
  std::vector<Reading> _readings;
};

ExitStatus decode(const DecodeOptions& options, Console& console) {
  return Decode(options, console).run();
}

}  // namespace

Run addDecode(Options options) {
  const auto given = std::make_shared<DecodeOptions>();
  options.describe("Tell which cards have these bits",
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
