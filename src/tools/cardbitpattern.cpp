// The bit pattern of one card, from a site's files or from one format and one card set.
#include <cinttypes>
#include <cstring>

#include "cardsets/card_functions.h"
#include "cardsets/cardsets.h"
#include "formats/CardFormat.h"
#include "formats/CardFormatSet.h"
#include "formats/loadformats.h"
#include "support/fieldscanner.h"
#include "support/log.h"
#include "support/result.h"
#include "tools/badgemint.h"
#include "tools/entryrun.h"

namespace badgemint {

namespace {

constexpr const char* kLogModule = kEntryModule;
constexpr int32_t kInitialFormats = 20;

// A format that is loaded alone needs an ID that its card set can name.
constexpr uint32_t kLoneId = 1;
constexpr int32_t kLoneFormats = 10;

// The caller's buffer for the digits.
struct PatternText {
  char* text;
  int32_t size;
};

int32_t writePattern(const CardPattern& pattern, const PatternText& out) {
  std::array<char, 2 * sizeof pattern + 1> hex;
  bitsToHex(pattern, hex);
  const auto length = static_cast<int32_t>(std::strlen(hex.data()));
  if (length >= out.size) {
    LOG(kLogError, "cardbitpatternsize=%d too small; requires %d\n", out.size, length + 1);
    return kBufferTooSmall;
  }
  std::strcpy(out.text, hex.data());
  return kSuccess;
}

int32_t patternOfSite(EntryRun& run, uint32_t csid, const char* cardNumber, const char* formatsName,
                      const char* cardSetsName, const PatternText& out) {
  if (const int32_t rc = run.joinNames({{&formatsName, "formats"}, {&cardSetsName, "card sets"}});
      rc < 0)
    return rc;
  run.logStart();

  CardFormatSet formats;
  if (const int32_t rc = formats.create(kInitialFormats); rc < 0) return rc;
  if (const int32_t rc = loadFormats(kLogModule, run.baseDirectory(), formatsName, formats); rc < 0)
    return rc;
  cardsets sets;
  if (const int32_t rc = sets.create(cardsets::kInitialCapacity); rc < 0) return rc;
  if (const int32_t rc = sets.load(cardSetsName); rc < 0) return rc;

  if (csid < kFirstCardSetId || csid > kLastCardSetId) {
    LOG(kLogError, "Invalid cardset ID %d\n", static_cast<int32_t>(csid));
    return kInvalidCardSet;
  }
  std::string_view digits = cardNumber;
  if (const int32_t rc = checkCardNumber(digits, static_cast<int32_t>(csid), 0); rc < 0) return rc;
  int64_t number = 0;
  CardPattern pattern;
  if (const int32_t rc = computeCardBits(csid, cardNumber, 0, &sets, &formats, number, pattern);
      rc < 0)
    return rc;
  return writePattern(pattern, out);
}

int32_t encodeLone(const CardEncoder& encoder, const char* cardNumber, CardPattern& pattern) {
  const SaturatedInt64 number = scanInt64(cardNumber);
  pattern = encoder.encode(number.value);
  const int64_t decoded = encoder.decode(pattern);
  if (decoded == number.value && !number.saturated) return kSuccess;
  LOG(kLogError, "Card mismatch cno=%" PRId64 ",chkcardno=%" PRId64 "\n", number.value, decoded);
  return kCardMismatch;
}

int32_t patternOfFormat(EntryRun& run, const char* cardNumber, const char* cardSetText,
                        const char* formatName, const PatternText& out) {
  if (const int32_t rc = run.joinNames({{&formatName, "formats"}}); rc < 0) return rc;
  run.logStart();

  CardFormatSet formats;
  if (const int32_t rc = formats.create(kLoneFormats); rc < 0) return rc;
  CardFormat* const format = formats.addFormat(kLoneId, formatName);
  if (format == nullptr) return kFormatNotAdded;
  if (const int32_t rc = format->loadFormatFile(formatName); rc < 0) return rc;

  cardset set;
  if (const int32_t rc = parseCardSetText(set, cardSetText); rc < 0) return rc;
  std::string_view digits = cardNumber;
  if (const int32_t rc = checkCardNumber(digits, kLoneId, 0); rc < 0) return rc;
  CardPattern pattern;
  if (const int32_t rc =
          encodeLone({format, format->encodeSite(set.fldvalues)}, cardNumber, pattern);
      rc < 0)
    return rc;
  return writePattern(pattern, out);
}

}  // namespace

}  // namespace badgemint

int32_t ComputeCardBitPattern(uint32_t cardSetId, const char* cardNumber, const char* baseDirectory,
                              const char* formatsName, const char* cardSetsName,
                              const char* logName, uint32_t logLevel, char* cardBitPattern,
                              int32_t cardBitPatternSize) {
  using namespace badgemint;
  const PatternText out = {cardBitPattern, cardBitPatternSize};
  EntryRun entry("ComputeCardBitPattern", baseDirectory, kPatternPause);
  return entry.run(logName, logLevel, [&](EntryRun& run) {
    return patternOfSite(run, cardSetId, cardNumber, formatsName, cardSetsName, out);
  });
}

int32_t ComputeCardBitPattern2(const char* cardNumber, const char* cardSet,
                               const char* baseDirectory, const char* formatName,
                               const char* logName, uint32_t logLevel, char* cardBitPattern,
                               int32_t cardBitPatternSize) {
  using namespace badgemint;
  const PatternText out = {cardBitPattern, cardBitPatternSize};
  EntryRun entry("ComputeCardBitPattern2", baseDirectory, kPatternPause);
  return entry.run(logName, logLevel, [&](EntryRun& run) {
    return patternOfFormat(run, cardNumber, cardSet, formatName, out);
  });
}
