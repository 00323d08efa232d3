#include "inputcards/cardline.h"

#include <cstring>

namespace badgemint {

MultiCardsLine splitMultiCardsLine(char* line) {
  constexpr const char* kDelimiters = " \n\r";
  char* rest = nullptr;
  const auto next = [&rest] { return strtok_r(nullptr, kDelimiters, &rest); };
  return {strtok_r(line, kDelimiters, &rest), next(), next(), next(), next(), next()};
}

}  // namespace badgemint
