#include "formats/fmtfile.h"
#include "support/masterconfiguration.h"
#include "support/result.h"
#include "support/textutil.h"

namespace badgemint {

int32_t fmtfile::openFromConfiguration(MasterConfiguration& configuration) {
  constexpr uint16_t kReportingModule = 1;
  constexpr uint16_t kReportNoFormatsFile = 21;
  if (configuration.openEntryFile("fmts", _file)) return kSuccess;
  reportSystemError(kReportingModule, kReportNoFormatsFile);
  return kFormatsOpenFailed;
}

}  // namespace badgemint
