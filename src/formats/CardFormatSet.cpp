#include "formats/CardFormatSet.h"

#include <algorithm>
#include <cctype>
#include <new>
#include <string_view>

#include "formats/CdfCardFormat.h"
#include "formats/EffCardFormat.h"
#include "formats/VffCardFormat.h"
#include "support/log.h"
#include "support/result.h"

namespace badgemint {
namespace {

constexpr char kLogModule[] = "CardFormatSet";

template <typename Format>
CardFormat* make() {
  return new (std::nothrow) Format;
}

// In the order of the tests: a name may contain more than one.
struct Kind {
  std::string_view extension;
  CardFormat* (*make)();
};
constexpr Kind kKinds[] = {
    {".CDF", make<CdfCardFormat>}, {".EFF", make<EffCardFormat>}, {".VFF", make<VffCardFormat>}};

// Anywhere in the name, not only at its end.
bool contains(std::string_view name, std::string_view extension) {
  const auto matches = [](char c, char upper) {
    return std::toupper(static_cast<unsigned char>(c)) == upper;
  };
  return std::search(name.begin(), name.end(), extension.begin(), extension.end(), matches) !=
         name.end();
}

const Kind* kindOf(std::string_view fileName) {
  return std::ranges::find_if(
      kKinds, [fileName](const Kind& kind) { return contains(fileName, kind.extension); });
}

void reportNoMemory() {
  LOG(kLogError, "Not enough memory to create card formats\n");
}

}  // namespace

CardFormatSet::~CardFormatSet() {
  for (const CardFormat* const format : _formats.elements()) delete format;
}

int32_t CardFormatSet::create(int32_t capacity) {
  if (_formats.create(capacity)) return kSuccess;
  reportNoMemory();
  return kOutOfMemory;
}

bool CardFormatSet::isFormatFile(const char* fileName) {
  return kindOf(fileName) != std::end(kKinds);
}

CardFormat* CardFormatSet::addFormat(uint32_t formatID, const char* fileName) {
  CardFormat** const slot = _formats.nextSlot();
  if (slot == nullptr) {
    reportNoMemory();
    return nullptr;
  }
  const Kind* const kind = kindOf(fileName);
  if (kind == std::end(kKinds)) {
    LOG(kLogError, "Invalid format file %s\n", fileName);
    return nullptr;
  }
  CardFormat* const format = kind->make();
  if (format == nullptr) {
    reportNoMemory();
    return nullptr;
  }
  format->setFormatID(formatID);
  *slot = format;
  _formats.commit();
  return format;
}

CardFormat* CardFormatSet::findFormat(uint32_t formatID) const {
  for (CardFormat* const format : _formats.elements())
    if (format->getFormatID() == formatID) return format;
  return nullptr;
}

}  // namespace badgemint
