#include "carddb/accessrecord.h"

#include <cstdio>

#include "support/datetime.h"
#include "support/log.h"
#include "support/packeddecimal.h"

namespace badgemint {

namespace {

constexpr char kLogModule[] = "accessrecord";

constexpr uint8_t kBlankNibble = 0xF;

}  // namespace

void AccessRecord::copyValidityFrom(const AccessRecord& other) {
  starttime = other.starttime;
  endtime = other.endtime;
  escortid = other.escortid;
  elevatoraccess = other.elevatoraccess;
  outrelaygrpid = other.outrelaygrpid;
}

void AccessRecord::toText(std::span<char> buffer) {
  if (pincode[0] >> 4 == kBlankNibble) {
    pincode.fill(0);
    packDigits("0", pincode);
    LOG(kLogError, "pincode for uniqid=%u was blank and is now %s\n", uniqid,
        DigitText<kPinDigits>(pincode).c_str());
  }
  std::snprintf(buffer.data(), buffer.size(),
                "%s %10.10u %d %d %d %d %d %d %d %d %d %d %d %d %d %u %s %s %u %u %u %u %d",
                DigitText<kPinDigits>(pincode).c_str(), uniqid, acclevel[0], acclevel[1],
                acclevel[2], acclevel[3], acclevel[4], acclevel[5], acclevel[6], acclevel[7],
                flag(2), flag(0), flag(1), flag(3), flag(4), cardissuelevel,
                formatDateTime(starttime).data(), formatDateTime(endtime).data(), escortid,
                elevatoraccess, outrelaygrpid, outgrpmode, flag(5));
}

void AccessRecord::toShortText(std::span<char> buffer) const {
  std::array<char, kPinDigits / 2 + 1> rawPin{};
  for (size_t i = 0; i < pincode.size(); ++i) rawPin[i] = static_cast<char>(pincode[i]);
  std::snprintf(buffer.data(), buffer.size(),
                "%10.10u %4s %d %d %d %d %d %d %d %d %d %d %d %u %u %u %u %d", uniqid,
                rawPin.data(), acclevel[0], acclevel[1], acclevel[2], acclevel[3], acclevel[4],
                acclevel[5], acclevel[6], acclevel[7], flag(2), flag(0), flag(1), cardissuelevel,
                elevatoraccess, outrelaygrpid, outgrpmode, flag(5));
}

void AccessRecord::printSizes() {
  const AccessRecord record;
  size_t sum = 0;
  forEachField(record, [&sum](size_t, const auto& field) { sum += sizeof field; });
  std::printf("uniqid %zu \n", sizeof record.uniqid);
  std::printf("pincode %zu\n", sizeof record.pincode);
  std::printf("acclevel     %zu\n", sizeof record.acclevel);
  std::printf("bitflds    %zu\n", sizeof record.bitflds);
  std::printf("cardissuelevel  %zu\n", sizeof record.cardissuelevel);
  std::printf("starttime %zu\n", sizeof record.starttime);
  std::printf("endtime %zu\n", sizeof record.endtime);
  std::printf("escortid %zu\n", sizeof record.escortid);
  std::printf("elevatoraccess %zu\n", sizeof record.elevatoraccess);
  std::printf("outrelaygrpid %zu \n", sizeof record.outrelaygrpid);
  std::printf("outgrpmode %zu \n", sizeof record.outgrpmode);
  std::printf("sum of access record flds = %zu \n", sum);
  std::printf("access record size is %zu \n", kSize);
}

}  // namespace badgemint
