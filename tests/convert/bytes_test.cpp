// SPDX-FileCopyrightText: 2026 The tarn authors
// SPDX-License-Identifier: Apache-2.0

// Bytes in hexadecimal with separators: mu_str2hex and mu_str2mac, which share a grammar and differ in one point.

#include <netinet/ether.h>

#include <climits>
#include <type_traits>

#include "convert/fixture.h"

using namespace tarn_test;

static_assert(MU_MAC_BYTES == 6);
static_assert(std::is_same_v<decltype(&mu_str2mac), mu_status_t (*)(const char *, uint8_t *)>);
static_assert(std::is_same_v<decltype(&mu_str2hex), mu_status_t (*)(const char *, uint8_t *, int)>);

namespace {

bool is_separator(char c) { return c == ':' || c == '.'; }

bool trails(const std::string &text) { return !text.empty() && is_separator(text.back()); }

size_t size_of(int count) { return count < 0 ? 0 : static_cast<size_t>(count); }

// The grammar, as documented: a byte is stored when its separator is read, or when its last digit ends the text.
Parsed<Bytes> reference_str2hex(std::string_view text, int count) {
  const size_t size = size_of(count);
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

Parsed<Bytes> reference_str2mac(const std::string &text) {
  Parsed<Bytes> parsed = reference_str2hex(text, MU_MAC_BYTES);
  if (trails(text)) parsed.status = 1;
  return parsed;
}

std::string separated(Random &random, size_t count) {
  std::string text;
  for (size_t i = 0; i < count; i++) {
    if (i != 0) text += random.of(":.");
    text += random.text(kHexadecimal, 1 + random.below(2));
  }
  return text;
}

class HexBytes : public Conversion {
 protected:
  Parsed<Bytes> str2hex(std::string_view text, int count) {
    uint8_t *const out = output_.fresh(size_of(count));
    const mu_status_t status = mu_str2hex(text_.at_end(text), out, count);
    return {status, output_.bytes()};
  }

  Parsed<Bytes> str2mac(std::string_view text) {
    const mu_status_t status = mu_str2mac(text_.at_end(text), output_.fresh(MU_MAC_BYTES));
    return {status, output_.bytes()};
  }

  void check(const std::string &text, int count) {
    EXPECT_EQ(str2hex(text, count), reference_str2hex(text, count)) << text << " into " << count;
  }

  // Both.
  void check(const std::string &text) {
    check(text, MU_MAC_BYTES);
    EXPECT_EQ(str2mac(text), reference_str2mac(text)) << text;
  }
};

using Str2Hex = HexBytes;
using Str2Mac = HexBytes;

}  // namespace

// ---- mu_str2hex -----------------------------------------------------------------------------------------------------

TEST_F(Str2Hex, ParsesOrKeepsWhatStoodBeforeTheFault) {
  struct Row {
    const char *text;
    int count;
    mu_status_t status;
    Bytes stored;
  };
  const Row rows[] = {
      {"aa:bb", 2, 0, {0xAA, 0xBB}},
      {"0", 1, 0, {0}},
      {"f", 1, 0, {15}},
      {"f0", 1, 0, {0xF0}},  // the first digit is the high one
      {"aF", 1, 0, {0xAF}},
      {"Fa", 1, 0, {0xFA}},
      {"1.2.3", 3, 0, {1, 2, 3}},
      {"1:2.3:04", 4, 0, {1, 2, 3, 4}},  // separators may be mixed
      {"", 0, 0, {}},
      {"", 1, 1, {}},
      {"1", 0, 1, {}},  // for zero bytes only the empty text is valid
      {":", 0, 1, {}},  // a separator at the start is not a trailing one
      {"g", 0, 1, {}},
      {".", 1, 1, {}},
      {":1", 1, 1, {}},
      {".1:2", 2, 1, {}},
      {"1:2", 1, 1, {1}},  // a byte too many
      {"1:2:", 1, 1, {1}},
      {"aa:bb", 1, 1, {0xAA}},
      {"1", 2, 1, {1}},  // a byte too few
      {"1:", 2, 1, {1}},
      {"aa:bb", 3, 1, {0xAA, 0xBB}},
      {"1::2", 2, 1, {1}},
      {"1.:2", 2, 1, {1}},
      {"1:2::", 2, 1, {1, 2}},
      {"1:2:.", 2, 1, {1, 2}},
      {"111", 1, 1, {}},  // a third digit: its byte was not complete
      {"1:222", 2, 1, {1}},
      {"1:222:3", 3, 1, {1}},
      {"001", 1, 1, {}},
      {"1:2g", 2, 1, {1}},
      {"1:g", 2, 1, {1}},
      {"g", 1, 1, {}},
      {"0x1", 1, 1, {}},
      {"1-2", 2, 1, {}},
      {"1 2", 2, 1, {}},
      {" 1", 1, 1, {}},
      {"1 ", 1, 1, {}},
      {"1:2 ", 2, 1, {1}},
      {"1:2\n", 2, 1, {1}},
      {"1:+2", 2, 1, {1}},
      {"1/2", 2, 1, {}},
      {"1;2", 2, 1, {}},
      {"1:@", 2, 1, {1}},
      {"1:`", 2, 1, {1}},
      {"1:\xB1", 2, 1, {1}},
  };
  for (const Row &row : rows) {
    const Parsed<Bytes> expected = {row.status, written(row.stored, size_of(row.count))};
    EXPECT_EQ(str2hex(row.text, row.count), expected) << '"' << row.text << "\", " << row.count;
  }
}

TEST_F(Str2Hex, AcceptsOneTrailingSeparator) {
  for (const char *text : {"aa:bb:", "aa.bb.", "aa:bb."}) {
    EXPECT_EQ(str2hex(text, 2), (Parsed<Bytes>{0, {0xAA, 0xBB}})) << text;
    EXPECT_EQ(str2hex(text, 3), (Parsed<Bytes>{1, written({0xAA, 0xBB}, 3)})) << text;  // it means no byte
    EXPECT_EQ(str2hex(text, 1), (Parsed<Bytes>{1, {0xAA}})) << text;
  }
  EXPECT_EQ(str2hex("aa:bb::", 2), (Parsed<Bytes>{1, {0xAA, 0xBB}}));
}

TEST_F(Str2Hex, ANegativeCountTakesNothingAndWritesNothing) {
  for (const int count : {-1, -2, -256, INT_MIN}) {
    for (const char *text : {"", "1", "12", "1:", ":", "1:2"}) {
      EXPECT_EQ(str2hex(text, count), (Parsed<Bytes>{1, {}})) << text << " into " << count;
    }
  }
}

TEST_F(Str2Hex, ACountBeyondTheTextIsNotAReasonToWriteMore) {
  EXPECT_EQ(mu_str2hex("1:2", output_.fresh(2), INT_MAX), 1);
  EXPECT_EQ(output_.bytes(), (Bytes{1, 2}));
}

TEST_F(Str2Hex, TakesManyBytes) {
  Random random(1);
  for (const int count : {255, 256, 257, 65536, 70000}) {
    const std::string text = separated(random, static_cast<size_t>(count));
    const Parsed<Bytes> parsed = str2hex(text, count);
    EXPECT_EQ(parsed.status, 0) << count;
    EXPECT_TRUE(parsed == reference_str2hex(text, count)) << count;
    EXPECT_EQ(str2hex(text, count - 1).status, 1) << count;
  }
}

TEST_F(Str2Hex, RefusesNullAndLeavesTheOutputUntouched) {
  uint8_t *const out = output_.fresh(2);
  EXPECT_EQ(mu_str2hex(nullptr, out, 2), 1);
  EXPECT_EQ(mu_str2hex(nullptr, out, 1), 1);
  EXPECT_EQ(mu_str2hex(nullptr, out, 0), 1);
  EXPECT_EQ(output_.bytes(), written({}, 2));
  EXPECT_EQ(mu_str2hex("1:2", nullptr, 2), 1);
  EXPECT_EQ(mu_str2hex("", nullptr, 0), 1);
  EXPECT_EQ(mu_str2hex(nullptr, nullptr, 2), 1);
}

TEST_F(Str2Hex, ParsesEveryByteInEverySpelling) {
  const std::string lower = "0123456789abcdef";
  const std::string upper = "0123456789ABCDEF";
  for (size_t value = 0; value < 256; value++) {
    for (const std::string &high : {lower, upper}) {
      for (const std::string &low : {lower, upper}) {
        const std::string text = {high[value / 16], low[value % 16]};
        EXPECT_EQ(str2hex(text, 1), (Parsed<Bytes>{0, {static_cast<uint8_t>(value)}})) << text;
        EXPECT_EQ(str2hex(text.substr(1), 1), (Parsed<Bytes>{0, {static_cast<uint8_t>(value % 16)}})) << text;
      }
    }
  }
}

TEST_F(Str2Hex, FollowsTheGrammarOnEveryShortText) {
  for_each_text("0aF:.g", 5, [this](const std::string &text) {
    for (int count = -1; count <= 4; count++) check(text, count);
  });
  for_each_text("0bF:.", 6, [this](const std::string &text) {
    for (int count = 0; count <= 3; count++) check(text, count);
  });
  for_each_text(kRelevant, 3, [this](const std::string &text) {
    check(text, 1);
    check(text, 2);
  });
  for_each_text(every_character(), 2, [this](const std::string &text) { check(text, 1); });
}

// ---- mu_str2mac -----------------------------------------------------------------------------------------------------

TEST_F(Str2Mac, ParsesOrKeepsWhatStoodBeforeTheFault) {
  struct Row {
    const char *text;
    mu_status_t status;
    Bytes stored;
  };
  const Row rows[] = {
      {"00:11:22:33:44:55", 0, {0, 0x11, 0x22, 0x33, 0x44, 0x55}},
      {"0:1:2:3:4:5", 0, {0, 1, 2, 3, 4, 5}},
      {"a:B:c:D:e:F", 0, {10, 11, 12, 13, 14, 15}},
      {"fe.DC.bA.98.76.54", 0, {0xFE, 0xDC, 0xBA, 0x98, 0x76, 0x54}},
      {"aA.bB.cC.dD.eE.fF", 0, {0xAA, 0xBB, 0xCC, 0xDD, 0xEE, 0xFF}},
      {"0a:b.0c:d.0e:f", 0, {10, 11, 12, 13, 14, 15}},  // separators may be mixed
      {"00.1:02.3:04:05", 0, {0, 1, 2, 3, 4, 5}},
      {"", 1, {}},
      {"0", 1, {0}},  // fewer than six bytes
      {"0:", 1, {0}},
      {"1:2:3:4:5", 1, {1, 2, 3, 4, 5}},
      {"00:11:22:33:44", 1, {0, 0x11, 0x22, 0x33, 0x44}},
      {"00:11:22:33:44:", 1, {0, 0x11, 0x22, 0x33, 0x44}},
      {"0:1:2:3:4:5:6", 1, {0, 1, 2, 3, 4, 5}},  // more than six bytes
      {"0:1:2:3:4:5:6:", 1, {0, 1, 2, 3, 4, 5}},
      {"0:1:2:3:4:5:6:7:8:9", 1, {0, 1, 2, 3, 4, 5}},
      {"00:11:22:33:44:55:66", 1, {0, 0x11, 0x22, 0x33, 0x44, 0x55}},
      {"00:11:22:33:44:55:66:77", 1, {0, 0x11, 0x22, 0x33, 0x44, 0x55}},
      {"00:11:22:33:44:55::", 1, {0, 0x11, 0x22, 0x33, 0x44, 0x55}},
      {":", 1, {}},  // a separator at the start, or after another
      {".", 1, {}},
      {":00:11:22:33:44:55", 1, {}},
      {".0:1:2:3:4:5", 1, {}},
      {"0::1:2:3:4:5", 1, {0}},
      {"0..1:2:3:4:5", 1, {0}},
      {"0:.1:2:3:4:5", 1, {0}},
      {"0.:1:2:3:4:5", 1, {0}},
      {"00:11:.22:33:44:55", 1, {0, 0x11}},
      {"000:11:22:33:44:55", 1, {}},  // a third digit: its byte is not stored
      {"00:111:22:33:44:55", 1, {0}},
      {"00:11:222:33:44:55", 1, {0, 0x11}},
      {"00:11:22:33:44:555", 1, {0, 0x11, 0x22, 0x33, 0x44}},
      {"00:11:22:33:44:5g", 1, {0, 0x11, 0x22, 0x33, 0x44}},  // nor is a byte before another character
      {"00:11:22:33:44:55g", 1, {0, 0x11, 0x22, 0x33, 0x44}},
      {"00:11:22:33:44:55 ", 1, {0, 0x11, 0x22, 0x33, 0x44}},
      {"12:34:5g:78:9a:bc", 1, {0x12, 0x34}},
      {"12:34:56-78:9a:bc", 1, {0x12, 0x34}},
      {"1:2:3:4:5:6!", 1, {1, 2, 3, 4, 5}},
      {" 00:11:22:33:44:55", 1, {}},
      {"00-11-22-33-44-55", 1, {}},  // other spellings
      {"001122334455", 1, {}},
      {"0011.2233.4455", 1, {}},
      {"0x0:1:2:3:4:5", 1, {}},
      {"00:11:22:33:44:-5", 1, {0, 0x11, 0x22, 0x33, 0x44}},
  };
  for (const Row &row : rows) {
    EXPECT_EQ(str2mac(row.text), (Parsed<Bytes>{row.status, written(row.stored, MU_MAC_BYTES)})) << row.text;
  }
}

TEST_F(Str2Mac, RefusesATrailingSeparatorThatStr2HexAccepts) {
  const Bytes six = {0, 0x11, 0x22, 0x33, 0x44, 0x55};
  for (const char *text : {"00:11:22:33:44:55:", "00:11:22:33:44:55.", "00.11.22.33.44.55."}) {
    EXPECT_EQ(str2mac(text), (Parsed<Bytes>{1, six})) << text;
    EXPECT_EQ(str2hex(text, MU_MAC_BYTES), (Parsed<Bytes>{0, six})) << text;
  }
}

TEST_F(Str2Mac, DiffersFromStr2HexOnlyInTheTrailingSeparator) {
  const auto compare = [this](const std::string &text) {
    Parsed<Bytes> expected = str2hex(text, MU_MAC_BYTES);
    if (trails(text)) expected.status = 1;
    EXPECT_EQ(str2mac(text), expected) << text;
  };
  for_each_text("0a:.g", 6, [&](const std::string &end) { compare("1:2:3:4:" + end); });
  Random random(2);
  for (int round = 0; round < 3000 && !HasFailure(); round++) compare(damaged(separated(random, 6), "0aF:.g", random));
}

TEST_F(Str2Mac, RefusesNullAndLeavesTheOutputUntouched) {
  EXPECT_EQ(mu_str2mac(nullptr, output_.fresh(MU_MAC_BYTES)), 1);
  EXPECT_EQ(output_.bytes(), written({}, MU_MAC_BYTES));
  EXPECT_EQ(mu_str2mac("0:1:2:3:4:5", nullptr), 1);
  EXPECT_EQ(mu_str2mac(nullptr, nullptr), 1);
}

TEST_F(Str2Mac, AgreesWithEtherAtonOnSixBytesAndColons) {
  Random random(7);
  for (int i = 0; i < 20000 && !HasFailure(); i++) {
    std::string text;
    for (int byte = 0; byte < MU_MAC_BYTES; byte++) {
      const uint64_t value = random.below(256) >> random.below(8);
      text += (byte > 0 ? ":" : "") + hexadecimal(value, random.below(2) != 0, random.below(2) != 0 ? 2 : 1);
    }
    ether_addr expected;
    ASSERT_NE(ether_aton_r(text.c_str(), &expected), nullptr) << text;
    EXPECT_EQ(str2mac(text), (Parsed<Bytes>{0, {expected.ether_addr_octet, expected.ether_addr_octet + 6}})) << text;
  }
}

// ---- Both -----------------------------------------------------------------------------------------------------------

TEST_F(HexBytes, BothFollowTheGrammarOnEveryArrangementOfDigitsAndSeparators) {
  for_each_text("7:", 13, [this](const std::string &text) { check(text); });
  for_each_text("0aF:.g", 5, [this](const std::string &end) { check("1:2:3:4:" + end); });
  for_each_text(kRelevant, 3, [this](const std::string &text) { check(text); });
}

TEST_F(HexBytes, BothFollowTheGrammarOnEveryNeighbour) {
  for (const char *text :
       {"00:11:22:33:44:55", "0:1.2:3.4:5", "ab:c:de:f:01:2", "0:1:2:3:4:5:", "0:1:2:3:4:5", "a.b.c.d.e.f:", "1:2"}) {
    for_each_neighbour(text, [this](const std::string &other) { check(other); });
  }
}

TEST_F(HexBytes, BothFollowTheGrammarOnGeneratedTexts) {
  Random random(3);
  for (int round = 0; round < 6000 && !HasFailure(); round++) {
    const int count = 4 + static_cast<int>(random.below(5));
    std::string text = separated(random, static_cast<size_t>(count));
    for (int damage = 0; damage < 3; damage++) {
      check(text, count - 1 + static_cast<int>(random.below(3)));
      check(text);
      text = damaged(text, "09afAF::..gG/@` -", random);
    }
  }
}

TEST_F(HexBytes, NothingBeforeTheTextIsRead) {
  uint8_t out[MU_MAC_BYTES];
  for (const char *text : {"", ":", ".", "1", "1:", "1:2:3:4:5:6"}) {
    EXPECT_EQ(mu_str2mac(text_.at_start(text), out), reference_str2mac(text).status) << text;
    EXPECT_EQ(mu_str2hex(text_.at_start(text), out, 1), reference_str2hex(text, 1).status) << text;
  }
}
