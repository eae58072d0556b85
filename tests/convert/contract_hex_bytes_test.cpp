// Bytes in hexadecimal with separators: mu_str2hex and mu_str2mac, which share a grammar and differ in one point.

#include <gtest/gtest.h>

#include <climits>
#include <ostream>
#include <type_traits>

#include "convert/contract_support.h"
#include "tarn/convert.h"

using namespace tarn_reference;

static_assert(MU_MAC_BYTES == 6);
static_assert(std::is_same_v<decltype(&mu_str2mac), mu_status_t (*)(const char *, uint8_t *)>);
static_assert(std::is_same_v<decltype(&mu_str2hex), mu_status_t (*)(const char *, uint8_t *, int)>);

namespace {

struct Parsed {
  mu_status_t status;
  Bytes bytes;  // what the whole output holds afterwards
  bool operator==(const Parsed &) const = default;
};

std::ostream &operator<<(std::ostream &out, const Parsed &parsed) {
  return out << "status " << parsed.status << " bytes " << testing::PrintToString(parsed.bytes);
}

bool is_separator(char c) { return c == ':' || c == '.'; }

// The grammar, word for word: a byte is stored when its separator is read, or when its last digit ends the text.
Parsed reference_str2hex(std::string_view text, int count) {
  const size_t size = count < 0 ? 0 : static_cast<size_t>(count);
  Bytes stored;
  std::string digits;
  bool sound = true;
  for (size_t i = 0; i < text.size() && sound; i++) {
    if (hex_value(text[i]) >= 0) {
      sound = stored.size() < size && digits.size() < 2;
      digits += text[i];
      if (!sound || i + 1 < text.size()) continue;
    } else if (!is_separator(text[i]) || digits.empty()) {
      sound = false;
      continue;
    }
    stored.push_back(static_cast<uint8_t>(std::stoul(digits, nullptr, 16)));
    digits.clear();
  }
  const bool complete = sound && count >= 0 && stored.size() == size;
  return {complete ? 0 : 1, written(stored, size)};
}

Parsed reference_str2mac(std::string_view text) {
  Parsed parsed = reference_str2hex(text, MU_MAC_BYTES);
  if (!text.empty() && is_separator(text.back())) parsed.status = 1;
  return parsed;
}

class Parsers {
 public:
  explicit Parsers(size_t longest = 4000) : text_(longest) {}

  // `text` into exactly `count` bytes.
  Parsed str2hex(std::string_view text, int count) {
    const size_t size = count < 0 ? 0 : static_cast<size_t>(count);
    if (size > kMostBytes) return {-1, {}};
    // The same memory for all: the last `size` bytes before the page that nobody may touch.
    hex_.reset();
    uint8_t *out = hex_.data() + kMostBytes - size;
    const mu_status_t status = mu_str2hex(text_.at_end(text), out, count);
    const Bytes all = hex_.bytes();
    if (all.empty()) return {-1, {}};
    const bool intact = std::all_of(all.begin(), all.end() - static_cast<ptrdiff_t>(size),
                                    [](uint8_t byte) { return byte == Output::kUntouched; });
    return {intact ? status : -1, Bytes(all.end() - static_cast<ptrdiff_t>(size), all.end())};
  }

  Parsed str2mac(std::string_view text) {
    mac_.reset();
    const mu_status_t status = mu_str2mac(text_.at_end(text), mac_.data());
    return {status, mac_.bytes()};
  }

  static constexpr size_t kMostBytes = 20;

 private:
  TextMemory text_;
  Output hex_{kMostBytes};
  Output mac_{MU_MAC_BYTES};
};

std::string separated(Random &random, size_t count) {
  std::string text;
  for (size_t i = 0; i < count; i++) {
    if (i != 0) text += random.of(":.");
    text += random.text("0123456789abcdefABCDEF", 1 + random.below(2));
  }
  return text;
}

}  // namespace

// ---- The grammar, of both -------------------------------------------------------------------------------------------

TEST(HexBytesContract, Str2HexFollowsTheGrammarOnEveryShortText) {
  Parsers parsers;
  for_each_text("0bF:.", 6, [&](const std::string &text) {
    for (int count = 0; count <= 3; count++) {
      EXPECT_EQ(parsers.str2hex(text, count), reference_str2hex(text, count)) << text << " into " << count;
    }
  });
}

TEST(HexBytesContract, BothFollowTheGrammarOnEveryArrangementOfDigitsAndSeparators) {
  Parsers parsers;
  for_each_text("7:", 13, [&](const std::string &text) {
    EXPECT_EQ(parsers.str2mac(text), reference_str2mac(text)) << text;
    EXPECT_EQ(parsers.str2hex(text, 6), reference_str2hex(text, 6)) << text;
  });
}

