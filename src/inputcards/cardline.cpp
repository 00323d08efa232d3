#include "inputcards/cardline.h"

#include <cstring>

#include "support/packeddecimal.h"

namespace badgemint {

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
