#include "carddb/identrecord.h"

#include <cstdio>

namespace badgemint {

void IdentRecord::toIdentifierText(const char* id, bool isPin, std::span<char> buffer) const {
  if (isPin)
    std::snprintf(buffer.data(), buffer.size(), "%s 0 1 %u %u", id, uniqid, deleted);
  else
    std::snprintf(buffer.data(), buffer.size(), "%s %u 0 %u %u", id, cardsetcode, uniqid, deleted);
}

void IdentRecord::toNumericText(uint32_t low, uint32_t high, std::span<char> buffer) const {
  const auto number = static_cast<long long>(uint64_t{high} << 32 | low);
  std::snprintf(buffer.data(), buffer.size(), "%lld %u %u", number, cardsetcode, uniqid);
}

void IdentRecord::printSizes() {
  const IdentRecord record;
  size_t sum = 0;
  forEachField(record, [&sum](size_t, const auto& field) { sum += sizeof field; });
  std::printf("cardnumber %zu\n", sizeof record.cardnumber);
  std::printf("cardsetcode %zu \n", sizeof record.cardsetcode);
  std::printf("uniqid %zu \n", sizeof record.uniqid);
  std::printf("deleted %zu\n", sizeof record.deleted);
  std::printf("sum of ident record flds = %zu \n", sum);
  std::printf("ident record size is %zu \n", kSize);
}

}  // namespace badgemint