TEST(HexBytesContract, BothFollowTheGrammarWithEveryCharacterInEveryPlace) {
  Parsers parsers;
  for (const std::string text : {"0:1:2:3:4:5", "00:11:22:33:44:55", "a.b.c.d.e.f:", "1:2"}) {
    for (size_t at = 0; at <= text.size(); at++) {
      for (const char c : every_character()) {
        std::string changed = text;
        if (at < text.size()) changed[at] = c;
        const std::string longer = std::string(text).insert(at, 1, c);
        EXPECT_EQ(parsers.str2mac(changed), reference_str2mac(changed)) << changed;
        EXPECT_EQ(parsers.str2mac(longer), reference_str2mac(longer)) << longer;
        EXPECT_EQ(parsers.str2hex(changed, 6), reference_str2hex(changed, 6)) << changed;
        EXPECT_EQ(parsers.str2hex(longer, 6), reference_str2hex(longer, 6)) << longer;
      }
    }
  }
}

TEST(HexBytesContract, BothFollowTheGrammarOnGeneratedTexts) {
  Parsers parsers;
  Random random;
  for (int round = 0; round < 6000 && !HasFailure(); round++) {
    const size_t count = 4 + random.below(5);
    std::string text = separated(random, count);
    for (int damage = 0; damage < 3; damage++) {
      const int wanted = static_cast<int>(count) - 1 + static_cast<int>(random.below(3));
      EXPECT_EQ(parsers.str2hex(text, wanted), reference_str2hex(text, wanted)) << text << " into " << wanted;
      EXPECT_EQ(parsers.str2mac(text), reference_str2mac(text)) << text;
      text = random.damaged(text, "09afAF::..gG/@` -");
    }
  }
}

TEST(HexBytesContract, EveryByteHasItsValueInEveryCase) {
  Parsers parsers;
  const std::string lower = "0123456789abcdef";
  const std::string upper = "0123456789ABCDEF";
  for (size_t value = 0; value < 256; value++) {
    const Parsed expected = {0, {static_cast<uint8_t>(value)}};
    for (const std::string &high : {lower, upper}) {
      for (const std::string &low : {lower, upper}) {
        const std::string text = {high[value / 16], low[value % 16]};
        EXPECT_EQ(parsers.str2hex(text, 1), expected) << text;
        const Parsed shorter = {0, {static_cast<uint8_t>(value % 16)}};
        EXPECT_EQ(parsers.str2hex(text.substr(1), 1), shorter) << text;
      }
    }
  }
}

TEST(HexBytesContract, NothingBeforeTheTextIsRead) {
  TextMemory memory;
  uint8_t out[6];
  for (const char *text : {"", ":", ".", "1", "1:", "1:2:3:4:5:6"}) {
    EXPECT_EQ(mu_str2mac(memory.at_start(text), out), reference_str2mac(text).status) << text;
    EXPECT_EQ(mu_str2hex(memory.at_start(text), out, 1), reference_str2hex(text, 1).status) << text;
  }
}

// ---- mu_str2mac -----------------------------------------------------------------------------------------------------

TEST(Str2MacContract, TakesSixBytes) {
  Parsers parsers;
  EXPECT_EQ(parsers.str2mac("00:11:22:33:44:55"), (Parsed{0, {0x00, 0x11, 0x22, 0x33, 0x44, 0x55}}));
  EXPECT_EQ(parsers.str2mac("fe.DC.bA.98.76.54"), (Parsed{0, {0xFE, 0xDC, 0xBA, 0x98, 0x76, 0x54}}));
}

TEST(Str2MacContract, TakesSingleDigits) {
  EXPECT_EQ(Parsers().str2mac("0:1:2:3:4:5"), (Parsed{0, {0, 1, 2, 3, 4, 5}}));
  EXPECT_EQ(Parsers().str2mac("a:B:c:D:e:F"), (Parsed{0, {10, 11, 12, 13, 14, 15}}));
}

TEST(Str2MacContract, TheSeparatorsMayBeMixed) {
  EXPECT_EQ(Parsers().str2mac("00.1:02.3:04:05"), (Parsed{0, {0, 1, 2, 3, 4, 5}}));
}

