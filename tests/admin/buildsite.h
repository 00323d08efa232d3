// A site whose databases were built from old cards and whose cards file has new ones since.
#ifndef BADGEMINT_TESTS_ADMIN_BUILDSITE_H
#define BADGEMINT_TESTS_ADMIN_BUILDSITE_H

#include "admin/adminrun.h"
#include "admin/files/replacement.h"
#include "tools/badgemint.h"

namespace badgemint::admin {

// Levels, flags, escort, validity, elevator and relay group; cards have one flag more.
inline const std::string kHolder = " 1 0 0 0 0 0 0 0 0 0 0 0 0 0 0 0 0 0";
inline const std::string kCardHolder = kHolder + " 0\n";
inline const std::string kOldCards =
    "f 2 2\nc 2 7 4711 1" + kCardHolder + "c 2 8 0 2" + kCardHolder + "p 1234 3" + kHolder + "\n";
// Of the three holders one gets another card.
inline const std::string kNewCards =
    "f 1 1 A=21\nf 2 2\nc 1 15890 12345678 1 1 2 0 0 0 0 0 8 1 0 1 2 2024/1/1 0 2031/12/31 "
    "23:59:58 3 4 1\no 0099 1\nc 2 8 0 2" +
    kCardHolder + "n 0 1A2b30 0 4" + kCardHolder + "p 1234 3" + kHolder +
    "\nd 2 2147483640 3 4294967290 9\nd 2 9 3 100 65535\n# end\n";
inline constexpr char kWrongCards[] = "x\n";

// Names and contents of all files in the current folder and below it.
inline std::map<std::string, std::string> allFiles() {
  std::map<std::string, std::string> files;
  for (const auto& entry : fs::recursive_directory_iterator("."))
    files[entry.path().string()] = entry.is_regular_file() ? contentOf(entry.path().string()) : "";
  return files;
}

class BuildSite {
 public:
  static constexpr const char* kTargets[] = {"access.db", "ident.db", "cardsets.txt"};
  using Contents = std::array<std::string, 3>;  // Of these files.

 protected:
  BuildSite() {
    fs::create_directory("new");
    cards(kNewCards);
    EXPECT_EQ(BadgeMint("", "cards.txt", "new/ident.db", "new/access.db", "formats.txt",
                        "new/cardsets.txt", "new/log", 0),
              0);
    takeSleeps();
    _new = databases("new/");
    fs::remove_all("new");
    cards(kOldCards);
    EXPECT_EQ(runAdmin("build").status, 0);
    _old = databases();
    cards(kNewCards);
  }

  // The state before each case: the old databases, files kept by an earlier build, the new cards.
  void makeOld() {
    fs::remove_all(kPrivateFolder);
    cards(kNewCards);
    for (size_t i = 0; i < 3; ++i) {
      writeFile(kTargets[i], _old[i]);
      writeFile(kTargets[i] + std::string(kKeptSuffix), kFormer[i]);
    }
  }
  static void cards(const std::string& text) { writeFile("cards.txt", text); }

  static Contents databases(const std::string& front = "", const std::string& back = "") {
    Contents all;
    for (size_t i = 0; i < 3; ++i) all[i] = contentOf(front + kTargets[i] + back);
    return all;
  }
  bool isOld() const { return databases() == _old; }
  bool isNew() const { return databases() == _new; }  // As the library alone builds.
  static bool hasKept(const Contents& files) { return databases("", kKeptSuffix) == files; }
  // Formats, cards, databases, kept files.
  static bool hasNoOtherFiles() {
    return std::distance(fs::directory_iterator("."), fs::directory_iterator()) == 10;
  }

  const Contents kFormer = {"former", "former", "former"};
  TestSite _site{"formats.txt"};
  Contents _old, _new;
};

}  // namespace badgemint::admin

#endif  // BADGEMINT_TESTS_ADMIN_BUILDSITE_H
