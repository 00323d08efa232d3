#include "inputcards/cardline.h"

#include <cstring>

#include "support/packeddecimal.h"

namespace badgemint {

namespace {

constexpr size_t kCardFields = 4, kPinFields = 2, kHolderFields = 18;

// The descriptions of `count` fields as the lists visit them.
template <size_t Count, typename... Lists>
constexpr std::array<LineField, Count> describe(Lists... lists) {
  std::array<LineField, Count> fields;
  size_t next = 0;
  const auto add = [&](const LineField& field, const auto&) { fields[next++] = field; };
  (lists(add), ...);
  return fields;
}

constexpr auto kCardList = [](auto add) { forEachCardField(CardLine{}, add); };
constexpr auto kPinList = [](auto add) { forEachPinField(PinLine{}, add); };
constexpr auto kHolderList = [](auto add) { forEachHolderField(HolderFields{}, add); };
constexpr auto kLastFlag = [](auto add) { add(kLastFlagField, 0); };

constexpr auto kCardLineFields =
    describe<kCardFields + kHolderFields + 1>(kCardList, kHolderList, kLastFlag);
constexpr auto kPinLineFields = describe<kPinFields + kHolderFields>(kPinList, kHolderList);
constexpr auto kPinIdentLineFields = describe<kPinFields>(kPinList);
constexpr std::array kMultiCardsLineFields = {
    LineField{"card set", FieldKind::kCardSet, 253},
    LineField{"first card", FieldKind::kCardNumber, INT32_MAX},
    LineField{"number of cards", FieldKind::kNumber, INT32_MAX},
    LineField{"first unique ID", FieldKind::kUniqueId, UINT32_MAX},
    LineField{"access level", FieldKind::kAccessLevel, UINT16_MAX}};

}  // namespace

std::span<const LineField> lineFields(char lineType) {
  switch (lineType) {
    case kCardLine:
    case kNoFormatCardLine:
      return kCardLineFields;
    case kPinLine:
      return kPinLineFields;
    case kPinIdentLine:
      return kPinIdentLineFields;
    case kMultiCardsLine:
      return kMultiCardsLineFields;
    default:
      return {};
  }
}

CardPattern packedPin(std::string_view pin) {
  CardPattern key{};
  packDigits(pin, key);
  return key;
}

MultiCardsLine splitMultiCardsLine(char* line) {
  constexpr const char* kDelimiters = " \n\r";
  char* rest = nullptr;
  const auto next = [&rest] { return strtok_r(nullptr, kDelimiters, &rest); };
  return {strtok_r(line, kDelimiters, &rest), next(), next(), next(), next(), next()};
}

}  // namespace badgemint
