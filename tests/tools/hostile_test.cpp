// Sizes that no honest site has: what is too much is refused, the rest is done.
#include <gtest/gtest.h>
#include <sys/resource.h>

#include <fstream>
#include <sstream>

#include "formats/loadformats.h"
#include "support/result.h"
#include "support/testsite.h"
#include "tools/badgemint.h"

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

constexpr char kHugeBlock[] = "f 1 1\nf 2 2\nd %d 1 2147483647 1\n";

std::string hugeBlock(int csid) {
  char text[sizeof kHugeBlock];
  std::snprintf(text, sizeof text, kHugeBlock, csid);
  return text;
}

// What `ulimit -v` sets, for as long as it lives.
class AddressSpaceLimit {
 public:
  explicit AddressSpaceLimit(rlim_t bytes) {
    getrlimit(RLIMIT_AS, &_before);
    const rlimit lower = {bytes, _before.rlim_max};
    setrlimit(RLIMIT_AS, &lower);
  }
  ~AddressSpaceLimit() { setrlimit(RLIMIT_AS, &_before); }
  AddressSpaceLimit(const AddressSpaceLimit&) = delete;
  AddressSpaceLimit& operator=(const AddressSpaceLimit&) = delete;

 private:
  rlimit _before{};
};

TEST(HostileSizes, EndlessBlocksEndCleanly) {
  TestSite site;
  TestLog log(25);
  EXPECT_EQ(site.build(hugeBlock(1)), kCardMismatch);
  EXPECT_EQ(log.take(), "[inputcards] Card mismatch cardno=65536, chkcardno=0\n");
#ifndef BADGEMINT_ADDRESS_SANITIZER
  const AddressSpaceLimit limit(rlim_t{256} << 20);
  EXPECT_EQ(site.build(hugeBlock(2)), kOutOfMemory);
  EXPECT_EQ(log.take(), "[cardindex] Not enough memory to create card index\n");
#endif
}

TEST(HostileSizes, LinesOfManyMegabytes) {
  TestSite site;
  const TestLog log(25);
  const std::string blanks(size_t{8} << 20, ' ');
  EXPECT_EQ(site.build("#" + std::string(299, 'x')), 0);
  EXPECT_EQ(site.build("f 1 1\nc 1 5 0 7" + blanks + "\nc 1 6 0 8\n"), 0);
  EXPECT_EQ(site.folder.read("ident").size(), 2 * IdentRecord::kSize);
  EXPECT_EQ(site.build("c" + std::string(size_t{8} << 20, '1')), kInvalidCardSet);
  EXPECT_EQ(site.build(std::string(size_t{8} << 20, '\0')), 0);
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
  EXPECT_EQ(site.build(lines.str()), 0);
  cardsets sets;
  ASSERT_EQ(sets.create(0), kSuccess);
  EXPECT_EQ(sets.load("cardsets"), kSuccess);
  EXPECT_EQ(sets.count(), 253);
  ASSERT_NE(sets.getCardSet(250), nullptr);
  EXPECT_EQ(sets.getCardSet(250)->valueOf('A'), 250);
}

// A path is cut where a join would pass 254 characters, and is then another path; without a base
// directory it is taken as it is, up to the system's own limit.
TEST(HostileSizes, DeepPaths) {
  TestSite site;
  const std::string deep = site.folder.path(std::string(200, 'd') + "/" + std::string(200, 'e'));
  std::filesystem::create_directories(deep);
  site.folder.write("cards", "f 1 1\nc 1 5 0 7\n");
  const auto build = [](const std::string& base, const std::string& ident) {
    return BadgeMint(base.c_str(), "cards", ident.c_str(), "access", "formats", "sets", "log", 25);
  };
  EXPECT_EQ(build("", deep + "/ident"), 0);
  EXPECT_TRUE(std::filesystem::exists(deep + "/ident"));
  EXPECT_EQ(build("", std::string(5000, 'x')), kIdentOpenFailed);
  EXPECT_LT(build(std::string(100000, 'x'), "ident"), 0);
}

}  // namespace
}  // namespace badgemint