TEST(Str2MacContract, RefusesATrailingSeparatorAfterStoringAllSixBytes) {
  Parsers parsers;
  const Parsed expected = {1, {0x00, 0x11, 0x22, 0x33, 0x44, 0x55}};
  EXPECT_EQ(parsers.str2mac("00:11:22:33:44:55:"), expected);
  EXPECT_EQ(parsers.str2mac("00:11:22:33:44:55."), expected);
  EXPECT_EQ(parsers.str2mac("00:11:22:33:44:55::"), expected);
}

TEST(Str2MacContract, RefusesASeventhByte) {
  Parsers parsers;
  EXPECT_EQ(parsers.str2mac("0:1:2:3:4:5:6"), (Parsed{1, {0, 1, 2, 3, 4, 5}}));
  EXPECT_EQ(parsers.str2mac("0:1:2:3:4:5:6:"), (Parsed{1, {0, 1, 2, 3, 4, 5}}));
  EXPECT_EQ(parsers.str2mac("0:1:2:3:4:5:6:7:8:9"), (Parsed{1, {0, 1, 2, 3, 4, 5}}));
}

TEST(Str2MacContract, RefusesFewerThanSixBytes) {
  Parsers parsers;
  EXPECT_EQ(parsers.str2mac(""), (Parsed{1, written({}, 6)}));
  EXPECT_EQ(parsers.str2mac("1"), (Parsed{1, written({1}, 6)}));
  EXPECT_EQ(parsers.str2mac("1:2:3:4:5"), (Parsed{1, written({1, 2, 3, 4, 5}, 6)}));
  EXPECT_EQ(parsers.str2mac("1:2:3:4:5:"), (Parsed{1, written({1, 2, 3, 4, 5}, 6)}));
}

TEST(Str2MacContract, RefusesAThirdDigitWithoutStoringItsByte) {
  Parsers parsers;
  EXPECT_EQ(parsers.str2mac("000:11:22:33:44:55"), (Parsed{1, written({}, 6)}));
  EXPECT_EQ(parsers.str2mac("00:11:222:33:44:55"), (Parsed{1, written({0x00, 0x11}, 6)}));
  EXPECT_EQ(parsers.str2mac("00:11:22:33:44:555"), (Parsed{1, written({0x00, 0x11, 0x22, 0x33, 0x44}, 6)}));
}

TEST(Str2MacContract, RefusesASeparatorAtTheStartOrBehindAnother) {
  Parsers parsers;
  for (const char *text : {":00:11:22:33:44:55", ".0:1:2:3:4:5", ":", "."}) {
    EXPECT_EQ(parsers.str2mac(text), (Parsed{1, written({}, 6)})) << text;
  }
  for (const char *text : {"0::1:2:3:4:5", "0..1:2:3:4:5", "0:.1:2:3:4:5", "0.:1:2:3:4:5"}) {
    EXPECT_EQ(parsers.str2mac(text), (Parsed{1, written({0}, 6)})) << text;
  }
}

TEST(Str2MacContract, BytesBeforeAFaultStayWrittenAndTheOneAtItIsNot) {
  Parsers parsers;
  EXPECT_EQ(parsers.str2mac("12:34:5g:78:9a:bc"), (Parsed{1, written({0x12, 0x34}, 6)}));
  EXPECT_EQ(parsers.str2mac("12:34:56-78:9a:bc"), (Parsed{1, written({0x12, 0x34}, 6)}));
  EXPECT_EQ(parsers.str2mac("12:34:56:78:9a:bc "), (Parsed{1, written({0x12, 0x34, 0x56, 0x78, 0x9A}, 6)}));
  EXPECT_EQ(parsers.str2mac("1:2:3:4:5:6!"), (Parsed{1, written({1, 2, 3, 4, 5}, 6)}));
}

TEST(Str2MacContract, RefusesWhatOthersTake) {
  Parsers parsers;
  for (const char *text : {"00-11-22-33-44-55", "001122334455", "0011.2233.4455", " 0:1:2:3:4:5", "0x0:1:2:3:4:5"}) {
    EXPECT_EQ(parsers.str2mac(text), (Parsed{1, written({}, 6)})) << text;
  }
}

TEST(Str2MacContract, RefusesNullAndLeavesTheOutputAlone) {
  Output mac(6);
  EXPECT_EQ(mu_str2mac(nullptr, mac.data()), 1);
  EXPECT_EQ(mac.bytes(), written({}, 6));
  EXPECT_EQ(mu_str2mac("0:1:2:3:4:5", nullptr), 1);
  EXPECT_EQ(mu_str2mac(nullptr, nullptr), 1);
}

// ---- mu_str2hex -----------------------------------------------------------------------------------------------------

