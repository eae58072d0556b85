#include <arpa/inet.h>
#include <gtest/gtest.h>

#include <array>
#include <cctype>
#include <cstring>
#include <string>
#include <vector>

#include "convert/texts.h"
#include "tarn/convert.h"

using namespace tarn_test;

namespace {

using Address = std::array<uint8_t, MU_IPV6_BYTES>;

constexpr Address kUntouched = {0xEE, 0xEE, 0xEE, 0xEE, 0xEE, 0xEE, 0xEE, 0xEE,
                                0xEE, 0xEE, 0xEE, 0xEE, 0xEE, 0xEE, 0xEE, 0xEE};

Address of_groups(const std::array<uint16_t, 8> &groups) {
  Address address = {};
  for (size_t i = 0; i < groups.size(); i++) {
    address[2 * i] = static_cast<uint8_t>(groups[i] >> 8);
    address[2 * i + 1] = static_cast<uint8_t>(groups[i]);
  }
  return address;
}

class Ipv6Text : public testing::Test {
 protected:
  // The grammar is libc's, so every text must fare alike.
  void check_against_libc(const std::string &text) {
    if (HasFatalFailure()) return;  // one is enough
    Address expected = kUntouched;
    const int parsed = inet_pton(AF_INET6, text.c_str(), expected.data());
    Address address = kUntouched;
    ASSERT_EQ(mu_str2ipv6(guarded_(text), address.data()), parsed == 1 ? 0 : 1) << '"' << text << '"';
    ASSERT_EQ(address, expected) << '"' << text << '"';
    parsed_ += parsed == 1 ? 1u : 0u;
  }

  Guarded guarded_;
  size_t parsed_ = 0;  // texts that are addresses
};

using Str2Ipv6 = Ipv6Text;

std::string text_of(const Address &address) {
  char text[MU_IPV6_TEXT_SIZE];
  EXPECT_EQ(mu_ipv6tostr(text, address.data()), 0);
  return text;
}

std::string inet_ntop_text(const Address &address) {
  char text[INET6_ADDRSTRLEN];
  return inet_ntop(AF_INET6, address.data(), text, sizeof text);
}

// Addresses with runs of zeros and small groups, as in use.
Address some_address(Random &random) {
  std::array<uint16_t, 8> groups;
  for (uint16_t &group : groups) {
    group = random.below(3) == 0 ? uint16_t{0} : static_cast<uint16_t>(random.below(0x10000) >> random.below(16));
  }
  return of_groups(groups);
}

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
      // Others.
      {"::ffff:1.2.3.4", {0, 0, 0, 0, 0, 0xFFFF, 0x0102, 0x0304}},
      {"fe80::aBcD", {0xFE80, 0, 0, 0, 0, 0, 0, 0xABCD}},
      {"1::", {1, 0, 0, 0, 0, 0, 0, 0}},
      {"1:2:3:4:5:6:7::", {1, 2, 3, 4, 5, 6, 7, 0}},  // "::" for one group
      {"::2:3:4:5:6:7:8", {0, 2, 3, 4, 5, 6, 7, 8}},
      {"1:2:3::5:6:7:8", {1, 2, 3, 0, 5, 6, 7, 8}},
      {"0001:0020:0300:4000:0000:000a:00b0:0c00", {1, 0x20, 0x300, 0x4000, 0, 0xA, 0xB0, 0xC00}},
      {"1::2:0.0.0.0", {1, 0, 0, 0, 0, 2, 0, 0}},
      {"1:2:3:4:5::255.255.255.255", {1, 2, 3, 4, 5, 0, 0xFFFF, 0xFFFF}},
      {"1:2:3:4:5:6:0.9.10.99", {1, 2, 3, 4, 5, 6, 0x0009, 0x0A63}},
  };
  for (const Row &row : kRows) {
    SCOPED_TRACE(row.text);
    Address address = kUntouched;
    EXPECT_EQ(mu_str2ipv6(guarded_(row.text), address.data()), 0);
    EXPECT_EQ(address, of_groups(row.groups));
  }
}

