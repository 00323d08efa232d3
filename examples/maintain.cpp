// Changes existing databases: disables a card and the PIN beside it, or gives a holder a new end of
// validity. The exit status is 0 if it succeeds.
#include <cstdio>
#include <cstdlib>
#include <string_view>

#include <badgemint/carddb/accessfile.h>
#include <badgemint/carddb/identfile.h>
#include <badgemint/cardsets/card_functions.h>
#include <badgemint/support/datetime.h>
#include <badgemint/support/standardfiles.h>

namespace {

// `bits` are the bits of the card in hexadecimal, as `bitpattern` prints them.
int32_t disable(const char* identDb, const char* bits) {
  std::string_view digits = bits;
  if (const int32_t rc = badgemint::checkCardNumber(digits, 0, 1); rc < 0) return rc;
  badgemint::IdentFile cards;
  if (!cards.loadIndex(identDb, 0)) return -1;
  badgemint::CardPattern key{};
  badgemint::hexToBits(digits, key);
  uint32_t uniqid = 0;
  const int32_t result = cards.setCardDeleted(key, uniqid);
  if (result == 0) std::printf("holder %u\n", uniqid);
  return result;
}

// `end` is "2030/12/31-18:00:00" or "0" for none.
int32_t extend(const char* accessDb, uint32_t uniqid, const char* end) {
  badgemint::AccessFile holders;
  if (const int32_t rc = holders.loadIndex(accessDb, 0); rc < 0) return rc;
  badgemint::AccessRecord holder;
  if (const int32_t rc = holders.findAccess(uniqid, holder); rc < 0) return rc;
  if (const int32_t rc = badgemint::parseDateTime(end, holder.endtime); rc < 0) return rc;
  return holders.updateAccessTimes(holder);
}

}  // namespace

int main(int argc, char* argv[]) {
  if (takeStandardFiles() != 0) return 1;
  int32_t result = 0;
  if (argc == 4 && std::string_view(argv[1]) == "disable") {
    result = disable(argv[2], argv[3]);
  } else if (argc == 5 && std::string_view(argv[1]) == "extend") {
    result = extend(argv[2], static_cast<uint32_t>(std::strtoul(argv[3], nullptr, 10)), argv[4]);
  } else {
    std::puts(
        "Usage: maintain disable IdentDBFile CardBits\n"
        "       maintain extend AccessDBFile UniqueID EndDate-EndTime");
    return 2;
  }
  std::printf("maintain result = %d\n", result);
  return result == 0 ? 0 : 1;
}
