#include <gtest/gtest.h>

#include <cctype>
#include <cerrno>
#include <climits>
#include <optional>
#include <string>

#include "convert/texts.h"
#include "tarn/convert.h"

using namespace tarn_test;

namespace {

// ---- A naive model: which texts are numbers, and which -------------------------------------------------------------

// Digits as a number, modulo 2^64. No digit gives 0.
uint64_t digits_value(const std::string &digits, unsigned base) {
  uint64_t value = 0;
  for (char c : digits) {
    const auto digit = isdigit(c) ? c - '0' : tolower(c) - 'a' + 10;
    value = value * base + static_cast<uint64_t>(digit);
  }
  return value;
}

std::optional<uint32_t> model_str2dec(const std::string &text) {
  if (text == "0") return 0;
  if (text.rfind("0x", 0) == 0) {
    const std::string digits = text.substr(2);
    if (text.size() > 10 || !consists_of(digits, kHexadecimal)) return std::nullopt;
    return static_cast<uint32_t>(digits_value(digits, 16));
  }
  if (text.empty() || text[0] == '0' || !consists_of(text, kDecimal)) return std::nullopt;
  return static_cast<uint32_t>(digits_value(text, 10));
}

std::optional<uint64_t> model_str2decl(const std::string &text) {
  if (text == "0x") return std::nullopt;
  if (text.rfind("0x", 0) == 0) {
    const std::string digits = text.substr(2);
    return consists_of(digits, kHexadecimal) ? std::optional(digits_value(digits, 16)) : std::nullopt;
  }
  return consists_of(text, kDecimal) ? std::optional(digits_value(text, 10)) : std::nullopt;
}

uint32_t model_atoi(const std::string &text) {
  return static_cast<uint32_t>(digits_value(text.substr(0, text.find_first_not_of(kDecimal)), 10));
}

// ---- One text against the model ------------------------------------------------------------------------------------

constexpr uint32_t kUntouched32 = 0xDEADBEEF;
constexpr uint64_t kUntouched64 = 0xDEADBEEFCAFEF00D;

class Numbers : public testing::Test {
 protected:
  void check_str2dec(const std::string &text) {
    if (HasFatalFailure()) return;  // one is enough
    const std::optional<uint32_t> value = model_str2dec(text);
    uint32_t out = kUntouched32;
    ASSERT_EQ(mu_str2dec(guarded_(text), &out), value ? 0 : 1) << '"' << text << '"';
    ASSERT_EQ(out, value.value_or(0)) << '"' << text << '"';
    ASSERT_EQ(mu_strtol(guarded_(text)), value.value_or(0)) << '"' << text << '"';
  }

  void check_str2decl(const std::string &text) {
    if (HasFatalFailure()) return;  // one is enough
    const std::optional<uint64_t> value = model_str2decl(text);
    uint64_t out = kUntouched64;
    ASSERT_EQ(mu_str2decl(guarded_(text), &out), value ? 0 : 1) << '"' << text << '"';
    ASSERT_EQ(out, value.value_or(kUntouched64)) << '"' << text << '"';
    ASSERT_EQ(mu_strtoll(guarded_(text)), value.value_or(0)) << '"' << text << '"';
  }

  void check_atoi(const std::string &text) {
    if (HasFatalFailure()) return;  // one is enough
    ASSERT_EQ(mu_atoi(guarded_(text)), model_atoi(text)) << '"' << text << '"';
  }

  // `check` on all texts of up to three relevant characters, on all of two bytes, and on all neighbours of long ones.
  template <typename Check>
  void on_many_texts(Check check) {
    EXPECT_EQ(for_each_text_up_to(kRelevant, 3, check), 1u + 38 + 38 * 38 + 38 * 38 * 38);
    EXPECT_EQ(for_each_text_up_to(all_bytes(), 2, check), 1u + 255 + 255 * 255);
    for (const char *text : {"4294967295", "1234567890", "0x1234567", "0xFFFFFFFF", "0x0123456789abcdef",
                             "18446744073709551615", "0000000000000000000012", "12a"}) {
      for_each_neighbour(text, check);
    }
  }

