// The card formats of a run, in the order of the formats file.
#ifndef BADGEMINT_FORMATS_CARDFORMATSET_H
#define BADGEMINT_FORMATS_CARDFORMATSET_H

#include <cstdint>

#include "formats/CardFormat.h"
#include "support/exported.h"
#include "support/steparray.h"

namespace BADGEMINT_EXPORTED badgemint {

// Owns its formats; pointers to them stay valid as long as the set lives.
class CardFormatSet {
 public:
  CardFormatSet() = default;
  ~CardFormatSet();
  CardFormatSet(const CardFormatSet&) = delete;
  CardFormatSet& operator=(const CardFormatSet&) = delete;

  // Makes room for `capacity` formats (0 or more). kOutOfMemory, with a message at level 25, when
  // there is no memory; formats can still be added.
  [[nodiscard]] int32_t create(int32_t capacity);

  // Adds a format, not yet loaded, of the kind that its file name contains in letters of any case:
  // ".CDF", else ".EFF", else ".VFF". Null, with a message at level 25, when it contains none and
  // when there is no memory.
  CardFormat* addFormat(uint32_t formatID, const char* fileName);

  // Whether the name is that of a format file: it contains the extension of a kind.
  static bool isFormatFile(const char* fileName);

  // The first format of this ID; null when there is none. IDs need not be unique.
  CardFormat* findFormat(uint32_t formatID) const;

  int32_t count() const { return _formats.count(); }

 private:
  StepArray<CardFormat*, 10> _formats;
};

}  // namespace badgemint

#endif  // BADGEMINT_FORMATS_CARDFORMATSET_H