TEST_F(Str2Ipv6, RefusesAndLeavesTheOutputAlone) {
  const char *const texts[] = {
      "",
      ":",
      "1",
      "1:",
      "1:2",
      "1:2:3:4:5:6:7",
      ":1",
      ":1:2:3:4:5:6:7:8",
      ":1::",  // a single colon in front
      "1:2:3:4:5:6:7:",
      "1:2:3:4:5:6:7:8:",
      "::1:",
      "1::2:",  // a single colon at the end
      ":::",
      "1:::2",
      ":::1",
      "1:::",
      "::1::",
      "1::2::3",
      "::1:2::",
      "::::",  // a second "::"
      "1:2:3:4:5:6:7:8:9",
      "::1:2:3:4:5:6:7:8:9",  // a ninth group
      "1:2:3:4:5:6:7:8::",
      "::1:2:3:4:5:6:7:8",
      "1:2:3:4::5:6:7:8",  // a "::" that stands for no group
      "12345::",
      "::00001",
      "::12345",
      "1:2:3:4:5:6:7:00008",
      "::fffff",  // a fifth digit
      "g::",
      "::g",
      "::1g",
      "::/",
      "::@",
      "::`",
      "::-1",
      "::+1",
      "::0x1",
      "::\xB1",
      " ::1",
      "::1 ",
      ":: 1",
      "::1\n",
      "1 ::",
      "[::1]",
      "::1%eth0",
      "::1/64",
      "::1]",
      "1.2.3.4",  // a quad alone stands for two groups
      "1.2.3.4::",
      "::1.2.3.4:5",
      "::1.2.3.4:",
      "1:1.2.3.4::",  // a quad that is not the end
      ".",
      "::.",
      "::.1.2.3",
      "1:.2.3.4",
      "::1.",
      "::1.2",
      "::1.2.3",
      "::1.2.3.",
      "::1.2.3.4.",
      "::1.2.3.4.5",
      "::1..2.3",
      "::1...",
      "::1.2..4",
      "::256.2.3.4",
      "::1.256.3.4",
      "::1.2.3.256",
      "::1.2.3.999",
      "::1.2.3.1000",
      "::1.2.3.4294967297",  // no wrapping, unlike mu_str2ip
      "::01.2.3.4",
      "::1.02.3.4",
      "::1.2.3.04",
      "::00.0.0.0",
      "::0.0.0.00",
      "::1.2.3.000",
      "::a.2.3.4",
      "::1a.2.3.4",
      "::1.a.3.4",
      "::1.2.3.a",
      "::ff.2.3.4",
      "::1.2.3.4 ",
      "::1. 2.3.4",
      "::1.2.3.-4",
      "::1.2.3.4/8",
      "::1.2.3.4%1",
      "1:2:3:4:5:6:7:1.2.3.4",
      "1:2:3:4:5:6:7:8:1.2.3.4",
      "1:2:3:4:5:1.2.3.4",  // too much, too little beside a quad
      "::1:2:3:4:5:6:1.2.3.4",
      "1:2:3:4:5:6::1.2.3.4",  // a "::" that stands for no group, and a quad
  };
  for (const char *text : texts) {
    Address address = kUntouched;
    EXPECT_EQ(mu_str2ipv6(guarded_(text), address.data()), 1) << '"' << text << '"';
    EXPECT_EQ(address, kUntouched) << '"' << text << '"';
  }
}

// All numbers of groups in front of a "::" and behind it, with and without a quad at the end; and without a "::".
TEST_F(Str2Ipv6, CountsEightGroups) {
  const auto groups_text = [](unsigned first, unsigned count, bool quad) {
    std::string text;
    for (unsigned i = 0; i < count; i++) text += (i > 0 ? ":" : "") + hexadecimal(first + i, false);
    if (quad) text += (count > 0 ? ":" : "") + std::string("250.251.252.253");
    return text;
  };
  const auto expected_groups = [](unsigned head, unsigned tail, bool quad) {
    std::array<uint16_t, 8> groups = {};
    for (unsigned i = 0; i < head; i++) groups[i] = static_cast<uint16_t>(0x100 + i);
    const unsigned behind = tail + (quad ? 2u : 0u);
    for (unsigned i = 0; i < tail; i++) groups[8 - behind + i] = static_cast<uint16_t>(0xA00 + i);
    if (quad) {
      groups[6] = 0xFAFB;
      groups[7] = 0xFCFD;
    }
    return groups;
  };
  for (unsigned head = 0; head <= 10; head++) {
    for (unsigned tail = 0; tail <= 10; tail++) {
      for (bool quad : {false, true}) {
        const std::string text = groups_text(0x100, head, false) + "::" + groups_text(0xA00, tail, quad);
        const bool parses = head + tail + (quad ? 2 : 0) <= 7;
        Address address = kUntouched;
        EXPECT_EQ(mu_str2ipv6(guarded_(text), address.data()), parses ? 0 : 1) << text;
        EXPECT_EQ(address, parses ? of_groups(expected_groups(head, tail, quad)) : kUntouched) << text;
      }
    }
    for (bool quad : {false, true}) {
      const std::string text = groups_text(0xA00, head, quad);
      const bool parses = head + (quad ? 2 : 0) == 8;
      Address address = kUntouched;
      EXPECT_EQ(mu_str2ipv6(guarded_(text), address.data()), parses ? 0 : 1) << text;
      EXPECT_EQ(address, parses ? of_groups(expected_groups(0, head, quad)) : kUntouched) << text;
    }
  }
}