  Guarded guarded_;
};

using Atoi = Numbers;
using Str2Dec = Numbers;
using Str2Decl = Numbers;
using Strtol = Numbers;
using Strtoll = Numbers;
using Strtoul = Numbers;

// Texts of the numbers of `bits` bits, of every length up to that, with the digits of one base.
std::string some_number(Random &random, unsigned bits, bool in_base_16) {
  const uint64_t value = random.of_any_width() >> (64 - bits);
  return in_base_16 ? "0x" + hexadecimal(value, random.below(2) != 0) : std::to_string(value);
}

constexpr int kRandomNumbers = 20000;

}  // namespace

// ---- mu_atoi --------------------------------------------------------------------------------------------------------

TEST_F(Atoi, ReadsLeadingDigitsAlone) {
  struct Row {
    const char *text;
    uint32_t value;
  };
  constexpr Row kRows[] = {
      {"0", 0},
      {"7", 7},
      {"12", 12},
      {"0012", 12},
      {"12ab", 12},
      {"12 34", 12},
      {"12.5", 12},
      {"0x10", 0},  // stops at the x
      {"4294967295", UINT32_MAX},
      {"4294967296", 0},  // 2^32
      {"4294967297", 1},
      {"42949672950", 4294967286},                     // 10 (2^32 - 1) = 9 * 2^32 + (2^32 - 10)
      {"18446744073709551617", 1},                     // 2^64 + 1
      {"100000000000000000000000000000", 2684354560},  // 10^29 = 5^29 * 2^29, and 5^29 = 5 modulo 8: 5 * 2^29
  };
  for (const Row &row : kRows) {
    EXPECT_EQ(mu_atoi(guarded_(row.text)), row.value) << row.text;
  }
}

TEST_F(Atoi, GivesZeroForWhateverDoesNotBeginWithADigit) {
  EXPECT_EQ(mu_atoi(nullptr), 0u);
  for (const char *text : {"", " 1", "\t1", "\n1", "+1", "-1", "a1", "x1", ".1", "/1", ":1", "\xB1", "\xFF"}) {
    EXPECT_EQ(mu_atoi(guarded_(text)), 0u) << text;
  }
}

TEST_F(Atoi, AgreesWithTheModel) {
  on_many_texts([this](const std::string &text) { check_atoi(text); });
}

TEST_F(Atoi, AgreesWithStrtoulOnDigits) {
  Random random(1);
  for (int i = 0; i < kRandomNumbers; i++) {
    const std::string text = some_number(random, 32, false) + (i % 2 == 0 ? "" : std::string(1, "x.: -"[i % 5]));
    ASSERT_EQ(mu_atoi(text.c_str()), strtoul(text.c_str(), nullptr, 10)) << text;
  }
}

// ---- mu_str2dec, mu_strtol ------------------------------------------------------------------------------------------

TEST_F(Str2Dec, ParsesTheWholeTextOrGivesZero) {
  struct Row {
    const char *text;
    mu_status_t status;
    uint32_t value;
  };
  constexpr Row kRows[] = {
      {"0", 0, 0},
      {"1", 0, 1},
      {"9", 0, 9},
      {"10", 0, 10},
      {"1234567890", 0, 1234567890},
      {"4294967295", 0, UINT32_MAX},
      {"4294967296", 0, 0},  // 2^32 wraps
      {"4294967306", 0, 10},
      {"99999999999", 0, 1215752191},  // 10^11 - 1 - 23 * 2^32
      {"0x0", 0, 0},
      {"0xa", 0, 10},
      {"0xFf", 0, 255},
      {"0xdeadBEEF", 0, 0xDEADBEEF},
      {"0x00000001", 0, 1},  // the eighth digit is the last
      {"0xFFFFFFFF", 0, UINT32_MAX},
      {"", 1, 0},
      {"00", 1, 0},
      {"0 ", 1, 0},
      {"0X1", 1, 0},
      {"0X", 1, 0},
      {"x1", 1, 0},
      {"1x1", 1, 0},
      {"00x1", 1, 0},
      {"0b1", 1, 0},
      {"a", 1, 0},
      {"/", 1, 0},
      {":", 1, 0},
      {"12a", 1, 0},
      {"12 ", 1, 0},
      {" 12", 1, 0},
      {"+12", 1, 0},
      {"-12", 1, 0},
      {"12.", 1, 0},
      {"1\n", 1, 0},
      {"0x/", 1, 0},
      {"0x:", 1, 0},
      {"0x@", 1, 0},
      {"0xG", 1, 0},
      {"0x`", 1, 0},
      {"0xg", 1, 0},
      {"0x1g", 1, 0},
      {"0x 1", 1, 0},
      {"0x-1", 1, 0},
      {"0x0x1", 1, 0},
      {"0x000000001", 1, 0},  // a ninth digit, although the value is small
      {"0x123456789", 1, 0},
      {"0x12345678 ", 1, 0},
  };
  for (const Row &row : kRows) {
    SCOPED_TRACE(row.text);
    uint32_t out = kUntouched32;
    EXPECT_EQ(mu_str2dec(guarded_(row.text), &out), row.status);
    EXPECT_EQ(out, row.value);
  }
}

