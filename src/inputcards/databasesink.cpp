#include "inputcards/databasesink.h"

#include <new>
#include <span>

#include "support/result.h"

namespace badgemint {

namespace {

// Record `number` of these images.
template <typename Record>
Record recordAt(std::span<const uint8_t> images, size_t number) {
  return decodeRecord<Record>(
      images.subspan(number * Record::kSize).template first<Record::kSize>());
}

}  // namespace

void DatabaseSink::startGathering() {
  _batch.reset(new (std::nothrow) Batch);
}

void DatabaseSink::Batch::add(const IdentRecord& ident, const AccessRecord* access) {
  hasAccess[idents] = access != nullptr;
  encodeRecord(ident, &identImages[idents++ * IdentRecord::kSize]);
  if (access != nullptr) encodeRecord(*access, &accessImages[accesses++ * AccessRecord::kSize]);
}

int32_t DatabaseSink::put(const IdentRecord& ident, const AccessRecord* access) {
  ++_credentials;
  if (_batch == nullptr) return append(ident, access);
  if (_batch->isFull()) {
    if (const int32_t rc = flush(); rc < 0) return rc;
  }
  _batch->add(ident, access);
  return kSuccess;
}

int32_t DatabaseSink::append(const IdentRecord& ident, const AccessRecord* access) {
  if (const int32_t rc = _identFile.appendRecord(ident); rc < 0) return rc;
  return access != nullptr ? _accessFile.appendRecord(*access) : kSuccess;
}

int32_t DatabaseSink::flush() {
  if (_batch == nullptr) return kSuccess;
  const int32_t result = appendBatch();
  _batch->idents = _batch->accesses = 0;
  return result;
}

// Which record is the first that finds no room depends on how the files share what is left of the
// disk. So a batch that cannot be written is taken back and appended record by record.
int32_t DatabaseSink::appendBatch() {
  const std::span<const uint8_t> idents(_batch->identImages.data(),
                                        _batch->idents * IdentRecord::kSize);
  const std::span<const uint8_t> accesses(_batch->accessImages.data(),
                                          _batch->accesses * AccessRecord::kSize);
  const size_t identBytes = _identFile.appendMany(idents);
  const bool identsDone = identBytes == idents.size();
  const size_t accessBytes = identsDone ? _accessFile.appendMany(accesses) : 0;
  if (identsDone && accessBytes == accesses.size()) return kSuccess;
  if (const int32_t rc = _identFile.removeLast(identBytes); rc < 0) return rc;
  if (const int32_t rc = _accessFile.removeLast(accessBytes); rc < 0) return rc;
  return appendOneByOne();
}

int32_t DatabaseSink::appendOneByOne() {
  size_t accessNumber = 0;
  for (size_t i = 0; i < _batch->idents; ++i) {
    const auto ident = recordAt<IdentRecord>(_batch->identImages, i);
    AccessRecord access;
    if (_batch->hasAccess[i]) access = recordAt<AccessRecord>(_batch->accessImages, accessNumber++);
    if (const int32_t rc = append(ident, _batch->hasAccess[i] ? &access : nullptr); rc < 0)
      return rc;
  }
  return kSuccess;
}

}  // namespace badgemint
