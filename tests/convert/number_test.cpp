// SPDX-FileCopyrightText: 2026 The tarn authors
// SPDX-License-Identifier: Apache-2.0

// Numbers from text: mu_atoi, mu_str2dec, mu_str2decl and the functions that return their values; mu_strtoul;
// mu_inter_to64. number_model_test.cpp compares the parsers with models.

#include <cerrno>
#include <climits>
#include <cstdlib>
#include <type_traits>

#include "convert/fixture.h"

using namespace tarn_test;

static_assert(std::is_same_v<decltype(&mu_atoi), uint32_t (*)(const char *)>);
static_assert(std::is_same_v<decltype(&mu_str2dec), mu_status_t (*)(const char *, uint32_t *)>);
static_assert(std::is_same_v<decltype(&mu_str2decl), mu_status_t (*)(const char *, uint64_t *)>);
static_assert(std::is_same_v<decltype(&mu_strtol), uint32_t (*)(const char *)>);
static_assert(std::is_same_v<decltype(&mu_strtoll), uint64_t (*)(const char *)>);
static_assert(std::is_same_v<decltype(&mu_strtoul), unsigned long (*)(const char *, char **, uint32_t)>);
static_assert(std::is_same_v<decltype(&mu_inter_to64), uint64_t (*)(uint32_t, uint32_t)>);

namespace {

using Number32 = Parsed<uint32_t>;
using Number64 = Parsed<uint64_t>;

constexpr Number64 kRefused64 = {1, kUntouched<uint64_t>};

class Numbers : public Conversion {
 protected:
  uint32_t atoi(std::string_view text) { return mu_atoi(text_.at_end(text)); }
  Number32 str2dec(std::string_view text) { return parse(mu_str2dec, text); }
  Number64 str2decl(std::string_view text) { return parse(mu_str2decl, text); }
};

using Atoi = Numbers;
using Str2Dec = Numbers;
using Str2Decl = Numbers;
using Strtol = Numbers;
using Strtoll = Numbers;
using Strtoul = Numbers;

// The tables of texts and values.
template <typename Value>
struct Row {
  const char *text;
  Value value;
};

}  // namespace

TEST_F(Numbers, NothingBeforeTheTextIsRead) {
  uint32_t narrow = 9;
  uint64_t wide = 9;
  struct StartRow {
    const char *text;
    mu_status_t dec;
    mu_status_t decl;
    uint32_t atoi;
  };
  constexpr StartRow kRows[] = {{"", 1, 0, 0}, {"x", 1, 1, 0}, {"7", 0, 0, 7}, {"07", 1, 0, 7}, {"0x7", 0, 0, 0}};
  for (const StartRow &row : kRows) {
    const char *const s = text_.at_start(row.text);
    EXPECT_EQ(mu_str2dec(s, &narrow), row.dec) << row.text;
    EXPECT_EQ(mu_str2decl(s, &wide), row.decl) << row.text;
    EXPECT_EQ(mu_atoi(s), row.atoi) << row.text;
  }
}

// ---- mu_atoi --------------------------------------------------------------------------------------------------------

TEST_F(Atoi, ReadsOnlyTheLeadingDigits) {
  constexpr Row<uint32_t> kRows[] = {
      {"0", 0},       {"7", 7},      {"12", 12},   {"0012", 12},     {"12ab", 12},
      {"12ab34", 12}, {"12 34", 12}, {"12.5", 12}, {"192.168", 192}, {"0x10", 0},  // stops at the x
  };
  for (const auto &row : kRows) EXPECT_EQ(atoi(row.text), row.value) << row.text;
}

TEST_F(Atoi, WrapsModulo2To32) {
  constexpr Row<uint32_t> kRows[] = {
      {"4294967295", UINT32_MAX},
      {"4294967296", 0},
      {"4294967297", 1},
      {"4294967300", 4},
      {"42949672950", 4294967286},                     // 10 (2^32 - 1) = 9 * 2^32 + (2^32 - 10)
      {"18446744073709551615", 4294967295},            // 2^64 - 1
      {"18446744073709551616", 0},                     // 2^64
      {"18446744073709551617", 1},                     // 2^64 + 1
      {"340282366920938463463374607431768211461", 5},  // 2^128 + 5
      {"100000000000000000000000000000", 2684354560},  // 10^29 = 5^29 * 2^29, and 5^29 = 5 modulo 8: 5 * 2^29
  };
  for (const auto &row : kRows) EXPECT_EQ(atoi(row.text), row.value) << row.text;
}

