// Calls of the entry functions in the current folder, and what they tell.
#ifndef BADGEMINT_TESTS_TOOLS_ENTRYCALLS_H
#define BADGEMINT_TESTS_TOOLS_ENTRYCALLS_H

#include <gtest/gtest.h>

#include "support/faults.h"
#include "support/testsite.h"
#include "tools/badgemint.h"

namespace badgemint {

// What an entry function logged between its start and its end. A log that takes nothing is empty.
inline std::string logOf(const std::string& name, unsigned pause, int32_t result,
                         uint32_t level = 25) {
  EXPECT_EQ(takeSleeps(), std::vector{pause});
  const std::string log = contentOf("log"), module = "[0 badgemintdump] " + name;
  std::filesystem::remove("log");
  if (level == UINT32_MAX) return log;
  const std::string start = module + " version 2.10.4\n";
  const std::string end = module + " Complete, result=" + std::to_string(result) + "\n";
  EXPECT_TRUE(log.starts_with(start) && log.ends_with(end)) << log;
  return log.substr(start.size(), log.size() - start.size() - end.size());
}

}  // namespace badgemint

#endif  // BADGEMINT_TESTS_TOOLS_ENTRYCALLS_H
