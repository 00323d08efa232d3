// The two databases as a build writes them. Result, messages and files are those of appending
// record by record; most records go out many at a time all the same.
#ifndef BADGEMINT_INPUTCARDS_DATABASESINK_H
#define BADGEMINT_INPUTCARDS_DATABASESINK_H

#include <array>
#include <cstddef>
#include <cstdint>
#include <memory>

#include "carddb/accessfile.h"
#include "carddb/identfile.h"
#include "inputcards/recordsink.h"

namespace badgemint {

// Appends to the databases, which are open for appending and outlive it. The first record that
// cannot be appended ends the pass: it has one message, and nothing after it is written.
class DatabaseSink final : public RecordSink {
 public:
  DatabaseSink(IdentFile& identFile, AccessFile& accessFile)
      : _identFile(identFile), _accessFile(accessFile) {}

  // Gathers records from now on and writes many at a time; without memory it goes on one by one.
  // Once, before the first record. For a pass that logs nothing of a line that went well: the
  // line's records may not be in the files yet.
  void startGathering();

  // kSuccess, or the code of the file that failed.
  [[nodiscard]] int32_t put(const IdentRecord& ident, const AccessRecord* access) override;

  // Writes what was gathered. kSuccess, or the code of the file that failed; what could not be
  // written is dropped.
  [[nodiscard]] int32_t flush();

  // Ident records so far.
  int64_t credentials() const { return _credentials; }

 private:
  // Credentials that were gathered, and the images of their records.
  struct Batch {
    static constexpr size_t kMost = 1500;

    bool isFull() const { return idents == kMost; }
    void add(const IdentRecord& ident, const AccessRecord* access);

    size_t idents = 0, accesses = 0;
    std::array<bool, kMost> hasAccess;
    std::array<uint8_t, kMost * IdentRecord::kSize> identImages;
    std::array<uint8_t, kMost * AccessRecord::kSize> accessImages;
  };

  int32_t append(const IdentRecord& ident, const AccessRecord* access);
  int32_t appendBatch();
  int32_t appendOneByOne();

  IdentFile& _identFile;
  AccessFile& _accessFile;
  int64_t _credentials = 0;
  std::unique_ptr<Batch> _batch;  // Null while records are written one by one.
};

}  // namespace badgemint

#endif  // BADGEMINT_INPUTCARDS_DATABASESINK_H
