// A program of somebody else's, which has a header of the same name as one of the library's. It
// includes every installed header; the entry functions and the C++ classes are the library's.
#include "headers.h"
#include "support/result.h"

#include <cstdio>

int main() {
  badgemint::IdentFile idents;
  if (idents.loadIndex("nowhere.db", 0)) return kOwnResult;
  char bits[33];
  const int32_t result = ComputeCardBitPattern2("15890", "f 1 1 A 21", "", "site26.cdf", "stderr",
                                                25, bits, sizeof bits);
  if (result == badgemint::kSuccess) std::puts(bits);
  return result;
}
