// IPv4 addresses: mu_str2ip and mu_ip2str.

#include <gtest/gtest.h>

#include <array>
#include <ostream>
#include <type_traits>

#include "convert/contract_support.h"
#include "tarn/convert.h"

using namespace tarn_reference;

static_assert(MU_IP_TEXT_SIZE == 16);
static_assert(std::is_same_v<decltype(&mu_str2ip), mu_status_t (*)(const char *, uint32_t *)>);
static_assert(std::is_same_v<decltype(&mu_ip2str), mu_status_t (*)(char *, uint32_t)>);

namespace {

constexpr uint32_t kUntouched = 0xA5A5A5A5;

struct Parsed {
  mu_status_t status;
  uint32_t ip;  // what the output holds afterwards
  bool operator==(const Parsed &) const = default;
};

constexpr Parsed kRefused = {1, kUntouched};

std::ostream &operator<<(std::ostream &out, const Parsed &parsed) {
  return out << "status " << parsed.status << " ip 0x" << std::hex << parsed.ip << std::dec;
}

// Four runs of digits with a dot between two of them, each at most 255 modulo 2^32; not "0" at the very start.
Parsed reference_str2ip(std::string_view text) {
  if (text.empty() || text[0] == '0') return kRefused;
  std::vector<uint32_t> octets = {0};
  bool after_digit = false;
  for (const char c : text) {
    if (c == '.') {
      if (!after_digit) return kRefused;
      octets.push_back(0);
    } else if (is_decimal(c)) {
      octets.back() = octets.back() * 10 + static_cast<uint32_t>(c - '0');
    } else {
      return kRefused;
    }
    after_digit = c != '.';
  }
  if (!after_digit || octets.size() != 4) return kRefused;
  uint32_t ip = 0;
  for (const uint32_t octet : octets) {
    if (octet > 255) return kRefused;
    ip = ip * 256 + octet;
  }
  return {0, ip};
}

class Parser {
 public:
  explicit Parser(size_t longest = 4000) : text_(longest) {}

  Parsed operator()(std::string_view text) {
    out_.reset();
    const mu_status_t status = mu_str2ip(text_.at_end(text), reinterpret_cast<uint32_t *>(out_.data()));
    const Bytes bytes = out_.bytes();
    uint32_t ip = 0;
    if (bytes.size() != sizeof ip) return {-1, 0};
    memcpy(&ip, bytes.data(), sizeof ip);
    return {status, ip};
  }

  void check(std::string_view text) { EXPECT_EQ((*this)(text), reference_str2ip(text)) << text; }

 private:
  TextMemory text_;
  Output out_{sizeof(uint32_t)};
};

}  // namespace

// ---- mu_str2ip ------------------------------------------------------------------------------------------------------

TEST(Str2IpContract, FollowsTheRulesOnEveryShortText) {
  Parser parse;
  for_each_text("10.", 10, [&](const std::string &text) { parse.check(text); });
}

TEST(Str2IpContract, FollowsTheRulesWithEveryCharacterInEveryPlace) {
  Parser parse;
  for (const std::string text : {"1.2.3.4", "192.168.10.255", "10.01.0.1", "1.0.0.0"}) {
    for (size_t at = 0; at <= text.size(); at++) {
      for (const char c : every_character()) {
        std::string changed = text;
        if (at < text.size()) changed[at] = c;
        parse.check(changed);
        parse.check(std::string(text).insert(at, 1, c));
      }
    }
  }
}

TEST(Str2IpContract, FollowsTheRulesOnGeneratedTexts) {
  Parser parse;
  Random random;
  for (int round = 0; round < 15000 && !HasFailure(); round++) {
    std::string text;
    const uint32_t octets = random.below(8) == 0 ? random.below(7) : 4;
    for (uint32_t i = 0; i < octets; i++) {
      if (i != 0) text += '.';
      if (random.below(6) == 0) text += random.text("0", random.below(4));
      text += std::to_string(random.below(random.below(4) == 0 ? 300 : 256));
    }
    parse.check(text);
    parse.check(random.damaged(text, "0125..:- x"));
  }
}

TEST(Str2IpContract, TakesEveryOctetInEveryPlaceAndNothingAbove255) {
  Parser parse;
  for (int place = 0; place < 4; place++) {
    for (uint32_t value = 0; value < 1100; value++) {
      std::array<std::string, 4> octets = {"1", "1", "1", "1"};
      octets.at(static_cast<size_t>(place)) = std::to_string(value);
      const std::string text = octets[0] + '.' + octets[1] + '.' + octets[2] + '.' + octets[3];
      const bool fits = value <= 255 && !(place == 0 && value == 0);
      const int shift = 24 - 8 * place;
      const uint32_t ip = (0x01010101u & ~(0xFFu << shift)) | value << shift;
      EXPECT_EQ(parse(text), (fits ? Parsed{0, ip} : kRefused)) << text;
    }
  }
}

