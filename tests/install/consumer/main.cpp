// A program of somebody else's: the entry functions and the C++ classes, each by its own header.
#include <badgemint.h>
#include <carddb/accessfile.h>
#include <carddb/identfile.h>
#include <inputcards/inputcards.h>
#include <site/accesslevel.h>

#include <cstdio>

int main() {
  badgemint::IdentFile idents;
  if (idents.loadIndex("nowhere.db", 0)) return 1;
  char bits[33];
  const int32_t result = ComputeCardBitPattern2("15890", "f 1 1 A 21", "", "site26.cdf", "stderr",
                                                25, bits, sizeof bits);
  if (result == 0) std::puts(bits);
  return result == 0 ? 0 : 1;
}
