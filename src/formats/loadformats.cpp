#include "formats/loadformats.h"

#include <memory>
#include <new>

#include "formats/fmtfile.h"
#include "support/log.h"
#include "support/result.h"
#include "support/textutil.h"

namespace badgemint {

int32_t loadFormats(const char* module, const char* baseDirectory, const char* formatsFile,
                    CardFormatSet& formats) {
  const std::unique_ptr<FormatFileName> name(new (std::nothrow) FormatFileName{});
  if (!name) {
    LOG_AS(module, kLogError, "Not enough memory to create format filename\n");
    return kOutOfMemory;
  }
  fmtfile file;
  if (const int32_t rc = file.open(formatsFile); rc < 0) return rc;
  for (;;) {
    uint32_t id = 0;
    const int32_t read = file.readEntryBaseName(id, *name);
    if (read != kSuccess) return read == kEndOfFile ? kSuccess : read;
    joinPath(baseDirectory, name->data(), name->size());
    LOG_AS(module, kLogStep, "Load fmtid=%u fmtfile=%s\n", id, name->data());
    CardFormat* const format = formats.addFormat(id, name->data());
    if (format == nullptr) return kFormatNotAdded;
    if (const int32_t rc = format->loadFormatFile(name->data()); rc < 0) return rc;
  }
}

}  // namespace badgemint
