#include "cardsets/card_functions.h"

#include "support/testfiles.h"

namespace badgemint {

TEST(CardFunctions, ConvertHexadecimalDigits) {
  const std::tuple<const char*, const char*, size_t, const char*> rows[] = {
      {"0aFf00112", "0AFF0011", 9, "0AFF0011"},  // The size is of the text they come back into.
      {"", "00000000", 9, "00000000"},          {"ABC", "ABC00000", 9, "ABC0"},
      {"1g@9G9-2", "01000000", 9, "01"},        {"123456", "12345600", 4, "12"},
  };
  for (const auto& [digits, hex, size, back] : rows) {
    std::array<uint8_t, 4> bytes{};
    hexToBits(digits, bytes);
    EXPECT_EQ(hexLines(bytes), hex);
    std::string text(size, '!');
    bitsToHex(bytes, text);
    EXPECT_STREQ(text.c_str(), back);
  }
}

}  // namespace badgemint