TEST_F(Atoi, GivesZeroForNullAndForAFirstCharacterThatIsNotADigit) {
  EXPECT_EQ(mu_atoi(nullptr), 0u);
  EXPECT_EQ(atoi(""), 0u);
  for (const char c : every_character()) {
    const bool digit = kDecimal.find(c) != std::string_view::npos;
    EXPECT_EQ(atoi(c + std::string("5")), digit ? static_cast<uint32_t>(c - '0') * 10 + 5 : 0) << static_cast<int>(c);
  }
}

TEST_F(Atoi, KnowsNoSignAndNoWhiteSpace) {
  for (const char *text : {" 1", "\t1", "\n1", "+1", "-1", ".1", "x1", "a1", "/1", ":1", "\xB1", "\xFF"}) {
    EXPECT_EQ(atoi(text), 0u) << text;
  }
}

// ---- mu_str2dec, mu_strtol ------------------------------------------------------------------------------------------

TEST_F(Str2Dec, ParsesTheWholeText) {
  constexpr Row<uint32_t> kRows[] = {
      {"10", 10},
      {"1234567890", 1234567890},
      {"4294967295", UINT32_MAX},
      {"4294967296", 0},  // 2^32 wraps
      {"4294967297", 1},
      {"4294967306", 10},
      {"99999999999", 1215752191},  // 10^11 - 1 - 23 * 2^32
      {"18446744073709551617", 1},  // 2^64 + 1
      {"0x0", 0},
      {"0xa", 10},
      {"0xFf", 255},
      {"0xabcdef", 0xABCDEF},  // digits of either case
      {"0xABCDEF", 0xABCDEF},
      {"0xAbCdEf", 0xABCDEF},
      {"0xdeadBEEF", 0xDEADBEEF},
      {"0x12345678", 0x12345678},  // the eighth digit is the last
      {"0x00000001", 1},
      {"0xFfFffFfF", UINT32_MAX},
  };
  for (const auto &row : kRows) EXPECT_EQ(str2dec(row.text), (Number32{0, row.value})) << row.text;
}

TEST_F(Str2Dec, AFailureSetsTheOutputToZero) {
  for (const char *text : {"", "0 ", "0a", "0.", "0X1", "0X", "0XFF", "x", "x1", "X1", "1x1", "00x1", "0b1", "a", "/",
                           ":", "12a", "12 ", "1 ", " 1", " 12", "+1", "+12", "-1", "-12", "12.", "1.5", "1\n", "0x/",
                           "0x:", "0x@", "0xG", "0x`", "0xg", "0x1g", "0x 1", "0x-1", "0x0x1",
                           // A ninth digit, although the value is small, and another character in its place.
                           "0x000000001", "0x123456789", "0x12345678 "}) {
    EXPECT_EQ(str2dec(text), (Number32{1, 0})) << '"' << text << '"';
  }
}

TEST_F(Str2Dec, TakesEverySingleDigitAndNoOtherCharacter) {
  for (const char c : every_character()) {
    const bool digit = kDecimal.find(c) != std::string_view::npos;
    const Number32 expected = digit ? Number32{0, static_cast<uint32_t>(c - '0')} : Number32{1, 0};
    EXPECT_EQ(str2dec({&c, 1}), expected) << static_cast<int>(c);
  }
}

TEST_F(Str2Dec, TakesAPrefixWithoutDigitsAsZero) { EXPECT_EQ(str2dec("0x"), (Number32{0, 0})); }

TEST_F(Str2Dec, RefusesLeadingZeros) {
  for (const char *text : {"012", "00", "01", "09", "0012", "0000000000"}) {
    EXPECT_EQ(str2dec(text), (Number32{1, 0})) << text;
  }
}

TEST_F(Strtol, IsTheNumberOfStr2DecOrZero) {
  EXPECT_EQ(mu_strtol("123"), 123u);
  EXPECT_EQ(mu_strtol("4294967295"), UINT32_MAX);
  EXPECT_EQ(mu_strtol("0xABC"), 0xABCu);
  EXPECT_EQ(mu_strtol("4294967299"), 3u);
  // "012": mu_strtoll gives 12. "12a": not the 12 that was read.
  for (const char *text : {"", "0x", "012", "0X1", "12a", "-1", "0x123456789"}) EXPECT_EQ(mu_strtol(text), 0u) << text;
  EXPECT_EQ(mu_strtol(nullptr), 0u);
}

// ---- mu_str2decl, mu_strtoll ----------------------------------------------------------------------------------------