TEST(Str2HexContract, TakesExactlyAsManyBytes) {
  Parsers parsers;
  EXPECT_EQ(parsers.str2hex("aa:bb", 2), (Parsed{0, {0xAA, 0xBB}}));
  EXPECT_EQ(parsers.str2hex("aa:bb", 1), (Parsed{1, {0xAA}}));
  EXPECT_EQ(parsers.str2hex("aa:bb", 3), (Parsed{1, written({0xAA, 0xBB}, 3)}));
}

TEST(Str2HexContract, ATrailingSeparatorIsTakenOnce) {
  Parsers parsers;
  EXPECT_EQ(parsers.str2hex("aa:bb:", 2), (Parsed{0, {0xAA, 0xBB}}));
  EXPECT_EQ(parsers.str2hex("aa:bb.", 2), (Parsed{0, {0xAA, 0xBB}}));
  EXPECT_EQ(parsers.str2hex("aa:bb::", 2), (Parsed{1, {0xAA, 0xBB}}));
  EXPECT_EQ(parsers.str2hex("aa:bb:", 3), (Parsed{1, written({0xAA, 0xBB}, 3)}));
  EXPECT_EQ(parsers.str2hex("aa:bb:", 1), (Parsed{1, {0xAA}}));
}

TEST(Str2HexContract, DiffersFromStr2MacInTheTrailingSeparatorAlone) {
  Parsers parsers;
  Random random;
  for (int round = 0; round < 3000 && !HasFailure(); round++) {
    const std::string text = random.damaged(separated(random, 6), "0aF:.g");
    Parsed expected = parsers.str2hex(text, 6);
    if (!text.empty() && is_separator(text.back())) expected.status = 1;
    EXPECT_EQ(parsers.str2mac(text), expected) << text;
  }
}

TEST(Str2HexContract, ADigitWhenAllBytesAreStoredIsAFault) {
  Parsers parsers;
  EXPECT_EQ(parsers.str2hex("1:2", 1), (Parsed{1, {1}}));
  EXPECT_EQ(parsers.str2hex("1", 0), (Parsed{1, {}}));
}

TEST(Str2HexContract, ZeroBytesTakeTheEmptyTextAlone) {
  Parsers parsers;
  EXPECT_EQ(parsers.str2hex("", 0), (Parsed{0, {}}));
  EXPECT_EQ(parsers.str2hex(":", 0), (Parsed{1, {}}));
  EXPECT_EQ(parsers.str2hex("g", 0), (Parsed{1, {}}));
  EXPECT_EQ(parsers.str2hex("", 1), (Parsed{1, written({}, 1)}));
}

TEST(Str2HexContract, ANegativeCountTakesNothingAndWritesNothing) {
  Parsers parsers;
  for (const int count : {-1, -2, -256, INT_MIN}) {
    for (const char *text : {"", "1", "12", "1:", ":", "1:2"}) {
      EXPECT_EQ(parsers.str2hex(text, count), (Parsed{1, {}})) << text << " into " << count;
    }
  }
}

TEST(Str2HexContract, ACountBeyondTheTextIsNoReasonToWriteMore) {
  Output out(2);
  EXPECT_EQ(mu_str2hex("1:2", out.data(), INT_MAX), 1);
  EXPECT_EQ(out.bytes(), (Bytes{1, 2}));
}

TEST(Str2HexContract, TakesManyBytes) {
  Random random;
  for (const size_t count : {255u, 256u, 257u, 65536u, 70000u}) {
    SCOPED_TRACE(count);
    const std::string text = separated(random, count);
    TextMemory memory(text.size());
    Output out(count);
    const int wanted = static_cast<int>(count);
    ASSERT_EQ(mu_str2hex(memory.at_end(text), out.data(), wanted), 0);
    EXPECT_TRUE(out.bytes() == reference_str2hex(text, wanted).bytes);
    EXPECT_EQ(mu_str2hex(memory.at_end(text), out.data(), wanted - 1), 1);
  }
}

TEST(Str2HexContract, RefusesNullAndLeavesTheOutputAlone) {
  Output out(2);
  EXPECT_EQ(mu_str2hex(nullptr, out.data(), 2), 1);
  EXPECT_EQ(mu_str2hex(nullptr, out.data(), 0), 1);
  EXPECT_EQ(out.bytes(), written({}, 2));
  EXPECT_EQ(mu_str2hex("1:2", nullptr, 2), 1);
  EXPECT_EQ(mu_str2hex("", nullptr, 0), 1);
  EXPECT_EQ(mu_str2hex(nullptr, nullptr, 2), 1);
}
