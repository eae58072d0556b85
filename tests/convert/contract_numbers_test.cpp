// Numbers from text: mu_atoi, mu_str2dec, mu_str2decl and what returns their values; mu_strtoul; mu_inter_to64.

#include <gtest/gtest.h>

#include <cerrno>
#include <climits>
#include <cstdlib>
#include <ostream>
#include <type_traits>

#include "convert/contract_support.h"
#include "tarn/convert.h"

using namespace tarn_reference;

static_assert(std::is_same_v<decltype(&mu_atoi), uint32_t (*)(const char *)>);
static_assert(std::is_same_v<decltype(&mu_str2dec), mu_status_t (*)(const char *, uint32_t *)>);
static_assert(std::is_same_v<decltype(&mu_str2decl), mu_status_t (*)(const char *, uint64_t *)>);
static_assert(std::is_same_v<decltype(&mu_strtol), uint32_t (*)(const char *)>);
static_assert(std::is_same_v<decltype(&mu_strtoll), uint64_t (*)(const char *)>);
static_assert(std::is_same_v<decltype(&mu_strtoul), unsigned long (*)(const char *, char **, uint32_t)>);
static_assert(std::is_same_v<decltype(&mu_inter_to64), uint64_t (*)(uint32_t, uint32_t)>);

namespace {

constexpr uint64_t kUntouched = 0xA5A5A5A5A5A5A5A5;

struct Number {
  mu_status_t status;
  uint64_t value;  // what the output holds afterwards
  bool operator==(const Number &) const = default;
};

std::ostream &operator<<(std::ostream &out, const Number &number) {
  return out << "status " << number.status << " value 0x" << std::hex << number.value << std::dec;
}

// ---- The rules, word for word ---------------------------------------------------------------------------------------

uint32_t reference_atoi(std::string_view text) {
  uint32_t value = 0;
  for (const char c : text) {
    if (!is_decimal(c)) break;
    value = value * 10 + static_cast<uint32_t>(c - '0');
  }
  return value;
}

Number reference_str2dec(std::string_view text) {
  constexpr Number kFailure = {1, 0};
  if (text.empty()) return kFailure;
  if (text.size() == 1) return is_decimal(text[0]) ? Number{0, static_cast<uint64_t>(text[0] - '0')} : kFailure;
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

Number reference_str2decl(std::string_view text) {
  constexpr Number kFailure = {1, kUntouched};
  if (text == "0x") return kFailure;
  const bool hex = text.size() > 1 && text.substr(0, 2) == "0x";
  uint64_t value = 0;
  for (const char c : hex ? text.substr(2) : text) {
    if (hex ? hex_value(c) < 0 : !is_decimal(c)) return kFailure;
    value = value * (hex ? 16 : 10) + static_cast<uint64_t>(hex_value(c));
  }
  return {0, value};
}

// ---- The library's, each in memory that ends with the text and the output -------------------------------------------

class Parsers {
 public:
  explicit Parsers(size_t longest = 4000) : text_(longest) {}

  Number str2dec(std::string_view text) {
    out32_.reset();
    const mu_status_t status = mu_str2dec(text_.at_end(text), reinterpret_cast<uint32_t *>(out32_.data()));
    uint32_t value = 0;
    const Bytes bytes = out32_.bytes();
    if (bytes.size() != sizeof value) return {-1, 0};
    memcpy(&value, bytes.data(), sizeof value);
    return {status, value};
  }

  Number str2decl(std::string_view text) {
    out64_.reset();
    const mu_status_t status = mu_str2decl(text_.at_end(text), reinterpret_cast<uint64_t *>(out64_.data()));
    uint64_t value = 0;
    const Bytes bytes = out64_.bytes();
    if (bytes.size() != sizeof value) return {-1, 0};
    memcpy(&value, bytes.data(), sizeof value);
    return {status, value};
  }

  // All five, against the rules.
  void check(std::string_view text) {
    const Number dec = reference_str2dec(text);
    const Number decl = reference_str2decl(text);
    EXPECT_EQ(str2dec(text), dec) << text;
    EXPECT_EQ(str2decl(text), decl) << text;
    EXPECT_EQ(mu_atoi(text_.at_end(text)), reference_atoi(text)) << text;
    EXPECT_EQ(mu_strtol(text_.at_end(text)), dec.value) << text;
    EXPECT_EQ(mu_strtoll(text_.at_end(text)), decl.status == 0 ? decl.value : 0) << text;
  }

 private:
  TextMemory text_;
  Output out32_{sizeof(uint32_t)};
  Output out64_{sizeof(uint64_t)};
};

}  // namespace

// ---- All of them ----------------------------------------------------------------------------------------------------

TEST(NumbersContract, FollowTheRulesOnEveryShortText) {
  Parsers parsers;
  for_each_text("0x1aF", 6, [&](const std::string &text) { parsers.check(text); });
}

TEST(NumbersContract, FollowTheRulesWithEveryCharacterInEveryPlace) {
  Parsers parsers;
  for (const std::string text : {"", "1", "12", "0", "0x", "0x1", "0x12", "1234567890", "0x12345678", "0x123456789"}) {
    for (size_t at = 0; at <= text.size(); at++) {
      for (const char c : every_character()) parsers.check(std::string(text).insert(at, 1, c));
    }
  }
}

TEST(NumbersContract, FollowTheRulesOnGeneratedTexts) {
  Parsers parsers;
  Random random;
  for (int round = 0; round < 10000 && !HasFailure(); round++) {
    const bool hex = random.below(2) != 0;
    const std::string digits = random.text(hex ? "0123456789abcdefABCDEF" : "0123456789", random.below(26));
    const std::string text = (hex ? "0x" : "") + digits;
    parsers.check(text);
    parsers.check(random.damaged(text, "09afAFxXgG/:@`+- "));
  }
}

TEST(NumbersContract, TextsHaveNoLengthLimit) {
  Random random;
  for (const size_t length : {255u, 256u, 65535u, 65536u, 100000u}) {
    SCOPED_TRACE(length);
    Parsers parsers(length + 2);
    const std::string decimal = "7" + random.text("0123456789", length - 1);
    parsers.check(decimal);
    parsers.check(decimal + "x");
    parsers.check("0x" + random.text("0123456789abcdefABCDEF", length));
  }
}

TEST(NumbersContract, NothingBeforeTheTextIsRead) {
  TextMemory memory;
  uint32_t value32 = 9;
  uint64_t value64 = 9;
  for (const char *text : {"", "x", "7", "07", "0x7"}) {
    SCOPED_TRACE(text);
    const char *s = memory.at_start(text);
    EXPECT_EQ(mu_str2dec(s, &value32), reference_str2dec(text).status);
    EXPECT_EQ(mu_str2decl(s, &value64), reference_str2decl(text).status);
    EXPECT_EQ(mu_atoi(s), reference_atoi(text));
  }
}

// ---- mu_atoi --------------------------------------------------------------------------------------------------------

TEST(AtoiContract, ReadsTheLeadingDigits) {
  EXPECT_EQ(mu_atoi("0"), 0u);
  EXPECT_EQ(mu_atoi("42"), 42u);
  EXPECT_EQ(mu_atoi("12ab34"), 12u);
  EXPECT_EQ(mu_atoi("192.168"), 192u);
  EXPECT_EQ(mu_atoi("0x10"), 0u);  // the digits end at the x
  EXPECT_EQ(mu_atoi("007"), 7u);
}

TEST(AtoiContract, GivesZeroForNullAndForAFirstCharacterThatIsNoDigit) {
  EXPECT_EQ(mu_atoi(nullptr), 0u);
  EXPECT_EQ(mu_atoi(""), 0u);
  for (const char c : every_character()) {
    const uint32_t expected = is_decimal(c) ? static_cast<uint32_t>(c - '0') * 10 + 5 : 0;
    EXPECT_EQ(mu_atoi((c + std::string("5")).c_str()), expected) << static_cast<int>(c);
  }
}

TEST(AtoiContract, KnowsNoSignAndNoWhiteSpace) {
  for (const char *text : {"-1", "+1", " 1", "\t1", "\n1"}) EXPECT_EQ(mu_atoi(text), 0u) << text;
}

TEST(AtoiContract, WrapsModulo2To32) {
  EXPECT_EQ(mu_atoi("4294967295"), 4294967295u);
  EXPECT_EQ(mu_atoi("4294967296"), 0u);
  EXPECT_EQ(mu_atoi("4294967300"), 4u);
  EXPECT_EQ(mu_atoi("18446744073709551616"), 0u);                     // 2^64
  EXPECT_EQ(mu_atoi("18446744073709551615"), 4294967295u);            // 2^64 - 1
  EXPECT_EQ(mu_atoi("340282366920938463463374607431768211461"), 5u);  // 2^128 + 5
}

// ---- mu_str2dec -----------------------------------------------------------------------------------------------------

TEST(Str2DecContract, RefusesTheEmptyText) { EXPECT_EQ(Parsers().str2dec(""), (Number{1, 0})); }

TEST(Str2DecContract, TakesEverySingleDigitAndNothingElse) {
  Parsers parsers;
  for (const char c : every_character()) {
    const Number expected = is_decimal(c) ? Number{0, static_cast<uint64_t>(c - '0')} : Number{1, 0};
    EXPECT_EQ(parsers.str2dec({&c, 1}), expected) << static_cast<int>(c);
  }
}

TEST(Str2DecContract, ThePrefixAloneIsZero) { EXPECT_EQ(Parsers().str2dec("0x"), (Number{0, 0})); }

TEST(Str2DecContract, RefusesALeadingZero) {
  Parsers parsers;
  for (const char *text : {"012", "00", "01", "0a", "00x1", "0 ", "0."}) {
    EXPECT_EQ(parsers.str2dec(text), (Number{1, 0})) << text;
  }
}

TEST(Str2DecContract, RefusesAnUpperCasePrefix) {
  Parsers parsers;
  for (const char *text : {"0X", "0X1", "0XFF", "x1", "X1"}) EXPECT_EQ(parsers.str2dec(text), (Number{1, 0})) << text;
}

TEST(Str2DecContract, TakesEightHexadecimalDigitsAndNotNine) {
  Parsers parsers;
  EXPECT_EQ(parsers.str2dec("0x12345678"), (Number{0, 0x12345678}));
  EXPECT_EQ(parsers.str2dec("0xFfFffFfF"), (Number{0, 0xFFFFFFFF}));
  EXPECT_EQ(parsers.str2dec("0x00000001"), (Number{0, 1}));
  EXPECT_EQ(parsers.str2dec("0x123456789"), (Number{1, 0}));
  EXPECT_EQ(parsers.str2dec("0x000000001"), (Number{1, 0}));
}

TEST(Str2DecContract, HexadecimalDigitsAreOfEitherCase) {
  Parsers parsers;
  EXPECT_EQ(parsers.str2dec("0xabcdef"), (Number{0, 0xABCDEF}));
  EXPECT_EQ(parsers.str2dec("0xABCDEF"), (Number{0, 0xABCDEF}));
  EXPECT_EQ(parsers.str2dec("0xAbCdEf"), (Number{0, 0xABCDEF}));
}

TEST(Str2DecContract, DecimalWrapsAt32Bits) {
  Parsers parsers;
  EXPECT_EQ(parsers.str2dec("4294967295"), (Number{0, 4294967295}));
  EXPECT_EQ(parsers.str2dec("4294967296"), (Number{0, 0}));
  EXPECT_EQ(parsers.str2dec("4294967297"), (Number{0, 1}));
  EXPECT_EQ(parsers.str2dec("18446744073709551617"), (Number{0, 1}));  // 2^64 + 1
}

TEST(Str2DecContract, AFailureSetsTheOutputToZero) {
  Parsers parsers;
  for (const char *text :
       {"", "x", "-1", "+1", " 1", "1 ", "12a", "1.5", "0xg", "0x1g", "0x 1", "012", "0x123456789"}) {
    EXPECT_EQ(parsers.str2dec(text), (Number{1, 0})) << text;
  }
}

// ---- mu_str2decl ----------------------------------------------------------------------------------------------------

TEST(Str2DeclContract, TheEmptyTextIsZero) { EXPECT_EQ(Parsers().str2decl(""), (Number{0, 0})); }

TEST(Str2DeclContract, RefusesThePrefixAlone) { EXPECT_EQ(Parsers().str2decl("0x"), (Number{1, kUntouched})); }

TEST(Str2DeclContract, ALeadingZeroDoesNotMakeItOctal) {
  Parsers parsers;
  EXPECT_EQ(parsers.str2decl("012"), (Number{0, 12}));
  EXPECT_EQ(parsers.str2decl("0"), (Number{0, 0}));
  EXPECT_EQ(parsers.str2decl("0000000000000000000000000000009"), (Number{0, 9}));
}

TEST(Str2DeclContract, RefusesAnUpperCasePrefixAndLeavesTheOutput) {
  Parsers parsers;
  for (const char *text : {"0X", "0X1", "0XFF", "00x1"}) {
    EXPECT_EQ(parsers.str2decl(text), (Number{1, kUntouched})) << text;
  }
}

TEST(Str2DeclContract, ComputesIn64BitsAndWraps) {
  Parsers parsers;
  EXPECT_EQ(parsers.str2decl("4294967296"), (Number{0, 4294967296}));
  EXPECT_EQ(parsers.str2decl("18446744073709551615"), (Number{0, UINT64_MAX}));
  EXPECT_EQ(parsers.str2decl("18446744073709551616"), (Number{0, 0}));
  EXPECT_EQ(parsers.str2decl("18446744073709551623"), (Number{0, 7}));
  EXPECT_EQ(parsers.str2decl("0xFFFFFFFFFFFFFFFF"), (Number{0, UINT64_MAX}));
  EXPECT_EQ(parsers.str2decl("0x10000000000000000"), (Number{0, 0}));
  EXPECT_EQ(parsers.str2decl("0xA123456789abcdef0"), (Number{0, 0x123456789ABCDEF0}));
  EXPECT_EQ(parsers.str2decl("0x000000000000000000000000000000001"), (Number{0, 1}));
}

TEST(Str2DeclContract, AFailureLeavesTheOutputAlone) {
  Parsers parsers;
  for (const char *text : {"x", "-1", "+1", " 1", "1 ", "12a", "1.5", "0xg", "0x1g", "0x 1", "0x0x1", "1x"}) {
    EXPECT_EQ(parsers.str2decl(text), (Number{1, kUntouched})) << text;
  }
}

TEST(Str2DeclContract, RefusesNullAndLeavesTheOutputAlone) {
  uint64_t out = 77;
  EXPECT_EQ(mu_str2decl(nullptr, &out), 1);
  EXPECT_EQ(out, 77u);
  EXPECT_EQ(mu_str2decl("1", nullptr), 1);
  EXPECT_EQ(mu_str2decl(nullptr, nullptr), 1);
}

// ---- mu_strtol, mu_strtoll ------------------------------------------------------------------------------------------

TEST(StrtolContract, GivesTheValueOfStr2DecAndZeroWhenItFails) {
  EXPECT_EQ(mu_strtol("123"), 123u);
  EXPECT_EQ(mu_strtol("0xFF"), 255u);
  EXPECT_EQ(mu_strtol("4294967295"), 4294967295u);
  EXPECT_EQ(mu_strtol("0x"), 0u);
  EXPECT_EQ(mu_strtol("012"), 0u);  // mu_strtoll gives 12
  EXPECT_EQ(mu_strtol("12a"), 0u);  // not the 12 that was read
  EXPECT_EQ(mu_strtol("-1"), 0u);
  EXPECT_EQ(mu_strtol(""), 0u);
}

TEST(StrtolContract, NullIsZero) { EXPECT_EQ(mu_strtol(nullptr), 0u); }

TEST(StrtollContract, GivesTheValueOfStr2DeclAndZeroWhenItFails) {
  EXPECT_EQ(mu_strtoll("123"), 123u);
  EXPECT_EQ(mu_strtoll("012"), 12u);
  EXPECT_EQ(mu_strtoll("0xFFFFFFFFFF"), 0xFFFFFFFFFFu);
  EXPECT_EQ(mu_strtoll("0x"), 0u);
  EXPECT_EQ(mu_strtoll("12a"), 0u);
  EXPECT_EQ(mu_strtoll("-1"), 0u);
  EXPECT_EQ(mu_strtoll(""), 0u);
}

TEST(StrtollContract, NullIsZero) { EXPECT_EQ(mu_strtoll(nullptr), 0u); }

// ---- mu_strtoul -----------------------------------------------------------------------------------------------------

TEST(StrtoulConversionContract, IsLibcsStrtoulInEveryBase) {
  const char *const kTexts[] = {"",
                                "0",
                                "12",
                                " \t42x",
                                "+7",
                                "-1",
                                "-0",
                                "0x1Fg",
                                "0x",
                                "0779",
                                "zZ",
                                "1012",
                                "  x",
                                "- 1",
                                "0X1f",
                                "18446744073709551615",
                                "18446744073709551616",
                                "-18446744073709551615",
                                "99999999999999999999999"};
  TextMemory memory;
  for (const char *text : kTexts) {
    for (uint32_t base = 0; base <= 36; base++) {
      if (base == 1) continue;
      SCOPED_TRACE(testing::Message() << '"' << text << "\" in base " << base);
      const char *s = memory.at_end(text);
      char *end = nullptr;
      errno = 0;
      const unsigned long own = strtoul(s, &end, static_cast<int>(base));
      const int own_errno = errno;
      char *got_end = nullptr;
      errno = 0;
      EXPECT_EQ(mu_strtoul(s, &got_end, base), own);
      EXPECT_EQ(errno, own_errno);
      EXPECT_EQ(got_end, end);
      EXPECT_EQ(mu_strtoul(s, nullptr, base), own);
    }
  }
}

TEST(StrtoulConversionContract, SaturatesUnlikeTheOthers) {
  errno = 0;
  EXPECT_EQ(mu_strtoul("18446744073709551616", nullptr, 10), ULONG_MAX);
  EXPECT_EQ(errno, ERANGE);
  EXPECT_EQ(mu_strtoul("-1", nullptr, 10), ULONG_MAX);
  EXPECT_EQ(mu_strtoul(" 012", nullptr, 0), 10u);  // octal
}

TEST(StrtoulConversionContract, ABaseThatLibcRefusesGivesZero) {
  for (const uint32_t base : {1u, 37u, 0x7FFFFFFFu, 0x80000000u, 0xFFFFFFFFu, 0xFFFFFFF6u}) {
    errno = 0;
    EXPECT_EQ(mu_strtoul("11", nullptr, base), 0u) << base;
    EXPECT_EQ(errno, EINVAL) << base;
  }
}

TEST(StrtoulConversionContract, NullIsZeroAndNothingElseHappens) {
  char mark = 0;
  char *end = &mark;
  errno = EDOM;
  EXPECT_EQ(mu_strtoul(nullptr, &end, 10), 0u);
  EXPECT_EQ(mu_strtoul(nullptr, nullptr, 10), 0u);
  EXPECT_EQ(mu_strtoul(nullptr, &end, 99), 0u);
  EXPECT_EQ(end, &mark);
  EXPECT_EQ(errno, EDOM);
}

// ---- mu_inter_to64 --------------------------------------------------------------------------------------------------

TEST(InterTo64Contract, JoinsTheHalves) {
  EXPECT_EQ(mu_inter_to64(0, 0), 0u);
  EXPECT_EQ(mu_inter_to64(1, 2), 0x0000000100000002u);
  EXPECT_EQ(mu_inter_to64(0, 0xFFFFFFFF), 0x00000000FFFFFFFFu);  // no sign spreads upwards
  EXPECT_EQ(mu_inter_to64(0xFFFFFFFF, 0), 0xFFFFFFFF00000000u);
  EXPECT_EQ(mu_inter_to64(0x80000000, 0x80000000), 0x8000000080000000u);
  for (unsigned bit = 0; bit < 32; bit++) {
    EXPECT_EQ(mu_inter_to64(1u << bit, 0), uint64_t{1} << (bit + 32));
    EXPECT_EQ(mu_inter_to64(0, 1u << bit), uint64_t{1} << bit);
  }
}