TEST_F(Str2Decl, ParsesTheWholeText) {
  constexpr Row<uint64_t> kRows[] = {
      {"0", 0},
      {"1", 1},
      {"10", 10},
      {"4294967296", 4294967296},
      {"18446744073709551615", UINT64_MAX},
      {"18446744073709551616", 0},  // 2^64 wraps
      {"18446744073709551623", 7},
      {"18446744073709551626", 10},
      {"99999999999999999999", 7766279631452241919},  // 10^20 - 1 - 5 * 2^64
      {"0x0", 0},
      {"0xaF", 0xAF},
      {"0x123456789", 0x123456789},
      {"0xFFFFFFFFFFFFFFFF", UINT64_MAX},
      {"0x10000000000000000", 0},  // the seventeenth digit wraps out
      {"0x1fedcba9876543210", 0xFEDCBA9876543210},
      {"0xA123456789abcdef0", 0x123456789ABCDEF0},
      {"0x000000000000000000000000000000001", 1},
  };
  for (const auto &row : kRows) EXPECT_EQ(str2decl(row.text), (Number64{0, row.value})) << row.text;
}

TEST_F(Str2Decl, AFailureLeavesTheOutputUntouched) {
  for (const char *text : {"0X",
                           "0X1",
                           "0XFF",
                           "x",
                           "x1",
                           "00x1",
                           "1x",
                           "1x1",
                           "a",
                           "1a",
                           "12a",
                           " 1",
                           "1 ",
                           "+1",
                           "-1",
                           "1.0",
                           "1.5",
                           "/",
                           ":",
                           "0x/",
                           "0x:",
                           "0x@",
                           "0xG",
                           "0x`",
                           "0xg",
                           "0x1g",
                           "0x 1",
                           "0x1 ",
                           "0x+1",
                           "0x0x1",
                           "99999999999999999999a"}) {
    EXPECT_EQ(str2decl(text), kRefused64) << '"' << text << '"';
  }
}

TEST_F(Str2Decl, TakesTheEmptyTextAsZero) { EXPECT_EQ(str2decl(""), (Number64{0, 0})); }

TEST_F(Str2Decl, TakesLeadingZerosAsDecimal) {
  constexpr Row<uint64_t> kRows[] = {{"012", 12}, {"00", 0}, {"09", 9}, {"0000000000000000000000000000017", 17}};
  for (const auto &row : kRows) EXPECT_EQ(str2decl(row.text), (Number64{0, row.value})) << row.text;
}

TEST_F(Str2Decl, RefusesAPrefixWithoutDigits) { EXPECT_EQ(str2decl("0x"), kRefused64); }

TEST_F(Str2Decl, RefusesNullAndLeavesTheOutputUntouched) {
  uint64_t out = 77;
  EXPECT_EQ(mu_str2decl(nullptr, &out), 1);
  EXPECT_EQ(out, 77u);
  EXPECT_EQ(mu_str2decl("1", nullptr), 1);
  EXPECT_EQ(mu_str2decl(nullptr, nullptr), 1);
}

TEST_F(Strtoll, IsTheNumberOfStr2DeclOrZero) {
  EXPECT_EQ(mu_strtoll("123"), 123u);
  EXPECT_EQ(mu_strtoll("18446744073709551615"), UINT64_MAX);
  EXPECT_EQ(mu_strtoll("0xABCDEF0123456789"), 0xABCDEF0123456789u);
  EXPECT_EQ(mu_strtoll("012"), 12u);
  EXPECT_EQ(mu_strtoll("18446744073709551619"), 3u);
  for (const char *text : {"", "0x", "0X1", "12a", "-1", " 1"}) EXPECT_EQ(mu_strtoll(text), 0u) << text;
  EXPECT_EQ(mu_strtoll(nullptr), 0u);
}

// ---- mu_strtoul -----------------------------------------------------------------------------------------------------

