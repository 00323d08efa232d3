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
constexpr AccessField kAccessFields[] = {
    {"access level 1", kAccessLevel, levelOf<0>},
    {"access level 2", kAccessLevel, levelOf<1>},
    {"access level 3", kAccessLevel, levelOf<2>},
    {"access level 4", kAccessLevel, levelOf<3>},
    {"access level 5", kAccessLevel, levelOf<4>},
    {"access level 6", kAccessLevel, levelOf<5>},
    {"access level 7", kAccessLevel, levelOf<6>},
    {"access level 8", kAccessLevel, levelOf<7>},
    {"start", kTime, memberOf<&AccessRecord::starttime>},
    {"end", kTime, memberOf<&AccessRecord::endtime>},
    {"flag 0 (not in the line)", kFlag, flagOf<0>},
    {"flag 1 (second of the line)", kFlag, flagOf<1>},
    {"flag 2 (first of the line)", kFlag, flagOf<2>},
    {"flag 3 (not in the line)", kFlag, flagOf<3>},
    {"flag 4 (third of the line)", kFlag, flagOf<4>},
    {"flag 5 (last of the line)", kFlag, flagOf<5>},
    {"flag 6 (not in the line)", kFlag, flagOf<6>},
    {"flag 7 (not in the line)", kFlag, flagOf<7>},
    {"escort", kEscort, memberOf<&AccessRecord::escortid>},
    {"elevator access", kNumber, memberOf<&AccessRecord::elevatoraccess>},
    {"output relay group", kNumber, memberOf<&AccessRecord::outrelaygrpid>},
    {"issue level", kNumber, memberOf<&AccessRecord::cardissuelevel>},
    {"output mode", kNumber, memberOf<&AccessRecord::outgrpmode>},
    {"PIN", kPin, packedPinOf},
};

template <size_t Digits>
std::string digitsOf(std::span<const uint8_t> packed) {
  std::string digits = DigitText<Digits>(packed).c_str();
  for (char& digit : digits)
    if (!isDigit(digit)) digit = '?';  // A nibble of 10 to 14.
  return digits.empty() ? "0" : digits;
}

}  // namespace

std::span<const AccessField> accessFields() {
  return kAccessFields;
}

std::string valueText(const AccessField& field, const AccessRecord& record, bool withPins) {
  if (field.kind == kPin) return pinText(record, withPins);
  const uint32_t value = field.valueOf(record);
  return field.kind == kTime ? timeText(value) : std::to_string(value);
}

const char* differingField(const IdentRecord& a, const IdentRecord& b) {
  if (a.uniqid != b.uniqid) return "unique ID";
  if (a.cardsetcode != b.cardsetcode) return "card set";
  if (a.cardnumber != b.cardnumber) return "key";
  return a.deleted != b.deleted ? "mark of deletion" : nullptr;
}

const char* differingField(const AccessRecord& a, const AccessRecord& b) {
  if (a == b) return nullptr;
  if (a.uniqid != b.uniqid) return "unique ID";
  const auto differs = [&](const AccessField& field) {
    return field.valueOf(a) != field.valueOf(b);
  };
  return std::ranges::find_if(kAccessFields, differs)->name;
}

std::string timeText(uint32_t seconds) {
  std::string text = formatDateTime(seconds).data();
  std::ranges::replace(text, '-', ' ');
  return text;
}

Validity validityAt(uint32_t time, const AccessRecord& record) {
  const bool hasEnd = record.endtime != 0;
  if (hasEnd && record.endtime < record.starttime) return Validity::kNever;
  if (time < record.starttime) return Validity::kNotYet;
  return hasEnd && time > record.endtime ? Validity::kExpired : Validity::kValid;
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
  if (record.cardsetcode == kPinOnlyCode || record.cardsetcode == kPinIdentCode) {
    const std::string pin = withPins ? digitsOf<kMaxPinIdentDigits>(record.cardnumber) : kHiddenPin;
    return "PIN " + pin + (record.cardsetcode == kPinOnlyCode ? " alone" : " beside a card");
  }
  if (record.cardsetcode == kFormatlessCode) {
    std::array<char, 2 * sizeof record.cardnumber + 1> digits;
    bitsToHex(record.cardnumber, digits);
    return fmt::format("card {} without format", digits.data());
  }
  if (const auto number = site.cardNumberOf(record))
    return fmt::format("card {} of card set {}", *number, record.cardsetcode);
  return fmt::format("card with key {} of card set {}", keyText(record, withPins),
                     record.cardsetcode);
}

std::string pinText(const AccessRecord& record, bool withPins) {
  const std::string digits = digitsOf<AccessRecord::kPinDigits>(record.pincode);
  if (digits == "0") return "none";
  return withPins ? digits : kHiddenPin;
}

}  // namespace badgemint::admin
