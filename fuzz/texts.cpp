// The functions that read and parse texts. Input: one line or two; the lines of the reader and the
// fields of the scanner are compared with those of the C library.
#include <algorithm>
#include <array>
#include <cerrno>
#include <cinttypes>
#include <cstdio>
#include <cstring>
#include <ctime>
#include <sstream>

#include "cardsets/card_functions.h"
#include "fuzz.h"
#include "inputcards/cardline.h"
#include "support/datetime.h"
#include "support/fieldscanner.h"
#include "support/linelist.h"
#include "support/linereader.h"
#include "support/packeddecimal.h"
#include "support/result.h"
#include "support/textutil.h"
#include "support/tokenizer.h"

namespace badgemint {
namespace {

void scanFields(const char* line) {
  FieldScanner scanner(line);
  const int32_t number = scanner.nextInt();
  const std::string_view word = scanner.nextWord(14);
  const uint32_t id = scanner.nextUnsigned();
  const std::string_view last = scanner.nextWord(99);

  int wantedNumber = 0;
  char wantedWord[15] = "";
  unsigned wantedId = 0;
  char wantedLast[100] = "";
  const int fields =
      std::sscanf(line, "%d%14s%u%99s", &wantedNumber, wantedWord, &wantedId, wantedLast);
  require(number == wantedNumber && word == wantedWord && id == wantedId && last == wantedLast,
          "the scanner reads what the C library reads");
  require(scanner.failed() == (fields < 4), "and stops where it stops");

  errno = 0;
  const int64_t value = std::strtoll(line, nullptr, 10);
  const SaturatedInt64 scanned = scanInt64(line);
  require(scanned.value == value && scanned.saturated == (errno == ERANGE),
          "a number is what the C library reads");
  require(textToInt32(line) == static_cast<int32_t>(value), "also one of 32 bits");

  FieldScanner cardLine(line);
  static_cast<void>(scanCardLine(cardLine));
  static_cast<void>(scanHolderFields(cardLine));
  FieldScanner pinLine(line);
  static_cast<void>(scanPinLine(pinLine));
}

void splitWords(const std::string& line) {
  for (const char* const delimiters : {kWordDelimiters, " ", ","}) {
    std::string copy = line;
    Tokenizer words;
    words.split(copy.data(), delimiters);
    require(words.count() <= Tokenizer::kMaxWords && words.word(words.count()) == nullptr,
            "the words end");
    for (uint32_t i = 0; i < words.count(); ++i) {
      const std::string_view word = words.word(i);
      require(word.find_first_of(delimiters) == word.npos, "a word holds no delimiter");
      require(words.next() == words.word(i), "words come in order");
    }
    require(words.next() == nullptr && words.nextInt() == 0, "and then no more");
    words.unquoteSecond();
    words.stripEqualsFirst();
  }
  std::string copy = line;
  static_cast<void>(splitMultiCardsLine(copy.data()));
}

// The plain way: a formatted scan, and the calendar of the C library. 7 when there is no date.
uint32_t scanDate(const char* text) {
  if (std::strcmp(text, "0") == 0) return 0;
  constexpr int kLow[] = {1970, 1, 1, 0, 0, 0}, kHigh[] = {2037, 12, 31, 23, 59, 59};
  int n[6];
  if (std::sscanf(text, "%d/%d/%d-%d:%d:%d", n, n + 1, n + 2, n + 3, n + 4, n + 5) != 6) return 7;
  for (int i = 0; i < 6; ++i)
    if (n[i] < kLow[i] || n[i] > kHigh[i]) return 7;
  std::tm t{n[5], n[4], n[3], n[2], n[1] - 1, n[0] - 1900, 0, 0, 0, 0, nullptr};
  return static_cast<uint32_t>(timegm(&t));
}

void readDate(const std::string& word) {
  uint32_t seconds = 7;
  const int32_t parsed = parseDateTime(word.c_str(), seconds);
  require(seconds == scanDate(word.c_str()), "a date is what the C library reads");
  require(parsed == kSuccess || seconds == 7, "an invalid date changes nothing");
  const DateTimeText text = formatDateTime(seconds);
  uint32_t again = 0;
  require(parseDateTime(text.data(), again) == kInvalidDate || again == seconds,
          "a time that is written is read");
  const DateAndTime parts = splitDateTime(word);
  for (const PeriodEnd end : {PeriodEnd::kStart, PeriodEnd::kEnd}) {
    const DateTimeText joined = joinDateTime(end, parts.date.data(), parts.time.data());
    require(joined.back() == '\0', "a joined text ends");
    uint32_t scanned = 7;
    uint32_t inPlace = 7;
    require(parsePeriodEnd(end, parts.date.data(), parts.time.data(), inPlace) ==
                    parseDateTime(joined.data(), scanned) &&
                inPlace == scanned,
            "a date and a time are what their joined text is");
  }
}

// Each four bytes are a time, which is written as the C library does.
void writeDates(const std::string& line) {
  uint32_t seconds = 0;
  for (size_t at = 0; at + sizeof seconds <= line.size(); ++at) {
    std::memcpy(&seconds, &line[at], sizeof seconds);
    const std::time_t time = seconds;
    DateTimeText plain{};
    std::strftime(plain.data(), plain.size(), "%Y/%m/%d-%H:%M:%S", std::gmtime(&time));
    require(seconds == 0 || formatDateTime(seconds) == plain, "a time is written");
  }
}

void readDates(const std::string& line) {
  readDate(line);
  std::istringstream words(line);
  for (std::string word; words >> word;) readDate(word);
}

void useDigits(const std::string& line) {
  SaturatedInt64 value{7, false};
  const bool isNumber = line.find_first_not_of("0123456789") == line.npos;
  const SaturatedInt64 expected = isNumber ? scanInt64(line.c_str()) : value;
  require(digitsToInt64(line, value) == isNumber, "a number is digits alone");
  require(value.value == expected.value && value.saturated == expected.saturated,
          "digits are the number that is scanned");
  std::string_view number = line;
  static_cast<void>(checkCardNumber(number, 1, 0));
  number = line;
  if (checkCardNumber(number, 0, 1) == kSuccess) {
    CardPattern bytes{};
    std::array<char, 2 * sizeof bytes + 1> digits{};
    hexToBits(number, bytes);
    bitsToHex(bytes, digits);
    CardPattern again{};
    hexToBits(digits.data(), again);
    require(again == bytes, "hexadecimal digits come back");
  }
  std::string_view pin = line;
  if (checkPinCode(pin, kMaxPinIdentDigits) == kSuccess) {
    CardPattern bytes{};
    bytes.fill(0xFF);
    packDigits(pin, std::span(bytes).first(kMaxPinIdentDigits / 2));
    require(DigitText<kMaxPinIdentDigits>(bytes).c_str() == std::string(pin), "a PIN comes back");
  }
}

// A byte and a line in turn, of which the line is changed: nothing of it comes back.
void readFile(const std::string& text) {
  constexpr int kLimit = 7;
  const MemoryFile file(text);
  LineReader reader;
  require(reader.open(file.path()), "a file is opened");
  std::FILE* const plain = std::fopen(file.path(), "r");
  char line[kLimit + 1] = "";
  while (std::feof(plain) == 0) {
    require(reader.readByte() == std::fgetc(plain), "a byte is what the C library reads");
    const bool isLine = std::fgets(line, sizeof line, plain) != nullptr;
    require((reader.readLine(kLimit) == LineReader::Status::kLine) == isLine, "the lines end");
    require(!isLine || std::strcmp(reader.line(), line) == 0, "a line is what it reads");
    if (isLine) std::memset(reader.line(), '\n', reader.length());
  }
  std::fclose(plain);
}

void keepTexts(const std::string& line) {
  require(isBlank(line.c_str()) == (line.find_first_not_of(" \t\n\v\f\r") == line.npos),
          "a blank line is white space");
  LineList lines(1, 0);
  require(lines.add(line.c_str()) == 0 && std::strcmp(lines.get(0), line.c_str()) == 0,
          "a line is kept");
  const auto joined = joinedPath(line.c_str(), line.c_str());
  require(joined != nullptr && std::strlen(joined.get()) <= kMaxJoinedPath, "a path is bounded");
  std::array<char, 5> cut;
  copyCut(line, cut);
  require(cut.back() == '\0', "a cut text ends");
}

}  // namespace
}  // namespace badgemint

int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  using namespace badgemint;
  const DroppedLog log(0);
  const std::string text(textOf(data, size));
  const std::string line = text.c_str();  // Lines end at a NUL.
  readFile(text);
  scanFields(line.c_str());
  splitWords(line);
  readDates(line);
  writeDates(line);
  useDigits(line);
  keepTexts(line);
  return 0;
}
