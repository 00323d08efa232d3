// How a record lies on disk: each record names its size and lists its fields with their offsets
// once (forEachField), and the encoder and the decoder here both walk that list. Integers are
// little-endian on disk whatever the machine; this file is the one place that knows.
#ifndef BADGEMINT_CARDDB_RECORDLAYOUT_H
#define BADGEMINT_CARDDB_RECORDLAYOUT_H

#include <algorithm>
#include <array>
#include <bit>
#include <concepts>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <span>

#include "support/exported.h"

namespace BADGEMINT_EXPORTED badgemint {

template <typename Record>
using RecordImage = std::array<uint8_t, Record::kSize>;

// A number as it stands on disk, and back.
template <std::unsigned_integral T>
T littleEndian(T value) {
  if constexpr (std::endian::native == std::endian::little) return value;
  auto bytes = std::bit_cast<std::array<uint8_t, sizeof(T)>>(value);
  std::reverse(bytes.begin(), bytes.end());
  return std::bit_cast<T>(bytes);
}

template <std::unsigned_integral T>
void storeField(uint8_t* bytes, T value) {
  value = littleEndian(value);
  std::memcpy(bytes, &value, sizeof value);
}

template <std::unsigned_integral T>
void loadField(const uint8_t* bytes, T& value) {
  std::memcpy(&value, bytes, sizeof value);
  value = littleEndian(value);
}

template <typename T, size_t Count>
void storeField(uint8_t* bytes, std::array<T, Count> values) {
  for (T& value : values) value = littleEndian(value);
  std::memcpy(bytes, values.data(), sizeof values);
}

template <typename T, size_t Count>
void loadField(const uint8_t* bytes, std::array<T, Count>& values) {
  std::memcpy(values.data(), bytes, sizeof values);
  for (T& value : values) value = littleEndian(value);
}

// Writes the record's image, Record::kSize bytes, to where it is wanted.
template <typename Record>
void encodeRecord(const Record& record, uint8_t* image) {
  Record::forEachField(
      record, [image](size_t offset, const auto& field) { storeField(image + offset, field); });
}

template <typename Record>
RecordImage<Record> encodeRecord(const Record& record) {
  RecordImage<Record> image;
  encodeRecord(record, image.data());
  return image;
}

template <typename Record>
Record decodeRecord(std::span<const uint8_t, Record::kSize> image) {
  Record record;
  Record::forEachField(
      record, [image](size_t offset, auto& field) { loadField(image.data() + offset, field); });
  return record;
}

// Whether the listed fields follow each other without gap or overlap and fill the record.
template <typename Record>
consteval bool fieldsFillRecord() {
  const Record record;
  size_t end = 0;
  bool gapless = true;
  Record::forEachField(record, [&](size_t offset, const auto& field) {
    gapless = gapless && offset == end;
    end += sizeof field;
  });
  return gapless && end == Record::kSize;
}

}  // namespace badgemint

#endif  // BADGEMINT_CARDDB_RECORDLAYOUT_H
