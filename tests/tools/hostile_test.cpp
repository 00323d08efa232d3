// Sizes that no honest site has: what is too much is refused, the rest is done.
#include <gtest/gtest.h>
#include <sys/resource.h>

#include <fstream>
#include <sstream>

#include "formats/loadformats.h"
#include "support/result.h"
#include "support/testsite.h"

// The sanitizers need an address space without limits.
#if defined(__SANITIZE_ADDRESS__)
#define BADGEMINT_ADDRESS_SANITIZER 1
#elif defined(__has_feature)
#if __has_feature(address_sanitizer)
#define BADGEMINT_ADDRESS_SANITIZER 1
#endif
#endif

namespace badgemint {
namespace {

// As under `ulimit -v`.
TEST(HostileSizes, AnEndlessBlockEndsWithTheMemoryOfTheProcess) {
#ifndef BADGEMINT_ADDRESS_SANITIZER
  const TestSite site;
  TestLog log(25);
  rlimit before{};
  getrlimit(RLIMIT_AS, &before);
  const rlimit lower = {rlim_t{256} << 20, before.rlim_max};
  setrlimit(RLIMIT_AS, &lower);
  EXPECT_EQ(buildCards("f 2 2\nd 2 1 2147483647 1\n"), kOutOfMemory);
  setrlimit(RLIMIT_AS, &before);
  EXPECT_EQ(log.take(), "[25 cardindex] Not enough memory to create card index\n");
#endif
}

TEST(HostileSizes, AHundredThousandFormats) {
#ifdef BADGEMINT_ADDRESS_SANITIZER
  constexpr int kFormats = 1000;  // Each is a file to be opened: the sanitizer takes long over it.
#else
  constexpr int kFormats = 100000;
#endif
  TestSite site;
  std::ostringstream lines;
  for (int id = 0; id < kFormats; ++id) lines << id << " 26.cdf\n";
  site.folder.write("formats", lines.str());
  CardFormatSet formats;
  ASSERT_EQ(formats.create(20), kSuccess);
  EXPECT_EQ(loadFormats("inputcards", "", "formats", formats), kSuccess);
  EXPECT_EQ(formats.count(), kFormats);
  EXPECT_NE(formats.findFormat(kFormats - 1), nullptr);
}

TEST(HostileSizes, EveryCardSetThereCanBe) {
  TestSite site;
  std::ostringstream lines;
  for (int csid = 1; csid <= 253; ++csid) lines << "f " << csid << " 1 A " << csid << "\n";
  for (int csid = 1; csid <= 253; ++csid) lines << "c " << csid << " 7 0 " << csid << "\n";
  EXPECT_EQ(buildCards(lines.str()), 0);
  cardsets sets;
  ASSERT_EQ(sets.create(0), kSuccess);
  EXPECT_EQ(sets.load("cardsets"), kSuccess);
  EXPECT_EQ(sets.count(), 253);
  ASSERT_NE(sets.getCardSet(250), nullptr);
  EXPECT_EQ(sets.getCardSet(250)->valueOf('A'), 250);
}

}  // namespace
}  // namespace badgemint