TEST_F(Str2Ipv6, ParsesEveryGroupValueInEverySpelling) {
  for (uint32_t value = 0; value < 0x10000; value++) {
    const std::string text = hexadecimal(value, value % 2 != 0, static_cast<int>(value % 3 == 0 ? 4 : 1)) + "::";
    Address expected = {};
    expected[0] = static_cast<uint8_t>(value >> 8);
    expected[1] = static_cast<uint8_t>(value);
    Address address = kUntouched;
    ASSERT_EQ(mu_str2ipv6(guarded_(text), address.data()), 0) << text;
    ASSERT_EQ(address, expected) << text;
  }
}

TEST_F(Str2Ipv6, AgreesWithLibcOnEveryShortText) {
  const auto check = [this](const std::string &text) { check_against_libc(text); };
  EXPECT_EQ(for_each_text_up_to("1:.", 9, check), 29524u);  // (3^10 - 1) / 2
  EXPECT_EQ(for_each_text_up_to("0a:g", 6, check), 5461u);  // (4^7 - 1) / 3
  EXPECT_EQ(for_each_text_up_to(kRelevant, 3, check), 1u + 38 + 38 * 38 + 38 * 38 * 38);
  EXPECT_EQ(for_each_text_up_to(all_bytes(), 2, check), 1u + 255 + 255 * 255);
  EXPECT_GT(parsed_, 300u);
}

TEST_F(Str2Ipv6, AgreesWithLibcOnEveryThreeCharactersInEveryPlace) {
  const size_t count = for_each_text("019afG:.%", 3, [this](const std::string &three) {
    check_against_libc(three + ":2:3:4:5:6:7:8");
    check_against_libc("1:2:3" + three + "6:7:8");
    check_against_libc("1:2:3:4:5:6:7:" + three);
    check_against_libc("1:2:3:4:5:6:" + three);
    check_against_libc("1:2:3:4::" + three);
    check_against_libc("::1" + three);
    check_against_libc("::ffff:" + three + "1.2.3");
    check_against_libc("::ffff:1." + three + ".3");
    check_against_libc("1:2:3:4:5:6:1.2.3" + three);
  });
  EXPECT_EQ(count, 729u);
  EXPECT_GT(parsed_, 600u);
}

TEST_F(Str2Ipv6, AgreesWithLibcOnEverySequenceOfPieces) {
  const std::string pieces[] = {":",       "::",       "1",         "ffff",  "12345",   "0",        ".",
                                "1.2.3.4", "01.2.3.4", "256.1.1.1", "1.2.3", "1:2:3:4", "5:6:7:8:", "a:b"};
  // The letters of the alphabet count the pieces.
  const size_t count = for_each_text_up_to("abcdefghijklmn", 4, [&](const std::string &letters) {
    std::string text;
    for (char letter : letters) text += pieces[letter - 'a'];
    check_against_libc(text);
  });
  EXPECT_EQ(count, 1u + 14 + 196 + 2744 + 38416);
  EXPECT_GT(parsed_, 200u);
}

TEST_F(Str2Ipv6, AgreesWithLibcOnEveryNeighbour) {
  for (const char *text : {"2001:db8::8:800:200c:417a", "::ffff:129.144.52.38", "1:2:3:4:5:6:7:8",
                           "1:2:3:4:5:6:1.2.3.255", "::", "1::", "abcd:ef01:2345:6789:abcd:ef01:2345:6789"}) {
    for_each_neighbour(text, [this](const std::string &other) { check_against_libc(other); });
  }
  EXPECT_GT(parsed_, 1000u);
}

