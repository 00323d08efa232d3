#include "admin/check/report.h"

namespace badgemint::admin {

namespace {

// Always of the same words, for programs that read it.
void printSummary(const Findings& findings, const SiteSummary& summary, Console& console) {
  std::ostream& output = console.output();
  if (findings.errors() == 0) {
    output << "no errors, " << findings.warnings() << " warnings; " << summary.credentials
           << " credentials of " << summary.holders << " holders\n";
    return;
  }
  const Verdict& verdict = findings.verdict();
  output << findings.errors() << " errors, " << findings.warnings()
         << " warnings; a build ends with " << verdict.result << " at "
         << findings.placeText(verdict.place) << '\n';
}

}  // namespace

ExitStatus report(const Findings& findings, const SiteSummary& summary, bool isStrict,
                  Console& console) {
  findings.print(console);
  printSummary(findings, summary, console);
  if (findings.errors() > 0 || (isStrict && findings.warnings() > 0)) return ExitStatus::kRefused;
  return findings.warnings() > 0 ? ExitStatus::kFound : ExitStatus::kAllWell;
}

}  // namespace badgemint::admin
