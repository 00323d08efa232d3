// The check of a site before a build: it must say of any files how a build of them ends. Input: a
// formats file, a CDF file that it may name as "any.cdf", a cards file, each but the last ended by
// a line "=". The formats of the other targets are there as 1 and 2 where the formats file is
// empty.
#include "admin/check/sitecheck.h"

#include "fuzz.h"
#include "inputcards/inputcards.h"

namespace badgemint::admin {
namespace {

constexpr const char* kCards = "cards";
constexpr const char* kFormats = "checked formats";

int32_t build() {
  InputCards loader(kCards, "ident", "access", "cardsets");
  require(loader.isInitialised(), "the loader has its memory");
  const int32_t loaded = loader.loadFormats("", kFormats);
  return loaded < 0 ? loaded : loader.pass1();
}

// In the order in which they are printed, each where it can stand.
void requireSorted(const Findings& findings) {
  const std::vector<Finding> sorted = findings.sorted();
  require(sorted.size() == findings.errors() + findings.warnings(), "all findings are kept");
  for (const Finding& finding : sorted) {
    require(finding.place.line >= 0 && finding.place.column >= 0, "a place is one");
    for (const char c : finding.text) require(c >= ' ' && c <= '~', "a text can be read");
  }
}

}  // namespace
}  // namespace badgemint::admin

int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  using namespace badgemint;
  using namespace badgemint::admin;
  static const FormatsFolder folder;
  std::string_view input = textOf(data, size);
  const std::string_view formats = takeUntil(input, "=\n");
  WorkFolder::write(kFormats, formats.empty() ? "1 bin.cdf\n2 bcd.cdf\n" : formats);
  WorkFolder::write("any.cdf", takeUntil(input, "=\n"));
  WorkFolder::write(kCards, input);

  Findings findings(true);
  const SiteSummary summary = checkSite({kCards, kFormats, "", false}, findings);
  const int32_t built = build();
  require(findings.verdict().result == built, "the verdict is the result of a build");
  require((findings.errors() > 0) == (built < 0), "what fails a build is an error");
  require(summary.holders >= 0 && summary.holders <= summary.credentials, "a holder has a card");
  requireSorted(findings);
  return 0;
}
