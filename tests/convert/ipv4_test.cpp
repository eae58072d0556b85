// SPDX-FileCopyrightText: 2026 The tarn authors
// SPDX-License-Identifier: Apache-2.0

// IPv4 addresses: mu_str2ip and mu_ip2str.

#include <arpa/inet.h>

#include <array>
#include <type_traits>

#include "convert/fixture.h"

using namespace tarn_test;

static_assert(MU_IP_TEXT_SIZE == 16);
static_assert(std::is_same_v<decltype(&mu_str2ip), mu_status_t (*)(const char *, uint32_t *)>);
static_assert(std::is_same_v<decltype(&mu_ip2str), mu_status_t (*)(char *, uint32_t)>);

namespace {

using Ip = Parsed<uint32_t>;

constexpr Ip kRefused = {1, kUntouched<uint32_t>};

// Four runs of digits with a dot between two of them, each at most 255 modulo 2^32; not "0" at the very start.
Ip reference_str2ip(std::string_view text) {
  if (text.empty() || text[0] == '0') return kRefused;
  std::vector<uint32_t> octets = {0};
  bool after_digit = false;
  for (const char c : text) {
    if (c == '.') {
      if (!after_digit) return kRefused;
      octets.push_back(0);
    } else if (kDecimal.find(c) != std::string_view::npos) {
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

Ip libc_str2ip(const char *text) {
  in_addr address = {};
  return inet_pton(AF_INET, text, &address) == 1 ? Ip{0, ntohl(address.s_addr)} : kRefused;
}

// Whether libc and this library should agree on the text: no octet has leading zeros, the first is not 0, and none has
// so many digits that it wraps.
bool in_common_with_libc(const std::string &text) {
  if (text[0] == '0') return false;
  for (const std::string &octet : split(text, '.')) {
    if (octet.size() > 9 || (octet.size() > 1 && octet[0] == '0')) return false;
  }
  return true;
}

std::string joined(const std::array<std::string, 4> &octets) {
  return octets[0] + '.' + octets[1] + '.' + octets[2] + '.' + octets[3];
}

std::string libc_ip2str(uint32_t ip) {
  const in_addr address = {htonl(ip)};
  char text[INET_ADDRSTRLEN];
  return inet_ntop(AF_INET, &address, text, sizeof text);
}

class Ipv4 : public Conversion {
 protected:
  Ip str2ip(std::string_view text) { return parse(mu_str2ip, text); }

  void check(const std::string &text) {
    const Ip parsed = str2ip(text);
    EXPECT_EQ(parsed, reference_str2ip(text)) << text;
    if (!in_common_with_libc(text)) return;
    in_common_++;
    EXPECT_EQ(parsed, libc_str2ip(text.c_str())) << text;
  }

  // Checked to the last byte that the caller provides: nothing after the NUL is written.
  void check_ip2str(uint32_t ip, const std::string &expected) {
    EXPECT_EQ(mu_ip2str(reinterpret_cast<char *>(output_.fresh(MU_IP_TEXT_SIZE)), ip), 0);
    EXPECT_EQ(output_.bytes(), written_text(expected, MU_IP_TEXT_SIZE)) << expected;
  }

  size_t in_common_ = 0;  // texts that were also compared with libc
};

using Str2Ip = Ipv4;
using Ip2Str = Ipv4;

}  // namespace

// ---- mu_str2ip ------------------------------------------------------------------------------------------------------

TEST_F(Str2Ip, ParsesWithTheFirstOctetAsTheTopByte) {
  EXPECT_EQ(str2ip("1.0.0.0"), (Ip{0, 1u << 24}));
  EXPECT_EQ(str2ip("1.2.3.4"), (Ip{0, 0x01020304}));
  EXPECT_EQ(str2ip("192.168.1.254"), (Ip{0, 0xC0A801FE}));
  EXPECT_EQ(str2ip("255.255.255.255"), (Ip{0, 0xFFFFFFFF}));
  EXPECT_EQ(str2ip("9.10.99.100"), (Ip{0, 0x090A6364}));
}

TEST_F(Str2Ip, RefusesAndLeavesTheOutputUntouched) {
  const char *const texts[] = {
      // Fewer octets than four, or more.
      "", "1", "1.2", "1.2.3", "1.2.3.4.5", "1.2.3.4.5.6.7.8",
      // Other notations than the dotted quad.
      "16909060", "1.131844", "1.2.772", "0x1.2.3.4", "1.0x2.3.4", "1.2.3.0x4",
      // A dot that does not follow a digit.
      ".", "...", "....", ".1.2.3.4", ".1.2.3", "1..2.3", "1..2.3.4", "1.2..4", "1.2..3.4", "1.2.3..4", "1.2.3..",
      "1.2.3.4..",
      // A dot at the end.
      "1.", "1.2.", "1.2.3.", "1.2.3.4.",
      // An octet above 255.
      "256.2.3.4", "1.256.3.4", "1.2.256.4", "1.2.3.256", "1.2.3.999", "1.2.3.1000", "1.2.3.99999999",
      // Any other character.
      "1.2.3.4 ", " 1.2.3.4", "1. 2.3.4", "1.2.3.4\n", "+1.2.3.4", "1.-2.3.4", "1.2.3.4/24", "1.2.3.4/8", "1.2.3.4:80",
      "1,2,3,4", "1:2:3:4", "1.2.3.a", "1.2.3.4a", "1.2.3.4x", "a.2.3.4", "1.2.3.\xB4"};
  for (const char *text : texts) EXPECT_EQ(str2ip(text), kRefused) << '"' << text << '"';
}

TEST_F(Str2Ip, RefusesAZeroAtTheVeryStart) {
  for (const char *text :
       {"0", "0.1.2.3", "0.0.0.0", "01.2.3.4", "010.1.0.1", "00.1.2.3", "001.2.3.4", "00.0.0.1", "0255.255.255.255"}) {
    EXPECT_EQ(str2ip(text), kRefused) << text;
  }
}

TEST_F(Str2Ip, AcceptsLeadingZerosAfterTheFirstOctet) {
  struct Row {
    const char *text;
    uint32_t ip;
  };
  constexpr Row kRows[] = {
      {"10.01.0.1", 0x0A010001},
      {"10.010.08.09", 0x0A0A0809},  // decimal, never octal
      {"1.00.000.0000", 0x01000000},
      {"1.010.0255.00000000000000000000000000000009", 0x010AFF09},
      {"1.0255.00255.000000000000000000255", 0x01FFFFFF},
  };
  for (const Row &row : kRows) {
    EXPECT_EQ(str2ip(row.text), (Ip{0, row.ip})) << row.text;
    EXPECT_EQ(libc_str2ip(row.text), kRefused) << row.text;  // libc differs here
  }
}

TEST_F(Str2Ip, ReadsAnOctetModulo2To32) {
  struct Row {
    const char *text;
    Ip parsed;
  };
  constexpr Row kRows[] = {
      {"1.2.3.4294967295", kRefused},  // 2^32 - 1
      {"1.2.3.4294967296", {0, 0x01020300}},
      {"1.2.3.4294967300", {0, 0x01020304}},
      {"1.2.3.4294967551", {0, 0x010203FF}},  // 2^32 + 255
      {"1.4294967551.3.4", {0, 0x01FF0304}},
      {"1.2.3.4294967552", kRefused},
      {"1.4294967552.3.4", kRefused},
      {"4294967297.2.3.4", {0, 0x01020304}},
      {"4294967296.2.3.4", {0, 0x00020304}},            // the text does not begin with a zero
      {"1.18446744073709551618.3.4", {0, 0x01020304}},  // 2^64 + 2
      {"1.2.18446744073709551619.4", {0, 0x01020304}},
  };
  for (const Row &row : kRows) {
    EXPECT_EQ(str2ip(row.text), row.parsed) << row.text;
    EXPECT_EQ(libc_str2ip(row.text), kRefused) << row.text;
  }
}

TEST_F(Str2Ip, TakesEveryOctetInEveryPlaceAndNothingAbove255) {
  for (size_t place = 0; place < 4; place++) {
    for (uint32_t value = 0; value < 1100; value++) {
      std::array<std::string, 4> octets = {"1", "1", "1", "1"};
      octets.at(place) = std::to_string(value);
      const bool fits = value <= 255 && !(place == 0 && value == 0);
      const size_t shift = 24 - 8 * place;
      const uint32_t ip = (0x01010101u & ~(0xFFu << shift)) | value << shift;
      EXPECT_EQ(str2ip(joined(octets)), (fits ? Ip{0, ip} : kRefused)) << joined(octets);
    }
  }
}

TEST_F(Str2Ip, TextsHaveNoLengthLimit) {
  const std::string zeros(70000, '0');
  EXPECT_EQ(str2ip("1." + zeros + "7." + zeros + "." + zeros + "9"), (Ip{0, 0x01070009}));
  EXPECT_EQ(str2ip("1.2.3." + zeros + "256"), kRefused);
  EXPECT_EQ(str2ip("1.2.3.4" + zeros + "."), kRefused);
}

TEST_F(Str2Ip, NothingBeforeTheTextIsRead) {
  uint32_t ip = 0;
  for (const char *text : {"", ".", ".1.2.3.4", "1", "1.2.3.4"}) {
    EXPECT_EQ(mu_str2ip(text_.at_start(text), &ip), reference_str2ip(text).status) << text;
  }
}

TEST_F(Str2Ip, RefusesNullAndLeavesTheOutputUntouched) {
  uint32_t ip = 77;
  EXPECT_EQ(mu_str2ip(nullptr, &ip), 1);
  EXPECT_EQ(ip, 77u);
  EXPECT_EQ(mu_str2ip("1.2.3.4", nullptr), 1);
  EXPECT_EQ(mu_str2ip("x", nullptr), 1);
  EXPECT_EQ(mu_str2ip(nullptr, nullptr), 1);
}

TEST_F(Str2Ip, AgreesWithTheRulesAndLibcOnEveryShortText) {
  const auto check_text = [this](const std::string &text) { check(text); };
  for_each_text("10.", 10, check_text);
  for_each_text(kRelevant, 2, check_text);
  for_each_text(every_character(), 2, check_text);
  EXPECT_GT(in_common_, 70000u);
}

TEST_F(Str2Ip, AgreesWithTheRulesAndLibcOnEveryThreeCharactersInEveryPlace) {
  for_each_text(kRelevant, 3, [this](const std::string &three) { check("1.2.3." + three); });
  for_each_text("0129a.: /-", 3, [this](const std::string &three) {
    check(three);
    check(three + ".2.3.4");
    check("1." + three + ".3.4");
    check("1.2" + three + "3.4");
    check("1.2.3" + three);
  });
  EXPECT_GT(in_common_, 50000u);
}

TEST_F(Str2Ip, AgreesWithTheRulesAndLibcOnEveryPairOfOctets) {
  const char *const octets[] = {"",     "0",   "00",         "01",         "001",        "000000001", "1",
                                "9",    "10",  "99",         "100",        "199",        "200",       "249",
                                "250",  "255", "256",        "260",        "299",        "300",       "999",
                                "1000", "-1",  "4294967295", "4294967296", "4294967551", "4294967552"};
  for (size_t first = 0; first < 4; first++) {
    for (size_t second = first + 1; second < 4; second++) {
      for (const char *one : octets) {
        for (const char *other : octets) {
          std::array<std::string, 4> parts = {"1", "2", "3", "4"};
          parts.at(first) = one;
          parts.at(second) = other;
          check(joined(parts));
        }
      }
    }
  }
  EXPECT_GT(in_common_, 1000u);
}

TEST_F(Str2Ip, AgreesWithTheRulesAndLibcOnEveryNeighbour) {
  for (const char *text : {"1.2.3.4", "192.168.1.254", "192.168.10.255", "255.255.255.255", "10.01.0.1", "1.0.0.0"}) {
    for_each_neighbour(text, [this](const std::string &other) { check(other); });
  }
  EXPECT_GT(in_common_, 10000u);
}

TEST_F(Str2Ip, AgreesWithTheRulesAndLibcOnGeneratedTexts) {
  Random random(8);
  for (int round = 0; round < 15000 && !HasFailure(); round++) {
    std::string text;
    const uint64_t octets = random.below(8) == 0 ? random.below(7) : 4;
    for (uint64_t i = 0; i < octets; i++) {
      if (i != 0) text += '.';
      if (random.below(6) == 0) text += random.text("0", random.below(4));
      text += std::to_string(random.below(random.below(4) == 0 ? 300 : 256));
    }
    check(text);
    check(damaged(text, "0125..:- x", random));
  }
  in_common_ = 0;
  for (int i = 0; i < 30000; i++) check(libc_ip2str(static_cast<uint32_t>(random.number())));
  EXPECT_GT(in_common_, 29000u);  // one address in 256 begins with 0
}

// ---- mu_ip2str ------------------------------------------------------------------------------------------------------

TEST_F(Ip2Str, WritesTheOctetsFromTheTopDown) {
  check_ip2str(0x01020304, "1.2.3.4");
  check_ip2str(0xFFFFFFFF, "255.255.255.255");
  check_ip2str(0x00000000, "0.0.0.0");
  check_ip2str(0x7F000001, "127.0.0.1");
  check_ip2str(0x0A630964, "10.99.9.100");
  check_ip2str(0x0A63640A, "10.99.100.10");
}

TEST_F(Ip2Str, WritesEveryByteInEveryPlace) {
  for (int place = 0; place < 4; place++) {
    for (uint32_t value = 0; value < 256; value++) {
      for (const uint32_t others : {0x00000000u, 0x01010101u, 0xFFFFFFFFu}) {
        const uint32_t ip = (others & ~(0xFFu << 8 * place)) | value << 8 * place;
        check_ip2str(ip, joined({std::to_string(ip >> 24), std::to_string(ip >> 16 & 255),
                                 std::to_string(ip >> 8 & 255), std::to_string(ip & 255)}));
      }
    }
  }
}

TEST_F(Ip2Str, AgreesWithInetNtop) {
  for (uint32_t pair = 0; pair < 0x10000 && !HasFailure(); pair++) {  // every pair of octets, twice
    check_ip2str(pair * 0x10001, libc_ip2str(pair * 0x10001));
  }
  Random random(9);
  for (int i = 0; i < 20000 && !HasFailure(); i++) {
    const auto ip = static_cast<uint32_t>(random.number());
    check_ip2str(ip, libc_ip2str(ip));
  }
}

TEST_F(Ip2Str, WhatItWritesParsesBackExceptNetworkZero) {
  Random random(10);
  for (int round = 0; round < 20000 && !HasFailure(); round++) {
    const auto ip = static_cast<uint32_t>(random.number()) >> (round % 4 == 0 ? 8 : 0);
    char text[MU_IP_TEXT_SIZE];
    EXPECT_EQ(mu_ip2str(text, ip), 0);
    EXPECT_EQ(str2ip(text), (ip >> 24 == 0 ? kRefused : Ip{0, ip})) << text;
  }
}

TEST_F(Ip2Str, RefusesNull) {
  EXPECT_EQ(mu_ip2str(nullptr, 0x01020304), 1);
  EXPECT_EQ(mu_ip2str(nullptr, 0), 1);
}