TEST(Str2IpContract, TheFirstOctetIsTheTopByte) {
  Parser parse;
  EXPECT_EQ(parse("1.2.3.4"), (Parsed{0, 0x01020304}));
  EXPECT_EQ(parse("1.0.0.0"), (Parsed{0, 1u << 24}));
  EXPECT_EQ(parse("255.255.255.255"), (Parsed{0, 0xFFFFFFFF}));
  EXPECT_EQ(parse("192.168.1.254"), (Parsed{0, 0xC0A801FE}));
}

TEST(Str2IpContract, RefusesAZeroAtTheVeryStart) {
  Parser parse;
  for (const char *text : {"0.1.2.3", "0.0.0.0", "01.2.3.4", "010.1.0.1", "001.2.3.4", "00.0.0.1", "0"}) {
    EXPECT_EQ(parse(text), kRefused) << text;
  }
}

TEST(Str2IpContract, TakesLeadingZerosInLaterOctets) {
  Parser parse;
  EXPECT_EQ(parse("10.01.0.1"), (Parsed{0, 0x0A010001}));
  EXPECT_EQ(parse("10.00.000.0000"), (Parsed{0, 0x0A000000}));
  EXPECT_EQ(parse("1.010.0255.00000000000000000000000000000009"), (Parsed{0, 0x010AFF09}));
}

TEST(Str2IpContract, RefusesAnOctetAbove255) {
  Parser parse;
  for (const char *text : {"1.2.3.256", "256.2.3.4", "1.256.3.4", "1.2.256.4", "1.2.3.1000", "1.2.3.99999999"}) {
    EXPECT_EQ(parse(text), kRefused) << text;
  }
}

TEST(Str2IpContract, ReadsAnOctetModulo2To32) {
  Parser parse;
  EXPECT_EQ(parse("1.2.3.4294967300"), (Parsed{0, 0x01020304}));            // 2^32 + 4
  EXPECT_EQ(parse("4294967296.2.3.4"), (Parsed{0, 0x00020304}));            // 2^32: the one way to network 0
  EXPECT_EQ(parse("1.4294967551.3.4"), (Parsed{0, 0x01FF0304}));            // 2^32 + 255
  EXPECT_EQ(parse("1.4294967552.3.4"), kRefused);                           // 2^32 + 256
  EXPECT_EQ(parse("1.2.3.4294967295"), kRefused);                           // 2^32 - 1
  EXPECT_EQ(parse("1.2.18446744073709551619.4"), (Parsed{0, 0x01020304}));  // 2^64 + 3
}

TEST(Str2IpContract, ADotStandsOnlyRightAfterADigit) {
  Parser parse;
  for (const char *text : {"1..2.3", "1..2.3.4", ".1.2.3.4", "1.2..3.4", "1.2.3..4", "....", "...", ".", "1.2.3.4.."}) {
    EXPECT_EQ(parse(text), kRefused) << text;
  }
}

TEST(Str2IpContract, EndsInADigit) {
  Parser parse;
  for (const char *text : {"1.2.3.", "1.2.3.4.", "1.2.", "1."}) EXPECT_EQ(parse(text), kRefused) << text;
}

TEST(Str2IpContract, TakesFourOctetsNoMoreAndNoFewer) {
  Parser parse;
  for (const char *text : {"", "1", "1.2", "1.2.3", "1.2.3.4.5", "1.2.3.4.5.6.7.8", "16909060", "1.131844"}) {
    EXPECT_EQ(parse(text), kRefused) << text;
  }
}

TEST(Str2IpContract, RefusesEverythingButDigitsAndDots) {
  Parser parse;
  for (const char *text : {" 1.2.3.4", "1.2.3.4 ", "1.2.3.4\n", "+1.2.3.4", "1.-2.3.4", "0x1.2.3.4", "1.2.3.0x4",
                           "1.2.3.a", "a.2.3.4", "1.2.3.4/8", "1:2:3:4", "1,2,3,4", "1.2.3.4x"}) {
    EXPECT_EQ(parse(text), kRefused) << text;
  }
}