TEST_F(Str2Dec, TakesAPrefixWithoutDigitsAsZero) {
  uint32_t out = kUntouched32;
  EXPECT_EQ(mu_str2dec(guarded_("0x"), &out), 0);
  EXPECT_EQ(out, 0u);
}

TEST_F(Str2Dec, RefusesLeadingZeros) {
  for (const char *text : {"012", "00", "01", "09", "0012", "0000000000"}) {
    uint32_t out = kUntouched32;
    EXPECT_EQ(mu_str2dec(guarded_(text), &out), 1) << text;
    EXPECT_EQ(out, 0u) << text;
  }
}

TEST_F(Str2Dec, AgreesWithTheModel) {
  on_many_texts([this](const std::string &text) { check_str2dec(text); });
}

TEST_F(Str2Dec, AgreesWithStrtoulBelow2To32) {
  Random random(2);
  for (int i = 0; i < kRandomNumbers; i++) {
    const std::string text = some_number(random, 32, i % 2 != 0);
    uint32_t out = kUntouched32;
    ASSERT_EQ(mu_str2dec(text.c_str(), &out), 0) << text;
    ASSERT_EQ(out, strtoul(text.c_str(), nullptr, 0)) << text;
  }
}

TEST_F(Str2Dec, WrapsWhereStrtoulGoesOn) {
  Random random(3);
  for (int i = 0; i < kRandomNumbers; i++) {
    const std::string text = some_number(random, 64, false);
    uint32_t out = kUntouched32;
    ASSERT_EQ(mu_str2dec(text.c_str(), &out), 0) << text;
    ASSERT_EQ(out, static_cast<uint32_t>(strtoul(text.c_str(), nullptr, 10))) << text;
  }
}

TEST_F(Strtol, IsTheNumberOfStr2DecOrZero) {
  EXPECT_EQ(mu_strtol("4294967295"), UINT32_MAX);
  EXPECT_EQ(mu_strtol("0xABC"), 0xABCu);
  EXPECT_EQ(mu_strtol("4294967299"), 3u);
  for (const char *text : {"", "0x", "012", "0X1", "12a", "-1", "0x123456789"}) EXPECT_EQ(mu_strtol(text), 0u) << text;
  EXPECT_EQ(mu_strtol(nullptr), 0u);
}

TEST_F(Strtol, AgreesWithLibcsStrtolBelow2To31) {
  Random random(4);
  for (int i = 0; i < kRandomNumbers; i++) {
    const std::string text = some_number(random, 31, i % 2 != 0);
    ASSERT_EQ(mu_strtol(text.c_str()), strtol(text.c_str(), nullptr, 0)) << text;
  }
}

// ---- mu_str2decl, mu_strtoll ----------------------------------------------------------------------------------------