TEST_F(Strtoul, IsLibcsInEveryBaseToTheEndPointerAndErrno) {
  const auto check = [this](const std::string &text, uint32_t base) {
    SCOPED_TRACE(testing::Message() << '"' << text << "\", base " << base);
    const char *const s = text_.at_end(text);
    char untouched = 0;
    char *expected_end = &untouched;
    errno = 0;
    const unsigned long expected = strtoul(s, &expected_end, static_cast<int>(base));
    const int expected_errno = errno;
    char *end = &untouched;
    errno = 0;
    EXPECT_EQ(mu_strtoul(s, &end, base), expected);
    EXPECT_EQ(errno, expected_errno);
    EXPECT_EQ(end, expected_end);
    EXPECT_EQ(mu_strtoul(s, nullptr, base), expected);
  };
  const char *const texts[] = {"",
                               "0",
                               "12",
                               "012",
                               "0x1F",
                               "0X1f",
                               "0x1Fg",
                               "0x",
                               "0xg",
                               " 12",
                               "\t12",
                               "+12",
                               "-12",
                               "+7",
                               "-1",
                               "-0",
                               "- 1",
                               "--1",
                               "12ab",
                               "z",
                               "zZ",
                               "zZ9",
                               "08",
                               "1_0",
                               "777",
                               "0779",
                               "1012",
                               "  x",
                               " \t42x",
                               "0b101",
                               "18446744073709551615",
                               "18446744073709551616",
                               "-18446744073709551615",
                               "-18446744073709551616",
                               "99999999999999999999999"};
  for (const char *text : texts) {
    for (uint32_t base = 0; base <= 37; base++) check(text, base);
    for (const uint32_t base : {0x7FFFFFFFu, 0x80000000u, 0xFFFFFFF6u, UINT32_MAX}) check(text, base);
  }
  for_each_text("0189aFxXg+- ", 3, [&](const std::string &text) {
    for (const uint32_t base : {0u, 10u, 16u}) check(text, base);
  });
}

TEST_F(Strtoul, TakesSignsSpaceAndOctalAndSaturatesUnlikeTheOthers) {
  EXPECT_EQ(mu_strtoul(" -1", nullptr, 10), ULONG_MAX);
  EXPECT_EQ(mu_strtoul("077", nullptr, 0), 63u);
  EXPECT_EQ(mu_strtoul(" 012", nullptr, 0), 10u);
  EXPECT_EQ(mu_strtoul("0X1f", nullptr, 16), 31u);
  for (const char *text : {"18446744073709551616", "99999999999999999999"}) {
    errno = 0;
    EXPECT_EQ(mu_strtoul(text, nullptr, 10), ULONG_MAX);
    EXPECT_EQ(errno, ERANGE);
  }
}

TEST_F(Strtoul, ABaseThatLibcRefusesGivesZero) {
  for (const uint32_t base : {1u, 37u, 0x7FFFFFFFu, 0x80000000u, 0xFFFFFFFFu, 0xFFFFFFF6u}) {
    errno = 0;
    EXPECT_EQ(mu_strtoul("11", nullptr, base), 0u) << base;
    EXPECT_EQ(errno, EINVAL) << base;
  }
}

TEST_F(Strtoul, TakesANullEnd) { EXPECT_EQ(mu_strtoul("12ab", nullptr, 10), 12u); }

TEST_F(Strtoul, GivesZeroForNullAndTouchesNothing) {
  for (const int before : {0, EDOM}) {
    char untouched = 0;
    char *end = &untouched;
    errno = before;
    EXPECT_EQ(mu_strtoul(nullptr, &end, 10), 0u);
    EXPECT_EQ(mu_strtoul(nullptr, nullptr, 10), 0u);
    EXPECT_EQ(mu_strtoul(nullptr, &end, 99), 0u);
    EXPECT_EQ(mu_strtoul(nullptr, nullptr, 99), 0u);
    EXPECT_EQ(end, &untouched);
    EXPECT_EQ(errno, before);
  }
}

// ---- mu_inter_to64 --------------------------------------------------------------------------------------------------

TEST(InterTo64, PutsTheHighHalfOnTop) {
  EXPECT_EQ(mu_inter_to64(0, 0), 0u);
  EXPECT_EQ(mu_inter_to64(1, 2), 0x0000000100000002u);
  EXPECT_EQ(mu_inter_to64(0x01234567, 0x89ABCDEF), 0x0123456789ABCDEFu);
  EXPECT_EQ(mu_inter_to64(0x80000000, 0), 0x8000000000000000u);
  EXPECT_EQ(mu_inter_to64(0x80000000, 0x80000000), 0x8000000080000000u);
  EXPECT_EQ(mu_inter_to64(0, UINT32_MAX), 0x00000000FFFFFFFFu);  // the low half's top bit is not sign-extended
  EXPECT_EQ(mu_inter_to64(UINT32_MAX, 0), 0xFFFFFFFF00000000u);
  for (unsigned bit = 0; bit < 32; bit++) {
    EXPECT_EQ(mu_inter_to64(1u << bit, 0), uint64_t{1} << (bit + 32));
    EXPECT_EQ(mu_inter_to64(0, 1u << bit), uint64_t{1} << bit);
  }
}