TEST(Str2IpContract, TextsHaveNoLengthLimit) {
  const std::string zeros(70000, '0');
  Parser parse(4 * zeros.size());
  EXPECT_EQ(parse("1." + zeros + "7." + zeros + "." + zeros + "9"), (Parsed{0, 0x01070009}));
  EXPECT_EQ(parse("1.2.3." + zeros + "256"), kRefused);
  EXPECT_EQ(parse("1.2.3.4" + zeros + "."), kRefused);
}

TEST(Str2IpContract, NothingBeforeTheTextIsRead) {
  TextMemory memory;
  uint32_t ip = 0;
  for (const char *text : {"", ".", ".1.2.3.4", "1", "1.2.3.4"}) {
    EXPECT_EQ(mu_str2ip(memory.at_start(text), &ip), reference_str2ip(text).status) << text;
  }
}

TEST(Str2IpContract, RefusesNullAndLeavesTheOutputAlone) {
  uint32_t ip = 77;
  EXPECT_EQ(mu_str2ip(nullptr, &ip), 1);
  EXPECT_EQ(ip, 77u);
  EXPECT_EQ(mu_str2ip("1.2.3.4", nullptr), 1);
  EXPECT_EQ(mu_str2ip("x", nullptr), 1);
  EXPECT_EQ(mu_str2ip(nullptr, nullptr), 1);
}

// ---- mu_ip2str ------------------------------------------------------------------------------------------------------

namespace {

std::string quad(uint32_t ip) {
  return std::to_string(ip >> 24) + '.' + std::to_string(ip >> 16 & 255) + '.' + std::to_string(ip >> 8 & 255) + '.' +
         std::to_string(ip & 255);
}

}  // namespace

TEST(Ip2StrContract, WritesTheFourBytesFromTheMostSignificantDown) {
  const std::pair<uint32_t, const char *> kRows[] = {{0x01020304, "1.2.3.4"},
                                                     {0xFFFFFFFF, "255.255.255.255"},
                                                     {0x00000000, "0.0.0.0"},
                                                     {0x7F000001, "127.0.0.1"},
                                                     {0x0A630964, "10.99.9.100"}};
  Output out(MU_IP_TEXT_SIZE);
  for (const auto &[ip, text] : kRows) {
    out.reset();
    EXPECT_EQ(mu_ip2str(out.text(), ip), 0);
    EXPECT_EQ(out.bytes(), written_text(text, MU_IP_TEXT_SIZE)) << text;
  }
}

TEST(Ip2StrContract, WritesEveryByteInEveryPlaceAndNothingBehindTheNul) {
  Output out(MU_IP_TEXT_SIZE);
  for (int place = 0; place < 4; place++) {
    for (uint32_t value = 0; value < 256; value++) {
      for (const uint32_t others : {0x00000000u, 0x01010101u, 0xFFFFFFFFu}) {
        const uint32_t ip = (others & ~(0xFFu << 8 * place)) | value << 8 * place;
        out.reset();
        EXPECT_EQ(mu_ip2str(out.text(), ip), 0);
        EXPECT_EQ(out.bytes(), written_text(quad(ip), MU_IP_TEXT_SIZE)) << quad(ip);
      }
    }
  }
}

TEST(Ip2StrContract, WritesGeneratedAddresses) {
  Output out(MU_IP_TEXT_SIZE);
  Random random;
  for (int round = 0; round < 10000 && !HasFailure(); round++) {
    const uint32_t ip = random.below(UINT32_MAX);
    out.reset();
    EXPECT_EQ(mu_ip2str(out.text(), ip), 0);
    EXPECT_EQ(out.bytes(), written_text(quad(ip), MU_IP_TEXT_SIZE)) << quad(ip);
  }
}

TEST(Ip2StrContract, WhatItWritesParsesBackExceptNetworkZero) {
  Random random;
  for (int round = 0; round < 10000 && !HasFailure(); round++) {
    const uint32_t ip = random.below(UINT32_MAX) >> (round % 4 == 0 ? 8 : 0);
    char text[MU_IP_TEXT_SIZE];
    uint32_t back = kUntouched;
    mu_ip2str(text, ip);
    EXPECT_EQ(mu_str2ip(text, &back), ip >> 24 == 0 ? 1 : 0) << text;
    EXPECT_EQ(back, ip >> 24 == 0 ? kUntouched : ip) << text;
  }
}

TEST(Ip2StrContract, RefusesNull) {
  EXPECT_EQ(mu_ip2str(nullptr, 0x01020304), 1);
  EXPECT_EQ(mu_ip2str(nullptr, 0), 1);
}
