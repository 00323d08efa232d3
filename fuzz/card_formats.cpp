// A format file of each kind, and cards encoded with its layout.
//
// Input: C, E or V for the kind, then the file; e or v if the file is given as plain characters,
// which the target stores as two bytes each.
#include "formats/CdfCardFormat.h"
#include "formats/EffCardFormat.h"
#include "formats/VffCardFormat.h"
#include "fuzz.h"
#include "support/result.h"

namespace badgemint {
namespace {

constexpr int64_t kValues[] = {0, 1, -1, 9, 15890, 99999999, INT64_MAX, INT64_MIN};

std::string twoBytes(std::string_view text, bool lines) {
  std::string bytes;
  for (const char c : text) {
    const int character = lines && c == '\n' ? '~' : c;
    bytes += static_cast<char>((character & 0xF) << 2);
    bytes += static_cast<char>((character >> 4 & 0xF) << 2);
  }
  return bytes;
}

CardPattern encode(CardFormat& format, int64_t number) {
  CardPattern pattern;
  int32_t bits = -1;
  require(format.encodeCard(number, pattern, bits) == kSuccess && bits >= 0 && bits <= 144,
          "a card is encoded, whatever its number");
  return pattern;
}

void useCards(CardFormat& format) {
  for (const int64_t value : kValues) {
    for (int32_t field = -1; field <= kFieldCount; ++field) format.setFieldValue(field, value);
    const CardPattern first = encode(format, value);
    for (const int64_t number : kValues) encode(format, number);
    require(encode(format, value) == first, "a card does not depend on the card before");
    format.decodeCardNumber(first);
    for (int32_t field = -1; field <= kFieldCount; ++field) {
      int64_t decoded = 0;
      require(format.decodeField(first, field, decoded) == kSuccess, "every field has a value");
      require(format.fieldBitCount(field) >= 0 && format.fieldBitCount(field) <= 144,
              "a field has 0 to 144 positions");
    }
  }
  require(format.lastUsedBit() >= -1 && format.lastUsedBit() < 144, "the last position is one");
  BitPattern pattern;
  for (int32_t i = -1; i <= kParityMaskCount; ++i) format.computeParityBit(pattern, i);
}

template <typename Format>
void load(std::string_view content) {
  const MemoryFile file(content);
  Format format;
  static_cast<void>(format.loadFormatFile(file.path()));
  useCards(format);
  static_cast<void>(format.loadFormatFile(file.path()));
  const DroppedLog everything(100);
  format.printInfo();
}

}  // namespace
}  // namespace badgemint

int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  using namespace badgemint;
  if (size == 0) return 0;
  {
    const DroppedLog log;
    const std::string_view file = textOf(data + 1, size - 1);
    if (*data == 'C') load<CdfCardFormat>(file);
    if (*data == 'E') load<EffCardFormat>(file);
    if (*data == 'e') load<EffCardFormat>(twoBytes(file, true));
    if (*data == 'V') load<VffCardFormat>(file);
    if (*data == 'v') load<VffCardFormat>(twoBytes(file, false));
  }
  return 0;
}
