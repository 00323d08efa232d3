#include "inputcards/cardline.h"

#include <cstring>

namespace badgemint {

namespace {

constexpr size_t kMaxNumberWord = 99;    // Card numbers and PINs, before they are checked.
constexpr size_t kMaxDateTimeWord = 14;  // A date or a time.

}  // namespace

// Braced lists are evaluated from left to right: the fields stand in the order of the line.

CardLine scanCardLine(FieldScanner& scanner) {
  return {scanner.nextInt(), scanner.nextWord(kMaxNumberWord), scanner.nextWord(kMaxNumberWord),
          scanner.nextUnsigned()};
}

PinLine scanPinLine(FieldScanner& scanner) {
  return {scanner.nextWord(kMaxNumberWord), scanner.nextUnsigned()};
}

HolderFields scanHolderFields(FieldScanner& scanner) {
  HolderFields holder;
  for (int32_t& level : holder.accessLevels) level = scanner.nextInt();
  holder.flag2 = scanner.nextInt();
  holder.flag1 = scanner.nextInt();
  holder.flag4 = scanner.nextInt();
  holder.escortId = scanner.nextUnsigned();
  holder.startDate = scanner.nextWord(kMaxDateTimeWord);
  holder.startTime = scanner.nextWord(kMaxDateTimeWord);
  holder.endDate = scanner.nextWord(kMaxDateTimeWord);
  holder.endTime = scanner.nextWord(kMaxDateTimeWord);
  holder.elevatorAccess = scanner.nextInt();
  holder.outputRelayGroup = scanner.nextInt();
  return holder;
}

MultiCardsLine splitMultiCardsLine(char* line) {
  constexpr const char* kDelimiters = " \n\r";
  char* rest = nullptr;
  const auto next = [&rest] { return strtok_r(nullptr, kDelimiters, &rest); };
  return {strtok_r(line, kDelimiters, &rest), next(), next(), next(), next(), next()};
}

}  // namespace badgemint
