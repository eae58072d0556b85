// SPDX-FileCopyrightText: 2026 The tarn authors
// SPDX-License-Identifier: Apache-2.0

// IPv6 addresses: mu_str2ipv6 and mu_ipv6tostr, text by text. ipv6_model_test.cpp compares them with models.

#include "convert/ipv6_addresses.h"

#include <type_traits>

#include "convert/fixture.h"

using namespace tarn_test;

static_assert(MU_IPV6_BYTES == 16 && MU_IPV6_TEXT_SIZE == 40);
static_assert(std::is_same_v<decltype(&mu_str2ipv6), mu_status_t (*)(const char *, uint8_t *)>);
static_assert(std::is_same_v<decltype(&mu_ipv6tostr), mu_status_t (*)(char *, const uint8_t *)>);

namespace {

using Str2Ipv6 = Ipv6;
using Ipv6ToStr = Ipv6;

}  // namespace

// ---- mu_str2ipv6 ----------------------------------------------------------------------------------------------------

TEST_F(Str2Ipv6, Parses) {
  struct Row {
    const char *text;
    std::array<uint16_t, 8> groups;
  };
  constexpr Row kRows[] = {
      // The examples of RFC 4291, section 2.2.
      {"ABCD:EF01:2345:6789:ABCD:EF01:2345:6789", {0xABCD, 0xEF01, 0x2345, 0x6789, 0xABCD, 0xEF01, 0x2345, 0x6789}},
      {"2001:DB8:0:0:8:800:200C:417A", {0x2001, 0xDB8, 0, 0, 8, 0x800, 0x200C, 0x417A}},
      {"2001:DB8::8:800:200C:417A", {0x2001, 0xDB8, 0, 0, 8, 0x800, 0x200C, 0x417A}},
      {"FF01:0:0:0:0:0:0:101", {0xFF01, 0, 0, 0, 0, 0, 0, 0x101}},
      {"FF01::101", {0xFF01, 0, 0, 0, 0, 0, 0, 0x101}},
      {"0:0:0:0:0:0:0:1", {0, 0, 0, 0, 0, 0, 0, 1}},
      {"::1", {0, 0, 0, 0, 0, 0, 0, 1}},
      {"0:0:0:0:0:0:0:0", {}},
      {"::", {}},
      {"0:0:0:0:0:0:13.1.68.3", {0, 0, 0, 0, 0, 0, 0x0D01, 0x4403}},
      {"::13.1.68.3", {0, 0, 0, 0, 0, 0, 0x0D01, 0x4403}},
      {"0:0:0:0:0:FFFF:129.144.52.38", {0, 0, 0, 0, 0, 0xFFFF, 0x8190, 0x3426}},
      {"::FFFF:129.144.52.38", {0, 0, 0, 0, 0, 0xFFFF, 0x8190, 0x3426}},
      // Eight groups, in network order; up to four digits of either case.
      {"1:2:3:4:5:6:7:8", {1, 2, 3, 4, 5, 6, 7, 8}},
      {"0011:2233:4455:6677:8899:aAbB:CcdD:EEFF", {0x0011, 0x2233, 0x4455, 0x6677, 0x8899, 0xAABB, 0xCCDD, 0xEEFF}},
      {"0001:0020:0300:4000:0000:000a:00b0:0c00", {1, 0x20, 0x300, 0x4000, 0, 0xA, 0xB0, 0xC00}},
      // A "::" for one group or more.
      {"fe80::aBcD", {0xFE80, 0, 0, 0, 0, 0, 0, 0xABCD}},
      {"1::", {1, 0, 0, 0, 0, 0, 0, 0}},
      {"0001::0000", {1, 0, 0, 0, 0, 0, 0, 0}},
      {"2001:db8::1", {0x2001, 0xDB8, 0, 0, 0, 0, 0, 1}},
      {"1:2::7:8", {1, 2, 0, 0, 0, 0, 7, 8}},
      {"1:2:3:4:5:6:7::", {1, 2, 3, 4, 5, 6, 7, 0}},
      {"::2:3:4:5:6:7:8", {0, 2, 3, 4, 5, 6, 7, 8}},
      {"1:2:3::5:6:7:8", {1, 2, 3, 0, 5, 6, 7, 8}},
      {"1:2:3:4::5:6:7", {1, 2, 3, 4, 0, 5, 6, 7}},  // more after the gap than in it
      // A quad in place of the last two groups.
      {"::1.2.3.4", {0, 0, 0, 0, 0, 0, 0x0102, 0x0304}},
      {"::ffff:1.2.3.4", {0, 0, 0, 0, 0, 0xFFFF, 0x0102, 0x0304}},
      {"1::2:0.0.0.0", {1, 0, 0, 0, 0, 2, 0, 0}},
      {"1:2:3:4:5::0.0.0.0", {1, 2, 3, 4, 5, 0, 0, 0}},  // mu_str2ip refuses 0.0.0.0
      {"1:2:3:4:5::255.255.255.255", {1, 2, 3, 4, 5, 0, 0xFFFF, 0xFFFF}},
      {"1:2:3:4:5:6:255.0.10.99", {1, 2, 3, 4, 5, 6, 0xFF00, 0x0A63}},
      {"1:2:3:4:5:6:0.9.10.99", {1, 2, 3, 4, 5, 6, 0x0009, 0x0A63}},
  };
  for (const Row &row : kRows) EXPECT_EQ(str2ipv6(row.text), (Parsed<Bytes>{0, of_groups(row.groups)})) << row.text;
}