TEST_F(Str2Decl, ParsesTheWholeTextOrLeavesTheOutputAlone) {
  struct Row {
    const char *text;
    mu_status_t status;
    uint64_t value;
  };
  constexpr Row kRows[] = {
      {"0", 0, 0},
      {"1", 0, 1},
      {"10", 0, 10},
      {"4294967296", 0, 4294967296},
      {"18446744073709551615", 0, UINT64_MAX},
      {"18446744073709551616", 0, 0},  // 2^64 wraps
      {"18446744073709551626", 0, 10},
      {"99999999999999999999", 0, 7766279631452241919},  // 10^20 - 1 - 5 * 2^64
      {"0x0", 0, 0},
      {"0xaF", 0, 0xAF},
      {"0x123456789", 0, 0x123456789},
      {"0xFFFFFFFFFFFFFFFF", 0, UINT64_MAX},
      {"0x1fedcba9876543210", 0, 0xFEDCBA9876543210},  // the seventeenth digit wraps out
      {"0x00000000000000000001", 0, 1},
      {"0x", 1, 0},
      {"0X", 1, 0},
      {"0X1", 1, 0},
      {"x", 1, 0},
      {"x1", 1, 0},
      {"00x1", 1, 0},
      {"1x1", 1, 0},
      {"a", 1, 0},
      {"1a", 1, 0},
      {" 1", 1, 0},
      {"1 ", 1, 0},
      {"+1", 1, 0},
      {"-1", 1, 0},
      {"1.0", 1, 0},
      {"/", 1, 0},
      {":", 1, 0},
      {"0x/", 1, 0},
      {"0x:", 1, 0},
      {"0x@", 1, 0},
      {"0xG", 1, 0},
      {"0x`", 1, 0},
      {"0xg", 1, 0},
      {"0x 1", 1, 0},
      {"0x1 ", 1, 0},
      {"0x+1", 1, 0},
      {"0x0x1", 1, 0},
      {"99999999999999999999a", 1, 0},
  };
  for (const Row &row : kRows) {
    SCOPED_TRACE(row.text);
    uint64_t out = kUntouched64;
    EXPECT_EQ(mu_str2decl(guarded_(row.text), &out), row.status);
    EXPECT_EQ(out, row.status == 0 ? row.value : kUntouched64);
  }
}

TEST_F(Str2Decl, TakesTheEmptyTextAsZero) {
  uint64_t out = kUntouched64;
  EXPECT_EQ(mu_str2decl(guarded_(""), &out), 0);
  EXPECT_EQ(out, 0u);
}

TEST_F(Str2Decl, TakesLeadingZerosAsDecimal) {
  struct Row {
    const char *text;
    uint64_t value;
  };
  constexpr Row kRows[] = {{"012", 12}, {"00", 0}, {"09", 9}, {"0000000000000000000000000017", 17}};
  for (const Row &row : kRows) {
    uint64_t out = kUntouched64;
    EXPECT_EQ(mu_str2decl(guarded_(row.text), &out), 0) << row.text;
    EXPECT_EQ(out, row.value) << row.text;
  }
}

TEST_F(Str2Decl, RefusesAPrefixWithoutDigits) {
  uint64_t out = kUntouched64;
  EXPECT_EQ(mu_str2decl(guarded_("0x"), &out), 1);
  EXPECT_EQ(out, kUntouched64);
}

TEST_F(Str2Decl, RefusesNull) {
  uint64_t out = kUntouched64;
  EXPECT_EQ(mu_str2decl(nullptr, &out), 1);
  EXPECT_EQ(out, kUntouched64);
  EXPECT_EQ(mu_str2decl("1", nullptr), 1);
  EXPECT_EQ(mu_str2decl(nullptr, nullptr), 1);
}

TEST_F(Str2Decl, AgreesWithTheModel) {
  on_many_texts([this](const std::string &text) { check_str2decl(text); });
}

TEST_F(Str2Decl, AgreesWithStrtoulBelow2To64) {
  Random random(5);
  for (int i = 0; i < kRandomNumbers; i++) {
    const std::string text = some_number(random, 64, i % 2 != 0);
    uint64_t out = kUntouched64;
    ASSERT_EQ(mu_str2decl(text.c_str(), &out), 0) << text;
    ASSERT_EQ(out, strtoul(text.c_str(), nullptr, 0)) << text;
  }
}

TEST_F(Strtoll, IsTheNumberOfStr2DeclOrZero) {
  EXPECT_EQ(mu_strtoll("18446744073709551615"), UINT64_MAX);
  EXPECT_EQ(mu_strtoll("0xABCDEF0123456789"), 0xABCDEF0123456789u);
  EXPECT_EQ(mu_strtoll("012"), 12u);
  EXPECT_EQ(mu_strtoll("18446744073709551619"), 3u);
  for (const char *text : {"", "0x", "0X1", "12a", "-1", " 1"}) EXPECT_EQ(mu_strtoll(text), 0u) << text;
  EXPECT_EQ(mu_strtoll(nullptr), 0u);
}

