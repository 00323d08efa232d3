#include "admin/records/wording.h"

#include <array>
#include <bit>

#include "cardsets/card_functions.h"

namespace badgemint::admin {

namespace {

// Of a member, or what a member function returns for an index.
template <auto Member, int32_t... Index>
uint32_t read(const AccessRecord& record) {
  return static_cast<uint32_t>(std::invoke(Member, record, Index...));
}

using enum AccessField::Kind;
constexpr AccessField kAccessFields[] = {
    {"access level 1", "access_levels", kAccessLevel, read<&AccessRecord::accessLevel, 0>},
    {"access level 2", "access_levels", kAccessLevel, read<&AccessRecord::accessLevel, 1>},
    {"access level 3", "access_levels", kAccessLevel, read<&AccessRecord::accessLevel, 2>},
    {"access level 4", "access_levels", kAccessLevel, read<&AccessRecord::accessLevel, 3>},
    {"access level 5", "access_levels", kAccessLevel, read<&AccessRecord::accessLevel, 4>},
    {"access level 6", "access_levels", kAccessLevel, read<&AccessRecord::accessLevel, 5>},
    {"access level 7", "access_levels", kAccessLevel, read<&AccessRecord::accessLevel, 6>},
    {"access level 8", "access_levels", kAccessLevel, read<&AccessRecord::accessLevel, 7>},
    {"start", "start", kTime, read<&AccessRecord::starttime>},
    {"end", "end", kTime, read<&AccessRecord::endtime>},
    {"flag 0 (not in the line)", "flags", kFlag, read<&AccessRecord::flag, 0>},
    {"flag 1 (second of the line)", "flags", kFlag, read<&AccessRecord::flag, 1>},
    {"flag 2 (first of the line)", "flags", kFlag, read<&AccessRecord::flag, 2>},
    {"flag 3 (not in the line)", "flags", kFlag, read<&AccessRecord::flag, 3>},
    {"flag 4 (third of the line)", "flags", kFlag, read<&AccessRecord::flag, 4>},
    {"flag 5 (last of the line)", "flags", kFlag, read<&AccessRecord::flag, 5>},
    {"flag 6 (not in the line)", "flags", kFlag, read<&AccessRecord::flag, 6>},
    {"flag 7 (not in the line)", "flags", kFlag, read<&AccessRecord::flag, 7>},
    {"escort", "escort", kEscort, read<&AccessRecord::escortid>},
    {"elevator access", "elevator_access", kNumber, read<&AccessRecord::elevatoraccess>},
    {"output relay group", "output_relay_group", kNumber, read<&AccessRecord::outrelaygrpid>},
    {"issue level", "issue_level", kNumber, read<&AccessRecord::cardissuelevel>},
    {"output mode", "output_mode", kNumber, read<&AccessRecord::outgrpmode>},
    {"PIN", "pin", kPin,
     [](const auto& record) { return std::bit_cast<uint32_t>(record.pincode); }},
};

std::string pinOf(const IdentRecord& record, bool withPins) {
  return withPins ? pinDigits<kMaxPinIdentDigits>(record.cardnumber) : kHiddenPin;
}

// "access_levels", "flags" and every other field that is not 0 under its key.
void addAccess(JsonObject& object, const AccessRecord& record, bool hasCard, bool withPins) {
  constexpr std::array<uint32_t, 8> kFlags = {0, 1, 2, 3, 4, 5, 6, 7};
  std::array<uint32_t, 8> numbers{};
  const auto addThose = [&](const char* key, const auto& all, auto isSet) {
    const auto end = std::copy_if(all.begin(), all.end(), numbers.begin(), isSet);
    object.add(key, std::span(numbers.begin(), end));
  };
  addThose("access_levels", record.acclevel, [](uint32_t level) { return level != 0; });
  addThose("flags", kFlags, [&](uint32_t bit) { return (record.bitflds >> bit & 1) != 0; });
  for (const auto& [name, key, kind, valueOf] : accessFields()) {
    if (kind == kAccessLevel || kind == kFlag || kind == kPin) continue;
    const uint32_t value = valueOf(record);
    if (kind == kTime && value != 0)
      object.add(key, timeText(value).data());
    else if (value != 0)
      object.add(key, value);
  }
  if (const std::string pin = pinText(record, withPins); hasCard && pin != "none")
    object.add("pin", pin);
}

}  // namespace

std::span<const AccessField> accessFields() {
  return kAccessFields;
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

DateTimeText timeText(uint32_t seconds) {
  DateTimeText text = formatDateTime(seconds);
  if (seconds != 0) text[std::string_view("2026/01/31").size()] = ' ';
  return text;
}

const char* validityText(const AccessRecord& record, uint32_t time) {
  const auto& [start, end] = std::pair(record.starttime, record.endtime);
  if (end != 0 && end < start) return "never valid";
  if (time < start) return "not yet valid";
  return end != 0 && time > end ? "expired" : "valid";
}

std::string keyText(const IdentRecord& record, bool withPins) {
  return isPinEntry(record) && !withPins ? kHiddenPin : keyText(record.cardnumber);
}

bool hasCard(const Holder& holder) {
  return !std::ranges::all_of(holder.credentials, isPinEntry);
}

std::optional<std::string> cardNumberText(const IdentRecord& record, const Site& site) {
  if (record.cardsetcode == kFormatlessCode) {
    std::array<char, 2 * sizeof record.cardnumber + 1> digits;
    bitsToHex(record.cardnumber, digits);
    return digits.data();
  }
  const auto number = site.cardNumberOf(record);
  return number ? std::optional(std::to_string(*number)) : std::nullopt;
}

std::string credentialText(const IdentRecord& record, const Site& site, bool withPins) {
  const uint32_t code = record.cardsetcode;
  if (code == kPinOnlyCode) return fmt::format("PIN {} without a card", pinOf(record, withPins));
  if (code == kPinIdentCode) return fmt::format("PIN {} beside a card", pinOf(record, withPins));
  const auto number = cardNumberText(record, site);
  if (code == kFormatlessCode) return fmt::format("card {} without format", *number);
  return fmt::format("card {} of card set {}",
                     number ? *number : "with key " + keyText(record, withPins), code);
}

std::string pinText(const AccessRecord& record, bool withPins) {
  if (!withPins) return kHiddenPin;
  const std::string digits = pinDigits<AccessRecord::kPinDigits>(record.pincode);
  return digits == "0" ? "none" : digits;
}

void addCredential(JsonObject& object, const IdentRecord& record, const Site& site, bool withPins) {
  const bool isPin = isPinEntry(record);
  object.add("kind", record.cardsetcode == kPinOnlyCode      ? "PIN alone"
                     : record.cardsetcode == kPinIdentCode   ? "PIN beside a card"
                     : record.cardsetcode == kFormatlessCode ? "card without format"
                                                             : "card");
  if (!isPin && record.cardsetcode != kFormatlessCode) object.add("set", record.cardsetcode);
  if (const auto number = cardNumberText(record, site)) object.add("card", *number);
  if (!isPin || withPins) object.add("key", keyText(record.cardnumber));
  if (isPin) object.add("pin", pinOf(record, withPins));
  if (record.deleted != 0) object.add("deleted", true);
}

JsonObject holderJson(const Holder& holder, const Site& site, uint32_t now, bool withPins) {
  JsonObject json;
  json.add("holder", holder.uniqid);
  json.addEach("access", holder.accesses, [&](JsonObject& object, const AccessRecord& record) {
    addAccess(object, record, hasCard(holder), withPins);
    object.add("validity", validityText(record, now));
  });
  return json.addEach("credentials", holder.credentials,
                      [&](JsonObject& object, const IdentRecord& record) {
                        addCredential(object, record, site, withPins);
                      });
}

}  // namespace badgemint::admin