TEST_F(Str2Ipv6, RefusesAndLeavesTheOutputUntouched) {
  const char *const texts[] = {
      // Fewer than eight groups.
      "", "1", "1:2", "1:2:3:4:5:6:7", "1:2:3:4:5:1.2.3.4", "1.2.3.4", "1:1.2.3.4",
      // A single colon at the start.
      ":", ":1", ":1:2:3:4:5:6:7", ":1:2:3:4:5:6:7:8", ":1::", ":1::2", ":.1.2.3", ":g", ":1.2.3.4",
      // A single colon at the end.
      "1:", "1:2:3:4:5:6:7:", "1:2:3:4:5:6:7:8:", "::1:", "1::2:", "::1.2.3.4:",
      // A second "::".
      ":::", "1:::2", ":::1", "1:::", "::1::", "::1::2", "1::2::3", "1::2:::3", "::1:2::", "::::",
      // A ninth group.
      "1:2:3:4:5:6:7:8:9", "1:2:3:4:5:6:7:8:9:a", "::1:2:3:4:5:6:7:8:9", "1::2:3:4:5:6:7:8:9",
      // A "::" that represents no group.
      "1:2:3:4:5:6:7:8::", "1:2:3:4:5:6:7::8", "::1:2:3:4:5:6:7:8", "1:2:3:4::5:6:7:8", "1:2:3:4:5:6::1.2.3.4",
      "::1:2:3:4:5:6:1.2.3.4",
      // A fifth digit, including a leading zero.
      "12345::", "00001::", "::00000", "::00001", "::12345", "1:2:3:4:5:6:7:00008", "::fffff", "::12345.1.1.1",
      // Any other character.
      "g::", "::g", "::G", "::1g", "::/", "::@", "::`", "::-1", "1::-1", "::+1", "::0x1", "::\xB1", " ::1", "::1 ",
      ":: 1", "::1\n", "1 ::", "[::1]", "::1]", "::1%eth0", "::1/64", "fe80;1",
      // A quad that is not the end.
      "1.2.3.4::", "::1.2.3.4:5", "::1.2.3.4::", "1:1.2.3.4::", "1.2.3.4:1:2:3:4:5:6", "::1.2.3.4.5", "::1.2.3.4.",
      "::1.2.3.4 ", "::1.2.3.4/8", "::1.2.3.4%1", "::1.2.3.4a",
      // A quad of more or fewer than four octets.
      ".", "::.", "::.1.2.3", "1:.2.3.4", "::1.", "::1.2", "::1.2.3", "::1.2.3.", "::1..2.3", "::1...", "::1.2..4",
      "::....",
      // An octet above 255. It does not wrap, unlike in mu_str2ip.
      "::256.2.3.4", "::1.256.3.4", "::1.2.3.256", "::1.2.3.999", "::1.2.3.1000", "::1.2.3.4294967297",
      "::1.2.3.4294967300", "::1.2.3.18446744073709551620",
      // An octet with a leading zero.
      "::01.2.3.4", "::1.02.3.4", "::1.2.3.01", "::1.2.3.04", "::1.2.00.4", "::00.0.0.0", "::0.0.0.00", "::1.2.3.000",
      // An octet with a character that is not a decimal digit.
      "::a.2.3.4", "::1a.2.3.4", "::1f.2.3.4", "::1.a.3.4", "::1.2.3.a", "::ff.2.3.4", "::1. 2.3.4", "::1.2.3.-4",
      "::1.-2.3.4", "::1.+2.3.4", "::1.0x2.3.4",
      // A quad without room for four bytes.
      "1:2:3:4:5:6:7:1.2.3.4", "1:2:3:4:5:6:7:8:1.2.3.4", "1:2:3:4:5:6:7::1.2.3.4"};
  for (const char *text : texts) EXPECT_EQ(str2ipv6(text), kRefusedIpv6) << '"' << text << '"';
}

