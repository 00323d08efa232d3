#include "admin/records/wording.h"

#include <algorithm>
#include <array>
#include <bit>

#include "cardsets/card_functions.h"
#include "support/datetime.h"
#include "support/packeddecimal.h"
#include "support/textutil.h"

namespace badgemint::admin {

namespace {

constexpr std::array kFlagTexts = {"flag 0 (not in the line)",   "flag 1 (second of the line)",
                                   "flag 2 (first of the line)", "flag 3 (not in the line)",
                                   "flag 4 (third of the line)", "flag 5 (last of the line)",
                                   "flag 6 (not in the line)",   "flag 7 (not in the line)"};

template <int32_t Slot>
uint32_t levelOf(const AccessRecord& record) {
  return record.accessLevel(Slot);
}
template <int32_t Bit>
uint32_t flagOf(const AccessRecord& record) {
  return static_cast<uint32_t>(record.flag(Bit));
}
template <auto Member>
uint32_t memberOf(const AccessRecord& record) {
  return record.*Member;
}
uint32_t packedPinOf(const AccessRecord& record) {
  return std::bit_cast<uint32_t>(record.pincode);
}

using enum AccessField::Kind;
constexpr AccessField kFields[] = {
    {"PIN", kPin, packedPinOf},
    {"access level 1", kNumber, levelOf<0>},
    {"access level 2", kNumber, levelOf<1>},
    {"access level 3", kNumber, levelOf<2>},
    {"access level 4", kNumber, levelOf<3>},
    {"access level 5", kNumber, levelOf<4>},
    {"access level 6", kNumber, levelOf<5>},
    {"access level 7", kNumber, levelOf<6>},
    {"access level 8", kNumber, levelOf<7>},
    {kFlagTexts[0], kNumber, flagOf<0>},
    {kFlagTexts[1], kNumber, flagOf<1>},
    {kFlagTexts[2], kNumber, flagOf<2>},
    {kFlagTexts[3], kNumber, flagOf<3>},
    {kFlagTexts[4], kNumber, flagOf<4>},
    {kFlagTexts[5], kNumber, flagOf<5>},
    {kFlagTexts[6], kNumber, flagOf<6>},
    {kFlagTexts[7], kNumber, flagOf<7>},
    {"escort", kNumber, memberOf<&AccessRecord::escortid>},
    {"start", kTime, memberOf<&AccessRecord::starttime>},
    {"end", kTime, memberOf<&AccessRecord::endtime>},
    {"elevator access", kNumber, memberOf<&AccessRecord::elevatoraccess>},
    {"output relay group", kNumber, memberOf<&AccessRecord::outrelaygrpid>},
    {"issue level", kNumber, memberOf<&AccessRecord::cardissuelevel>},
    {"output mode", kNumber, memberOf<&AccessRecord::outgrpmode>},
};

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

std::string credentialText(const IdentRecord& record, const Site& site, bool withPins) {
  if (record.cardsetcode == kPinOnlyCode) return pinOf(record, withPins) + " alone";
  if (record.cardsetcode == kPinIdentCode) return pinOf(record, withPins) + " beside a card";
  if (record.cardsetcode == kFormatlessCode) {
    std::array<char, 2 * sizeof record.cardnumber + 1> digits;
    bitsToHex(record.cardnumber, digits);
    return std::string("card ") + digits.data() + " without format";
  }
  const std::string set = " of card set " + std::to_string(record.cardsetcode);
  if (const auto number = site.cardNumberOf(record)) return "card " + std::to_string(*number) + set;
  return "card with key " + keyText(record, withPins) + set;
}

std::string pinText(const AccessRecord& record, bool withPins) {
  const std::string digits = digitsOf<AccessRecord::kPinDigits>(record.pincode);
  if (digits == "0") return "none";
  return withPins ? digits : kHiddenPin;
}

std::span<const AccessField> accessFields() {
  return kFields;
}

std::string valueText(const AccessField& field, const AccessRecord& record, bool withPins) {
  if (field.kind == AccessField::Kind::kPin) return pinText(record, withPins);
  const uint32_t value = field.valueOf(record);
  return field.kind == AccessField::Kind::kTime ? timeText(value) : std::to_string(value);
}

const char* flagText(int32_t bit) {
  return kFlagTexts.at(static_cast<size_t>(bit));
}

}  // namespace badgemint::admin
