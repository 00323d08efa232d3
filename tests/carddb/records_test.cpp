#include <gtest/gtest.h>

#include "carddb/databases.h"

namespace badgemint {
namespace {

// The record of an image of hexadecimal digits.
template <typename Record>
Record recordOf(const Step& c) {
  RecordImage<Record> image;
  for (size_t i = 0; i < image.size(); ++i)
    image[i] = static_cast<uint8_t>(std::stoi(c.word(0).substr(2 * i, 2), nullptr, 16));
  return decodeRecord<Record>(image);
}

TEST(Records, FollowTheTranscript) {
  char text[AccessRecord::kTextSize];
  Commands on;
  on["ident-fields"] = [](Step& c) {
    const IdentRecord r = recordOf<IdentRecord>(c);
    c.out << std::hex << hexLines(r.cardnumber) << ", " << r.uniqid << ' ' << r.cardsetcode << ' '
          << r.deleted << '\n'
          << hexLines(bytesOf(r));
  };
  on["access-fields"] = [](Step& c) {
    const AccessRecord r = recordOf<AccessRecord>(c);
    c.out << std::hex << r.uniqid << ' ' << hexLines(r.pincode) << ',';
    for (const uint16_t level : r.acclevel) c.out << ' ' << level;
    c.out << ", " << r.starttime << ' ' << r.endtime << ' ' << r.escortid << ' ' << r.cardissuelevel
          << ' ' << int{r.bitflds} << ' ' << int{r.elevatoraccess} << ' ' << int{r.outrelaygrpid}
          << ' ' << int{r.outgrpmode} << '\n'
          << hexLines(bytesOf(r));
  };
  on["ident-texts"] = [&](Step& c) {
    const IdentRecord r = recordOf<IdentRecord>(c);
    for (const bool isPin : {true, false}) {
      r.toIdentifierText("0042", isPin, text);
      c.out << text << '\n';
    }
    r.toNumericText(5, 1, text);
    c.out << text;
  };
  on["access-texts"] = [&](Step& c) {
    AccessRecord r = recordOf<AccessRecord>(c);
    r.toShortText(text);
    c.out << text << '\n';
    for (int i = 0; i < 2; ++i) r.toText(text);
    c.out << text << '\n' << hexLines(r.pincode);
  };
  on["sizes"] = [](Step&) {
    IdentRecord::printSizes();
    AccessRecord::printSizes();
  };
  play("carddb/records.txt", on);
}

TEST(Records, GuardSlotsAndFlags) {
  AccessRecord record;
  for (int32_t slot = -1; slot <= 8; ++slot) record.setAccessLevel(slot, 9);
  EXPECT_EQ(record.accessLevel(-1) + record.accessLevel(0) + record.accessLevel(8), 9);
  for (int32_t bit = 0; bit < 6; ++bit) {
    record.bitflds = 0x15;
    record.setFlag(bit, -1);
    EXPECT_EQ(record.bitflds, 0x15 | 1 << bit);
    record.setFlag(bit, 0);
    EXPECT_EQ(record.bitflds, 0x15 & ~(1 << bit));
  }
}

}  // namespace
}  // namespace badgemint
