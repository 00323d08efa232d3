#include "inputcards/inputcards.h"

#include <gtest/gtest.h>

#include <optional>

#include "support/script.h"
#include "support/testsite.h"

namespace badgemint {
namespace {

TEST(InputCards, FollowTheTranscripts) {
  std::optional<InputCards> loader;
  Commands on;
  on["build"] = [](Step& c) {
    c.out << buildCards(c.input) << (std::filesystem::exists("ident") ? "" : ", no databases");
  };
  on["loader"] = [&](Step& c) { loader.emplace(c.name(0), c.name(1), c.name(2), c.name(3)); };
  on["formats"] = [&](Step& c) { c.out << loader->loadFormats("", c.name(0)); };
  on["pass"] = [&](Step& c) { c.out << (c.number(0) == 1 ? loader->pass1() : loader->pass2()); };

  for (const char* const part :
       {"rejected-lines", "duplicates", "line-types", "failing-files", "hostile-sizes"})
    play(std::string("inputcards/") + part + ".txt", on);
}

}  // namespace
}  // namespace badgemint