TEST_F(Str2Ipv6, AgreesWithLibcOnRandomAddresses) {
  Random random(11);
  for (int i = 0; i < 30000; i++) check_against_libc(inet_ntop_text(some_address(random)));
  EXPECT_EQ(parsed_, 30000u);
}

// ---- mu_ipv6tostr ---------------------------------------------------------------------------------------------------

TEST(Ipv6ToStr, NeverCompressesZeros) {
  EXPECT_EQ(text_of(of_groups({0x2001, 0xDB8, 0, 0, 0, 0, 0, 1})), "2001:DB8:0:0:0:0:0:1");
  EXPECT_EQ(text_of(of_groups({})), "0:0:0:0:0:0:0:0");
  EXPECT_EQ(text_of(of_groups({0, 0, 0, 0, 0, 0xFFFF, 0x0102, 0x0304})), "0:0:0:0:0:FFFF:102:304");  // no quad
}

TEST(Ipv6ToStr, WritesUpperCaseWithoutLeadingZeros) {
  EXPECT_EQ(text_of(of_groups({0x0001, 0x0012, 0x0123, 0x1234, 0xA000, 0x0B00, 0x00C0, 0x000D})),
            "1:12:123:1234:A000:B00:C0:D");
  EXPECT_EQ(text_of(of_groups({0xFFFF, 0xFFFF, 0xFFFF, 0xFFFF, 0xFFFF, 0xFFFF, 0xFFFF, 0xABCD})),
            "FFFF:FFFF:FFFF:FFFF:FFFF:FFFF:FFFF:ABCD");
}

TEST(Ipv6ToStr, WritesEveryGroupValueInEveryPlace) {
  for (uint32_t value = 0; value < 0x10000; value++) {
    std::array<uint16_t, 8> groups;
    std::string expected;
    for (size_t i = 0; i < groups.size(); i++) {
      groups[i] = static_cast<uint16_t>(i % 2 == value % 2 ? value : ~value);
      expected += (i > 0 ? ":" : "") + hexadecimal(groups[i], true);
    }
    ASSERT_EQ(text_of(of_groups(groups)), expected);
  }
}

TEST(Ipv6ToStr, WritesNothingBehindTheNulAndAtMost40Bytes) {
  for (uint8_t byte : {uint8_t{0}, uint8_t{1}, uint8_t{0xFF}}) {
    Address address;
    address.fill(byte);
    std::string room(50, '#');
    EXPECT_EQ(mu_ipv6tostr(room.data(), address.data()), 0);
    const size_t length = room.find('\0');
    ASSERT_LT(length, size_t{MU_IPV6_TEXT_SIZE});
    EXPECT_EQ(room.substr(length + 1), std::string(50 - length - 1, '#'));
  }
}

TEST(Ipv6ToStr, RefusesANullDestination) {
  EXPECT_EQ(mu_ipv6tostr(nullptr, kUntouched.data()), 1);
  EXPECT_EQ(mu_ipv6tostr(nullptr, nullptr), 1);
}

// libc compresses two zero groups or more, and writes lower case; all else is alike.
TEST(Ipv6ToStr, AgreesWithInetNtopWhereNoTwoGroupsInARowAreZero) {
  Random random(12);
  size_t compared = 0;
  for (int i = 0; i < 30000; i++) {
    const Address address = some_address(random);
    std::string expected = inet_ntop_text(address);
    if (expected.find("::") != std::string::npos) continue;
    for (char &c : expected) c = static_cast<char>(toupper(c));
    ASSERT_EQ(text_of(address), expected);
    compared++;
  }
  EXPECT_GT(compared, 10000u);
}

TEST_F(Str2Ipv6, AndLibcReadBackWhatIpv6ToStrWrites) {
  Random random(13);
  for (int i = 0; i < 20000; i++) {
    const Address address = some_address(random);
    check_against_libc(text_of(address));
    Address back = kUntouched;
    ASSERT_EQ(mu_str2ipv6(text_of(address).c_str(), back.data()), 0);
    ASSERT_EQ(back, address);
  }
  EXPECT_EQ(parsed_, 20000u);
}
