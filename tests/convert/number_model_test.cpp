// SPDX-FileCopyrightText: 2026 The tarn authors
// SPDX-License-Identifier: Apache-2.0

// mu_atoi, mu_str2dec, mu_str2decl, mu_strtol and mu_strtoll against their rules, implemented here, and libc.

#include <cstdlib>

#include "convert/fixture.h"

using namespace tarn_test;

namespace {

using Number32 = Parsed<uint32_t>;
using Number64 = Parsed<uint64_t>;

bool is_decimal(char c) { return kDecimal.find(c) != std::string_view::npos; }

uint32_t reference_atoi(std::string_view text) {
  uint32_t value = 0;
  for (const char c : text) {
    if (!is_decimal(c)) break;
    value = value * 10 + static_cast<uint32_t>(c - '0');
  }
  return value;
}

Number32 reference_str2dec(std::string_view text) {
  constexpr Number32 kFailure = {1, 0};
  if (text.empty()) return kFailure;
  if (text.size() == 1) return is_decimal(text[0]) ? Number32{0, static_cast<uint32_t>(text[0] - '0')} : kFailure;
  if (!is_decimal(text[0])) return kFailure;
  uint32_t value = 0;
  if (text[0] == '0') {
    if (text[1] != 'x' || text.size() > 10) return kFailure;
    for (const char c : text.substr(2)) {
      if (hex_value(c) < 0) return kFailure;
      value = value * 16 + static_cast<uint32_t>(hex_value(c));
    }
    return {0, value};
  }
  for (const char c : text) {
    if (!is_decimal(c)) return kFailure;
    value = value * 10 + static_cast<uint32_t>(c - '0');
  }
  return {0, value};
}

Number64 reference_str2decl(std::string_view text) {
  constexpr Number64 kFailure = {1, kUntouched<uint64_t>};
  if (text == "0x") return kFailure;
  const bool hex = text.substr(0, 2) == "0x";
  uint64_t value = 0;
  for (const char c : hex ? text.substr(2) : text) {
    if (hex ? hex_value(c) < 0 : !is_decimal(c)) return kFailure;
    value = value * (hex ? 16 : 10) + static_cast<uint64_t>(hex_value(c));
  }
  return {0, value};
}

// The text of a number of at most `bits` bits.
std::string some_number(Random &random, unsigned bits, bool in_base_16) {
  const uint64_t value = random.of_any_width() >> (64 - bits);
  return in_base_16 ? "0x" + hexadecimal(value, random.below(2) != 0) : std::to_string(value);
}

constexpr int kRandomNumbers = 20000;

class NumberModels : public Conversion {
 protected:
  // All five, against the rules.
  void check(std::string_view text) {
    const Number32 dec = reference_str2dec(text);
    const Number64 decl = reference_str2decl(text);
    EXPECT_EQ(parse(mu_str2dec, text), dec) << text;
    EXPECT_EQ(parse(mu_str2decl, text), decl) << text;
    EXPECT_EQ(mu_atoi(text_.at_end(text)), reference_atoi(text)) << text;
    EXPECT_EQ(mu_strtol(text_.at_end(text)), dec.output) << text;
    EXPECT_EQ(mu_strtoll(text_.at_end(text)), decl.status == 0 ? decl.output : 0) << text;
  }

  // `compare` with numbers of at most `bits` bits, alternately in decimal and in hexadecimal.
  template <typename Compare>
  void for_numbers(unsigned bits, Compare compare) {
    Random random(bits);
    for (int i = 0; i < kRandomNumbers && !HasFailure(); i++) compare(some_number(random, bits, i % 2 != 0).c_str());
  }
};

}  // namespace

// ---- The rules ------------------------------------------------------------------------------------------------------

TEST_F(NumberModels, AgreeOnEveryShortText) {
  const auto check_text = [this](const std::string &text) { check(text); };
  for_each_text("0x1aF", 6, check_text);
  for_each_text(kRelevant, 3, check_text);
  for_each_text(every_character(), 2, check_text);
}

TEST_F(NumberModels, AgreeOnEveryNeighbour) {
  for (const char *text :
       {"", "1", "12", "0", "0x", "0x1", "0x12", "1234567890", "0x12345678", "0x123456789", "4294967295", "0x1234567",
        "0xFFFFFFFF", "0x0123456789abcdef", "18446744073709551615", "0000000000000000000012", "12a"}) {
    for_each_neighbour(text, [this](const std::string &other) { check(other); });
  }
}

TEST_F(NumberModels, AgreeOnGeneratedTexts) {
  Random random(1);
  for (int round = 0; round < 10000 && !HasFailure(); round++) {
    const bool hex = random.below(2) != 0;
    const std::string digits = random.text(hex ? kHexadecimal : kDecimal, random.below(26));
    const std::string text = (hex ? "0x" : "") + digits;
    check(text);
    check(damaged(text, "09afAFxXgG/:@`+- ", random));
  }
}

TEST_F(NumberModels, AgreeOnTextsOfAnyLength) {
  Random random(2);
  for (const size_t length : {255u, 256u, 65535u, 65536u, 100000u}) {
    SCOPED_TRACE(length);
    const std::string decimal = "7" + random.text(kDecimal, length - 1);
    check(decimal);
    check(decimal + "x");
    check("0x" + random.text(kHexadecimal, length));
  }
}

// ---- libc -----------------------------------------------------------------------------------------------------------

TEST_F(NumberModels, AtoiAgreesWithStrtoulOnDigits) {
  Random random(3);
  for (int i = 0; i < kRandomNumbers && !HasFailure(); i++) {
    const std::string text = some_number(random, 32, false) + (i % 2 == 0 ? "" : std::string(1, "x.: -"[i % 5]));
    EXPECT_EQ(mu_atoi(text.c_str()), strtoul(text.c_str(), nullptr, 10)) << text;
  }
}

TEST_F(NumberModels, Str2DecAgreesWithStrtoulBelow2To32) {
  for_numbers(32, [this](const char *text) {
    EXPECT_EQ(parse(mu_str2dec, text), (Number32{0, static_cast<uint32_t>(strtoul(text, nullptr, 0))})) << text;
  });
}

TEST_F(NumberModels, Str2DecWrapsWhereStrtoulGoesOn) {
  Random random(4);
  for (int i = 0; i < kRandomNumbers && !HasFailure(); i++) {
    const std::string text = some_number(random, 64, false);
    const auto expected = static_cast<uint32_t>(strtoul(text.c_str(), nullptr, 10));
    EXPECT_EQ(parse(mu_str2dec, text), (Number32{0, expected})) << text;
  }
}

TEST_F(NumberModels, Str2DeclAgreesWithStrtoulBelow2To64) {
  for_numbers(64, [this](const char *text) {
    EXPECT_EQ(parse(mu_str2decl, text), (Number64{0, strtoul(text, nullptr, 0)})) << text;
  });
}

TEST_F(NumberModels, StrtolAgreesWithLibcsStrtolBelow2To31) {
  for_numbers(31, [](const char *text) { EXPECT_EQ(mu_strtol(text), strtol(text, nullptr, 0)) << text; });
}

TEST_F(NumberModels, StrtollAgreesWithLibcsStrtollBelow2To63) {
  for_numbers(63, [](const char *text) {
    EXPECT_EQ(mu_strtoll(text), static_cast<uint64_t>(strtoll(text, nullptr, 0))) << text;
  });
}