// All numbers of groups in front of a "::" and after it, with and without a quad at the end; and without a "::".
TEST_F(Str2Ipv6, CountsEightGroups) {
  constexpr unsigned kHead = 0x100;
  constexpr unsigned kTail = 0xA00;
  const auto groups_text = [](unsigned first, unsigned count, bool quad) {
    std::string text;
    for (unsigned i = 0; i < count; i++) text += (i > 0 ? ":" : "") + hexadecimal(first + i, false);
    if (quad) text += (count > 0 ? ":" : "") + std::string("250.251.252.253");
    return text;
  };
  const auto parsed = [](unsigned head, unsigned tail, bool quad) {
    std::array<uint16_t, 8> groups = {};
    const unsigned start_of_tail = 8 - tail - (quad ? 2u : 0u);
    for (unsigned i = 0; i < head; i++) groups.at(i) = static_cast<uint16_t>(kHead + i);
    for (unsigned i = 0; i < tail; i++) groups.at(start_of_tail + i) = static_cast<uint16_t>(kTail + i);
    if (quad) {
      groups[6] = 0xFAFB;
      groups[7] = 0xFCFD;
    }
    return Parsed<Bytes>{0, of_groups(groups)};
  };
  for (const bool quad : {false, true}) {
    const unsigned quad_groups = quad ? 2 : 0;
    for (unsigned head = 0; head <= 10; head++) {
      for (unsigned tail = 0; tail <= 10; tail++) {
        const std::string text = groups_text(kHead, head, false) + "::" + groups_text(kTail, tail, quad);
        const bool fits = head + tail + quad_groups <= 7;
        EXPECT_EQ(str2ipv6(text), (fits ? parsed(head, tail, quad) : kRefusedIpv6)) << text;
      }
    }
    for (unsigned count = 0; count <= 10; count++) {
      const std::string text = groups_text(kTail, count, quad);
      const bool fits = count + quad_groups == 8;
      EXPECT_EQ(str2ipv6(text), (fits ? parsed(0, count, quad) : kRefusedIpv6)) << text;
    }
  }
}

TEST_F(Str2Ipv6, ParsesEveryGroupValueInEverySpelling) {
  for (uint32_t value = 0; value < 0x10000 && !HasFailure(); value++) {
    const auto group = static_cast<uint16_t>(value);
    const Parsed<Bytes> first = {0, of_groups({group, 0, 0, 0, 0, 0, 0, 0})};
    const Parsed<Bytes> seventh = {0, of_groups({0, 0, 0, 0, 0, 0, group, 0})};
    for (const bool upper_case : {false, true}) {
      const std::string full = hexadecimal(value, upper_case, 4);
      const std::string shortest = hexadecimal(value, upper_case);
      EXPECT_EQ(str2ipv6((value % 2 == 0 ? full : shortest) + "::"), first) << value;
      EXPECT_EQ(str2ipv6("::" + (value % 2 == 0 ? shortest : full) + ":0"), seventh) << value;
    }
  }
}

