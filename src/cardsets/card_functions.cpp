#include "cardsets/card_functions.h"

#include <algorithm>
#include <cinttypes>

#include "cardsets/cardsets.h"
#include "formats/CardFormat.h"
#include "formats/CardFormatSet.h"
#include "support/fieldscanner.h"
#include "support/log.h"
#include "support/result.h"
#include "support/textutil.h"

namespace badgemint {

namespace {

constexpr char kLogModule[] = "card_functions";

// The value of a hexadecimal digit; -1 when it is none.
constexpr int hexValue(char c) {
  if (isDigit(c)) return c - '0';
  if (c >= 'A' && c <= 'F') return c - 'A' + 10;
  if (c >= 'a' && c <= 'f') return c - 'a' + 10;
  return -1;
}

bool isDecimal(std::string_view text) {
  return std::all_of(text.begin(), text.end(), isDigit);
}

bool isHexadecimal(std::string_view text) {
  return std::all_of(text.begin(), text.end(), [](char c) { return hexValue(c) >= 0; });
}

int length(std::string_view text) {
  return static_cast<int>(text.size());
}

int32_t reportMismatch(int64_t number, int64_t decoded, int32_t line) {
  if (line < 1) {
    LOG(kLogError, "Card mismatch cardno=%" PRId64 ",chkcardno=%" PRId64 "\n", number, decoded);
  } else {
    LOG(kLogError, "Card mismatch cardno=%" PRId64 ",chkcardno=%" PRId64 ", line#=%d\n", number,
        decoded, line);
  }
  return kCardMismatch;
}

int32_t reportNoCardSet(uint32_t csid, int32_t line) {
  const auto id = static_cast<int32_t>(csid);
  if (line < 1) {
    LOG(kLogError, "Card set %d not defined\n", id);
  } else {
    LOG(kLogError, "Card set %d not defined (no f line), line#=%d \n", id, line);
  }
  return kInvalidCardSet;
}

int32_t reportNoFormat(uint32_t fmtid, int32_t line) {
  if (line < 1) {
    LOG(kLogError, "Format %u not defined \n", fmtid);
  } else {
    LOG(kLogError, "Format %u not defined, line#=%d \n", fmtid, line);
  }
  return kFormatNotDefined;
}

}  // namespace

int32_t checkCardNumber(std::string_view& text, int32_t csid, int32_t hex) {
  const char* flaw = nullptr;
  if (text.size() > kMaxCardNumberDigits) {
    flaw = "too many digits";
  } else if (csid < 1 && hex != 1) {
    if (text.empty()) text = "0";
  } else if (text.empty()) {
    return kEmptyCardNumber;
  } else if (csid >= 1 && !isDecimal(text)) {
    flaw = "must be numeric";
  } else if (csid < 1 && !isHexadecimal(text)) {
    flaw = "must be hexidecimal";
  }
  if (flaw == nullptr) return kSuccess;
  LOG(kLogError, "Invalid card number %.*s, %s\n", length(text), text.data(), flaw);
  return kInvalidCardNumber;
}

int32_t checkPinCode(std::string_view& text, size_t maxDigits) {
  const char* flaw = nullptr;
  if (text.size() > maxDigits) {
    flaw = "too many digits";
  } else if (text.empty()) {
    text = "0";
  } else if (!isDecimal(text)) {
    flaw = "must be numeric";
  }
  if (flaw == nullptr) return kSuccess;
  LOG(kLogError, "Invalid pin code %.*s, %s\n", length(text), text.data(), flaw);
  return kInvalidPin;
}

void setFieldValues(CardFormat& format, const cardset& record) {
  for (int32_t i = 0; i < kCardSetFields; ++i) format.setFieldValue(i, record.value(i));
}

int32_t computeCardBits(uint32_t csid, const char* text, int32_t line, const cardsets* sets,
                        CardFormatSet* formats, int64_t& number, CardPattern& pattern) {
  const SaturatedInt64 scanned = scanInt64(text);
  number = scanned.value;
  pattern = {};

  const cardset* const record = sets != nullptr ? sets->getCardSet(csid) : nullptr;
  if (record == nullptr) return reportNoCardSet(csid, line);
  CardFormat* const format = formats != nullptr ? formats->findFormat(record->fmtid) : nullptr;
  if (format == nullptr) return reportNoFormat(record->fmtid, line);

  setFieldValues(*format, *record);
  int32_t bitCount = 0;
  format->encodeCard(number, pattern, bitCount);
  const int64_t decoded = format->decodeCardNumber(pattern);
  if (decoded != number || scanned.saturated) return reportMismatch(number, decoded, line);
  return kSuccess;
}

void bitsToHex(std::span<const uint8_t> bytes, std::span<char> text) {
  if (text.empty()) return;
  std::fill(text.begin(), text.end(), '\0');
  size_t length = 0;
  for (const uint8_t byte : bytes) {
    if (length + 2 >= text.size()) break;
    text[length++] = "0123456789ABCDEF"[byte >> 4];
    text[length++] = "0123456789ABCDEF"[byte & 0xF];
  }
  size_t kept = length;
  while (kept > 1 && text[kept - 1] == '0') --kept;
  if (kept > 1) {
    std::fill(text.begin() + static_cast<ptrdiff_t>(kept), text.end(), '\0');
    length = kept;
  }
  if (length % 2 != 0 && length + 1 < text.size()) text[length] = '0';
}

void hexToBits(std::string_view text, std::span<uint8_t> bytes) {
  const auto digit = [text](size_t i) { return i < text.size() ? hexValue(text[i]) : 0; };
  for (size_t i = 0; i < bytes.size(); ++i) {
    const int high = digit(2 * i);
    const int low = digit(2 * i + 1);
    // What is no digit ends the number that the pair is read as.
    bytes[i] = static_cast<uint8_t>(high < 0 ? 0 : low < 0 ? high : high * 16 + low);
  }
  LOG_HEX(kLogStep, bytes, "no format card bits\n");
}

}  // namespace badgemint
