// A program of somebody else's, which has a header of the same name as one of the library's. It
// includes every installed header; the entry functions and the C++ classes are the library's.
#include "headers.h"
#include "support/result.h"

int main() {
  char bits[33];
  const int32_t result =
      ComputeCardBitPattern2("1", "f 1 1", "", "none.cdf", "stderr", 25, bits, sizeof bits);
  badgemint::IdentFile idents;
  return result == badgemint::kSuccess && idents.loadIndex("none.db", 0) ? 0 : kOwnResult;
}