TEST_F(Str2Ipv6, TakesEveryOctetOfTheQuadInEveryPlace) {
  for (size_t place = 0; place < 4; place++) {
    for (unsigned value = 0; value < 1100; value++) {
      std::array<std::string, 4> octets = {"1", "1", "1", "1"};
      octets.at(place) = std::to_string(value);
      Bytes expected = of_groups({0, 0, 0, 0, 0, 0, 0x0101, 0x0101});
      expected[12 + place] = static_cast<uint8_t>(value);
      const std::string text = "::" + octets[0] + '.' + octets[1] + '.' + octets[2] + '.' + octets[3];
      EXPECT_EQ(str2ipv6(text), (value <= 255 ? Parsed<Bytes>{0, expected} : kRefusedIpv6)) << text;
    }
  }
}

TEST_F(Str2Ipv6, RefusesLongTexts) {
  const std::string zeros(70000, '0');
  for (const std::string &text :
       {zeros, "::" + zeros, "::1.2.3." + zeros, "::1.2.3.4" + zeros, "::1:" + zeros + ":2"}) {
    EXPECT_EQ(str2ipv6(text), kRefusedIpv6);
  }
}

TEST_F(Str2Ipv6, NothingBeforeTheTextIsRead) {
  uint8_t out[MU_IPV6_BYTES];
  for (const char *text : {"", ":", ".", "1", "1.2.3.4"}) EXPECT_EQ(mu_str2ipv6(text_.at_start(text), out), 1) << text;
  for (const char *text : {"::", "::1.2.3.4"}) EXPECT_EQ(mu_str2ipv6(text_.at_start(text), out), 0) << text;
}

// ---- mu_ipv6tostr ---------------------------------------------------------------------------------------------------

TEST_F(Ipv6ToStr, NeverCompressesZeros) {
  EXPECT_EQ(ipv6tostr(of_groups({0x2001, 0xDB8, 0, 0, 0, 0, 0, 1})), "2001:DB8:0:0:0:0:0:1");
  EXPECT_EQ(ipv6tostr(Bytes(16, 0)), "0:0:0:0:0:0:0:0");
  EXPECT_EQ(ipv6tostr(of_groups({0, 0, 0, 0, 0, 0, 0, 1})), "0:0:0:0:0:0:0:1");
  EXPECT_EQ(ipv6tostr(of_groups({0, 0, 0, 0, 0, 0xFFFF, 0x0102, 0x0304})), "0:0:0:0:0:FFFF:102:304");  // no quad
}

TEST_F(Ipv6ToStr, WritesUpperCaseWithoutLeadingZeros) {
  EXPECT_EQ(ipv6tostr(of_groups({0x0001, 0x0012, 0x0123, 0x1234, 0xA000, 0x0B00, 0x00C0, 0x000D})),
            "1:12:123:1234:A000:B00:C0:D");
  EXPECT_EQ(ipv6tostr(of_groups({0xABCD, 0xBC, 0xC, 0x1000, 0x100, 0x10, 0, 0xF00F})), "ABCD:BC:C:1000:100:10:0:F00F");
}

TEST_F(Ipv6ToStr, TheLongestTextFillsTheStatedSize) {
  EXPECT_EQ(ipv6tostr(Bytes(16, 0xFF)), "FFFF:FFFF:FFFF:FFFF:FFFF:FFFF:FFFF:FFFF");
  EXPECT_EQ(ipv6tostr(Bytes(16, 0xEE)).size(), size_t{MU_IPV6_TEXT_SIZE} - 1);
}

TEST_F(Ipv6ToStr, WritesEveryGroupValueInEveryPlace) {
  for (uint32_t value = 0; value < 0x10000 && !HasFailure(); value++) {
    std::array<uint16_t, 8> groups;
    std::string expected;
    for (size_t i = 0; i < groups.size(); i++) {
      groups.at(i) = static_cast<uint16_t>(i % 2 == value % 2 ? value : ~value);
      expected += (i > 0 ? ":" : "") + hexadecimal(groups.at(i), true);
    }
    EXPECT_EQ(ipv6tostr(of_groups(groups)), expected);
  }
}

TEST_F(Ipv6ToStr, RefusesANullDestination) {
  EXPECT_EQ(mu_ipv6tostr(nullptr, Bytes(16, 0).data()), 1);
  EXPECT_EQ(mu_ipv6tostr(nullptr, nullptr), 1);
}
