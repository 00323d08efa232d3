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
  return c >= 'a' && c <= 'f' ? c - 'a' + 10 : -1;
}

bool isDecimal(std::string_view text) {
  return std::all_of(text.begin(), text.end(), isDigit);
}

bool isHexadecimal(std::string_view text) {
  return std::all_of(text.begin(), text.end(), [](char c) { return hexValue(c) >= 0; });
}

int32_t reportCardNumber(std::string_view text, const char* defect) {
  LOG(kLogError, "Invalid card number %.*s, %s\n", printLength(text), text.data(), defect);
  return kInvalidCardNumber;
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
  if (csid >= 1) {
    SaturatedInt64 number;
    return readCardNumber(text, number);
  }
  if (text.size() > kMaxCardNumberDigits) return reportCardNumber(text, "too many digits");
  if (hex != 1) {
    if (text.empty()) text = "0";
    return kSuccess;
  }
  if (text.empty()) return kEmptyCardNumber;
  return isHexadecimal(text) ? kSuccess : reportCardNumber(text, "must be hexidecimal");
}

int32_t readCardNumber(std::string_view text, SaturatedInt64& number) {
  if (text.size() > kMaxCardNumberDigits) return reportCardNumber(text, "too many digits");
  if (text.empty()) return kEmptyCardNumber;
  return digitsToInt64(text, number) ? kSuccess : reportCardNumber(text, "must be numeric");
}

int32_t checkPinCode(std::string_view& text, size_t maxDigits) {
  const char* defect = nullptr;
  if (text.size() > maxDigits) {
    defect = "too many digits";
  } else if (text.empty()) {
    text = "0";
  } else if (!isDecimal(text)) {
    defect = "must be numeric";
  }
  if (defect == nullptr) return kSuccess;
  LOG(kLogError, "Invalid pin code %.*s, %s\n", printLength(text), text.data(), defect);
  return kInvalidPin;
}

int32_t findCardEncoder(uint32_t csid, int32_t line, const cardsets* sets,
                        const CardFormatSet* formats, CardEncoder& encoder) {
  const cardset* const record = sets != nullptr ? sets->getCardSet(csid) : nullptr;
  if (record == nullptr) return reportNoCardSet(csid, line);
  if (encoder.format != nullptr) return kSuccess;
  const CardFormat* const format =
      formats != nullptr ? formats->findFormat(record->fmtid) : nullptr;
  if (format == nullptr) return reportNoFormat(record->fmtid, line);
  encoder = {format, format->encodeSite(record->fldvalues)};
  return kSuccess;
}

int32_t encodeCardNumber(const CardEncoder& encoder, const SaturatedInt64& number, int32_t line,
                         CardPattern& pattern) {
  pattern = encoder.encode(number.value);
  const int64_t decoded = encoder.decode(pattern);
  if (decoded == number.value && !number.saturated) return kSuccess;
  return reportMismatch(number.value, decoded, line);
}

int32_t computeCardBits(uint32_t csid, const char* text, int32_t line, const cardsets* sets,
                        const CardFormatSet* formats, int64_t& number, CardPattern& pattern) {
  const SaturatedInt64 scanned = scanInt64(text);
  number = scanned.value;
  pattern = {};
  CardEncoder encoder;
  if (const int32_t rc = findCardEncoder(csid, line, sets, formats, encoder); rc < 0) return rc;
  return encodeCardNumber(encoder, scanned, line, pattern);
}

void bitsToHex(std::span<const uint8_t> bytes, std::span<char> text) {
  if (text.empty()) return;
  std::fill(text.begin(), text.end(), '\0');
  size_t length = 0;
  for (const uint8_t byte : bytes) {
    if (length + 2 >= text.size()) break;
    putHex(byte, &text[length]);
    length += 2;
  }
  size_t kept = length;
  while (kept > 1 && text[kept - 1] == '0') --kept;
  if (kept > 1) {
    std::fill(text.begin() + static_cast<ptrdiff_t>(kept), text.end(), '\0');
    length = kept;
  }
  if (length % 2 != 0) text[length] = '0';
}

void hexToBits(std::string_view text, std::span<uint8_t> bytes) {
  const auto digit = [text](size_t i) { return i < text.size() ? hexValue(text[i]) : 0; };
  for (size_t i = 0; i < bytes.size(); ++i) {
    const int high = digit(2 * i);
    const int low = digit(2 * i + 1);
    bytes[i] = static_cast<uint8_t>(high < 0 ? 0 : low < 0 ? high : high * 16 + low);
  }
  LOG_HEX(kLogStep, bytes, "no format card bits\n");
}

}  // namespace badgemint