TEST_F(Strtoll, AgreesWithLibcsStrtollBelow2To63) {
  Random random(6);
  for (int i = 0; i < kRandomNumbers; i++) {
    const std::string text = some_number(random, 63, i % 2 != 0);
    ASSERT_EQ(mu_strtoll(text.c_str()), static_cast<uint64_t>(strtoll(text.c_str(), nullptr, 0))) << text;
  }
}

// ---- mu_strtoul -----------------------------------------------------------------------------------------------------

TEST_F(Strtoul, IsLibcsToTheEndPointerAndErrno) {
  const char *const texts[] = {"",
                               "0",
                               "12",
                               "012",
                               "0x1F",
                               "0X1f",
                               "0x",
                               " 12",
                               "\t12",
                               "+12",
                               "-12",
                               "12ab",
                               "z",
                               "zZ9",
                               "08",
                               "--1",
                               "0xg",
                               "1_0",
                               "777",
                               "0b101",
                               "-1",
                               "18446744073709551615",
                               "18446744073709551616",
                               "-18446744073709551616"};
  const uint32_t bases[] = {0, 1, 2, 8, 10, 16, 35, 36, 37, 0x80000000, UINT32_MAX};
  for (const char *text : texts) {
    for (uint32_t base : bases) {
      SCOPED_TRACE(testing::Message() << '"' << text << "\", base " << base);
      char untouched = 0;
      char *expected_end = &untouched;
      errno = 0;
      const unsigned long expected = strtoul(text, &expected_end, static_cast<int>(base));
      const int expected_errno = errno;
      char *end = &untouched;
      errno = 0;
      EXPECT_EQ(mu_strtoul(text, &end, base), expected);
      EXPECT_EQ(errno, expected_errno);
      EXPECT_EQ(end, expected_end);
    }
  }
}

TEST_F(Strtoul, TakesSignsSpaceAndOctalAsLibc) {
  EXPECT_EQ(mu_strtoul(" -1", nullptr, 10), ULONG_MAX);
  EXPECT_EQ(mu_strtoul("077", nullptr, 0), 63u);
  EXPECT_EQ(mu_strtoul("0X1f", nullptr, 16), 31u);
  EXPECT_EQ(mu_strtoul("99999999999999999999", nullptr, 10), ULONG_MAX);  // saturates, and tells errno
  EXPECT_EQ(errno, ERANGE);
}

TEST_F(Strtoul, TakesANullEnd) { EXPECT_EQ(mu_strtoul("12ab", nullptr, 10), 12u); }

TEST_F(Strtoul, GivesZeroForNullAndTouchesNothing) {
  char untouched = 0;
  char *end = &untouched;
  errno = 0;
  EXPECT_EQ(mu_strtoul(nullptr, &end, 10), 0u);
  EXPECT_EQ(mu_strtoul(nullptr, nullptr, 99), 0u);
  EXPECT_EQ(end, &untouched);
  EXPECT_EQ(errno, 0);
}

TEST_F(Strtoul, AgreesWithLibcOnEveryShortText) {
  const auto check = [](const std::string &text) {
    for (uint32_t base : {0u, 10u, 16u}) {
      char *end = nullptr;
      char *expected_end = nullptr;
      const unsigned long value = mu_strtoul(text.c_str(), &end, base);
      ASSERT_EQ(value, strtoul(text.c_str(), &expected_end, static_cast<int>(base))) << text << ", " << base;
      ASSERT_EQ(end, expected_end) << text << ", " << base;
    }
  };
  EXPECT_EQ(for_each_text_up_to("0189aFxXg+- ", 3, check), 1u + 12 + 144 + 1728);
}

// ---- mu_inter_to64 --------------------------------------------------------------------------------------------------

TEST(InterTo64, PutsTheHighHalfOnTop) {
  EXPECT_EQ(mu_inter_to64(0, 0), 0u);
  EXPECT_EQ(mu_inter_to64(0x01234567, 0x89ABCDEF), 0x0123456789ABCDEFu);
  EXPECT_EQ(mu_inter_to64(0x80000000, 0), 0x8000000000000000u);
  EXPECT_EQ(mu_inter_to64(0, UINT32_MAX), 0x00000000FFFFFFFFu);  // the low half's top bit does not spread
  EXPECT_EQ(mu_inter_to64(UINT32_MAX, 0), 0xFFFFFFFF00000000u);
}
