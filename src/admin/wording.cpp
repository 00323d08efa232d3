#include "admin/wording.h"

#include <algorithm>
#include <array>

#include "cardsets/card_functions.h"
#include "support/datetime.h"
#include "support/packeddecimal.h"
#include "support/textutil.h"

namespace badgemint::admin {

namespace {

template <size_t Digits>
std::string digitsOf(std::span<const uint8_t> packed) {
  std::string digits = DigitText<Digits>(packed).c_str();
  for (char& digit : digits)
    if (!isDigit(digit)) digit = '?';  // A nibble that is no digit.
  return digits.empty() ? "0" : digits;
}

std::string pinOf(const IdentRecord& record, bool withPins) {
  return "PIN " + (withPins ? digitsOf<kMaxPinIdentDigits>(record.cardnumber) : kHiddenPin);
}

}  // namespace

std::string timeText(uint32_t seconds) {
  std::string text = formatDateTime(seconds).data();
  std::ranges::replace(text, '-', ' ');
  return text;
}

std::string keyText(const CardPattern& key) {
  std::string text(2 * key.size(), '0');
  for (size_t i = 0; i < key.size(); ++i) putHex(key[i], text.data() + 2 * i);
  return text;
}

std::string keyText(const IdentRecord& record, bool withPins) {
  return isPinEntry(record) && !withPins ? kHiddenPin : keyText(record.cardnumber);
}

std::string credentialText(const IdentRecord& record, const CardSite& site, bool withPins) {
  if (record.cardsetcode == kPinOnlyCode) return pinOf(record, withPins) + " alone";
  if (record.cardsetcode == kPinIdentCode) return pinOf(record, withPins) + " beside a card";
  if (record.cardsetcode == kFormatlessCode) {
    std::array<char, 2 * sizeof record.cardnumber + 1> digits;
    bitsToHex(record.cardnumber, digits);
    return std::string("card ") + digits.data() + " without format";
  }
  const std::string set = " of card set " + std::to_string(record.cardsetcode);
  if (const auto number = site.cardNumberOf(record)) return "card " + std::to_string(*number) + set;
  return "card with key " + keyText(record.cardnumber) + set;
}

std::string pinText(const AccessRecord& record, bool withPins) {
  const std::string digits = digitsOf<AccessRecord::kPinDigits>(record.pincode);
  if (digits == "0") return "none";
  return withPins ? digits : kHiddenPin;
}

std::string flagText(int32_t bit) {
  constexpr std::array kPlaces = {"not in the line", "second of the line", "first of the line",
                                  "not in the line", "third of the line",  "last of the line",
                                  "not in the line", "not in the line"};
  return "flag " + std::to_string(bit) + " (" + kPlaces.at(static_cast<size_t>(bit)) + ")";
}

std::vector<NamedValue> valuesOf(const AccessRecord& record, bool withPins) {
  std::vector<NamedValue> values = {{"PIN", pinText(record, withPins)}};
  const auto add = [&values](std::string name, uint32_t value) {
    values.push_back({std::move(name), std::to_string(value)});
  };
  for (int32_t slot = 0; slot < AccessRecord::kAccessLevels; ++slot)
    add("access level " + std::to_string(slot + 1), record.accessLevel(slot));
  for (int32_t bit = 0; bit < 8; ++bit) add(flagText(bit), static_cast<uint32_t>(record.flag(bit)));
  add("escort", record.escortid);
  values.push_back({"start", timeText(record.starttime)});
  values.push_back({"end", timeText(record.endtime)});
  add("elevator access", record.elevatoraccess);
  add("output relay group", record.outrelaygrpid);
  add("issue level", record.cardissuelevel);
  add("output mode", record.outgrpmode);
  return values;
}

}  // namespace badgemint::admin
