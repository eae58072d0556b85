#include <arpa/inet.h>
#include <gtest/gtest.h>

#include <optional>
#include <string>
#include <vector>

#include "convert/texts.h"
#include "tarn/convert.h"

using namespace tarn_test;

namespace {

constexpr uint32_t kUntouched = 0xDEADBEEF;

// The digits as a number modulo 2^32.
uint32_t wrapped(const std::string &digits) {
  uint32_t value = 0;
  for (char c : digits) value = value * 10 + static_cast<uint32_t>(c - '0');
  return value;
}

// A naive model: cuts the text at its dots, then looks at the pieces.
std::optional<uint32_t> model(const std::string &text) {
  const std::vector<std::string> pieces = split(text, ".");
  if (pieces.size() != 4 || text[0] == '0') return std::nullopt;
  uint32_t address = 0;
  for (const std::string &piece : pieces) {
    if (piece.empty() || !consists_of(piece, kDecimal) || wrapped(piece) > 255) return std::nullopt;
    address = address * 256 + wrapped(piece);
  }
  return address;
}

// Whether libc and this library mean to take the text alike: where no octet has zeros in front, the first is not 0, and
// none has so many digits that it wraps.
bool in_common_with_libc(const std::string &text) {
  if (text[0] == '0') return false;
  for (const std::string &piece : split(text, ".")) {
    if (piece.size() > 9 || (piece.size() > 1 && piece[0] == '0')) return false;
  }
  return true;
}

class Ipv4Text : public testing::Test {
 protected:
  void check(const std::string &text) {
    if (HasFatalFailure()) return;  // one is enough
    const std::optional<uint32_t> address = model(text);
    uint32_t ip = kUntouched;
    ASSERT_EQ(mu_str2ip(guarded_(text), &ip), address ? 0 : 1) << '"' << text << '"';
    ASSERT_EQ(ip, address.value_or(kUntouched)) << '"' << text << '"';
    if (in_common_with_libc(text)) check_against_libc(text, ip);
  }

  void check_against_libc(const std::string &text, uint32_t ip) {
    in_common_++;
    in_addr libcs = {};
    libcs.s_addr = htonl(kUntouched);
    ASSERT_EQ(inet_pton(AF_INET, text.c_str(), &libcs), model(text) ? 1 : 0) << '"' << text << '"';
    ASSERT_EQ(ip, ntohl(libcs.s_addr)) << '"' << text << '"';
  }

  Guarded guarded_;
  size_t in_common_ = 0;  // texts that were also compared with libc
};

using Str2Ip = Ipv4Text;

}  // namespace

// ---- mu_str2ip ------------------------------------------------------------------------------------------------------

TEST_F(Str2Ip, ParsesOrLeavesTheOutputAlone) {
  struct Row {
    const char *text;
    mu_status_t status;
    uint32_t ip;
  };
  constexpr Row kRows[] = {
      {"1.0.0.0", 0, 0x01000000},
      {"1.2.3.4", 0, 0x01020304},  // the first octet on top
      {"192.168.1.254", 0, 0xC0A801FE},
      {"255.255.255.255", 0, 0xFFFFFFFF},
      {"9.10.99.100", 0, 0x090A6364},
      {"", 1, 0},
      {".", 1, 0},
      {"...", 1, 0},
      {"1", 1, 0},
      {"1.", 1, 0},
      {"1.2", 1, 0},
      {"1.2.3", 1, 0},
      {"1.2.3.", 1, 0},
      {"1.2.3.4.", 1, 0},
      {"1.2.3.4.5", 1, 0},
      {".1.2.3.4", 1, 0},
      {".1.2.3", 1, 0},
      {"1..2.3", 1, 0},
      {"1..2.3.4", 1, 0},
      {"1.2..4", 1, 0},
      {"1.2.3..", 1, 0},
      {"256.2.3.4", 1, 0},
      {"1.256.3.4", 1, 0},
      {"1.2.256.4", 1, 0},
      {"1.2.3.256", 1, 0},
      {"1.2.3.999", 1, 0},
      {"1.2.3.1000", 1, 0},
      {"1.2.3.4294967295", 1, 0},
      {"16909060", 1, 0},  // no other notation than the dotted quad
      {"1.2.772", 1, 0},
      {"0x1.2.3.4", 1, 0},
      {"1.0x2.3.4", 1, 0},
      {"1.2.3.4 ", 1, 0},
      {" 1.2.3.4", 1, 0},
      {"1. 2.3.4", 1, 0},
      {"1.2.3.4\n", 1, 0},
      {"+1.2.3.4", 1, 0},
      {"1.-2.3.4", 1, 0},
      {"1.2.3.4/24", 1, 0},
      {"1.2.3.4:80", 1, 0},
      {"1,2,3,4", 1, 0},
      {"1:2:3:4", 1, 0},
      {"1.2.3.a", 1, 0},
      {"1.2.3.4a", 1, 0},
      {"a.2.3.4", 1, 0},
      {"1.2.3.\xB4", 1, 0},
  };
  for (const Row &row : kRows) {
    SCOPED_TRACE(row.text);
    uint32_t ip = kUntouched;
    EXPECT_EQ(mu_str2ip(guarded_(row.text), &ip), row.status);
    EXPECT_EQ(ip, row.status == 0 ? row.ip : kUntouched);
  }
}

TEST_F(Str2Ip, RefusesAZeroAtTheVeryStart) {
  for (const char *text : {"0", "0.1.2.3", "0.0.0.0", "01.2.3.4", "010.1.0.1", "00.1.2.3", "0255.255.255.255"}) {
    uint32_t ip = kUntouched;
    EXPECT_EQ(mu_str2ip(guarded_(text), &ip), 1) << text;
    EXPECT_EQ(ip, kUntouched) << text;
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
      {"1.0255.00255.000000000000000000255", 0x01FFFFFF},
  };
  for (const Row &row : kRows) {
    uint32_t ip = kUntouched;
    EXPECT_EQ(mu_str2ip(guarded_(row.text), &ip), 0) << row.text;
    EXPECT_EQ(ip, row.ip) << row.text;
    in_addr libcs = {};
    EXPECT_EQ(inet_pton(AF_INET, row.text, &libcs), 0) << row.text;  // libc refuses them: this is a difference
  }
}

TEST_F(Str2Ip, ReadsAnOctetModulo2To32) {
  struct Row {
    const char *text;
    mu_status_t status;
    uint32_t ip;
  };
  constexpr Row kRows[] = {
      {"1.2.3.4294967295", 1, 0},  // 2^32 - 1
      {"1.2.3.4294967296", 0, 0x01020300},
      {"1.2.3.4294967300", 0, 0x01020304},
      {"1.2.3.4294967551", 0, 0x010203FF},  // 2^32 + 255
      {"1.2.3.4294967552", 1, 0},
      {"4294967297.2.3.4", 0, 0x01020304},
      {"4294967296.2.3.4", 0, 0x00020304},            // the text does not begin with a zero
      {"1.18446744073709551618.3.4", 0, 0x01020304},  // 2^64 + 2
  };
  for (const Row &row : kRows) {
    uint32_t ip = kUntouched;
    EXPECT_EQ(mu_str2ip(guarded_(row.text), &ip), row.status) << row.text;
    EXPECT_EQ(ip, row.status == 0 ? row.ip : kUntouched) << row.text;
    in_addr libcs = {};
    EXPECT_EQ(inet_pton(AF_INET, row.text, &libcs), 0) << row.text;  // libc refuses them all
  }
}

TEST_F(Str2Ip, RefusesNull) {
  uint32_t ip = kUntouched;
  EXPECT_EQ(mu_str2ip(nullptr, &ip), 1);
  EXPECT_EQ(ip, kUntouched);
  EXPECT_EQ(mu_str2ip("1.2.3.4", nullptr), 1);
  EXPECT_EQ(mu_str2ip(nullptr, nullptr), 1);
}

TEST_F(Str2Ip, AgreesWithTheModelAndLibcOnEveryShortText) {
  const auto check_text = [this](const std::string &text) { check(text); };
  EXPECT_EQ(for_each_text_up_to("1.0", 9, check_text), 29524u);  // (3^10 - 1) / 2
  EXPECT_EQ(for_each_text_up_to(kRelevant, 2, check_text), 1u + 38 + 38 * 38);
  EXPECT_EQ(for_each_text_up_to(all_bytes(), 2, check_text), 1u + 255 + 255 * 255);
  EXPECT_GT(in_common_, 70000u);
}

TEST_F(Str2Ip, AgreesWithTheModelAndLibcOnEveryThreeCharactersInEveryPlace) {
  size_t count = for_each_text(kRelevant, 3, [this](const std::string &three) { check("1.2.3." + three); });
  count += for_each_text("0129a.: /-", 3, [this](const std::string &three) {
    check(three);
    check(three + ".2.3.4");
    check("1." + three + ".3.4");
    check("1.2" + three + "3.4");
    check("1.2.3" + three);
  });
  EXPECT_EQ(count, 38u * 38 * 38 + 1000);
  EXPECT_GT(in_common_, 50000u);
}

TEST_F(Str2Ip, AgreesWithTheModelAndLibcOnEveryPairOfOctets) {
  const char *const octets[] = {"",     "0",   "00",         "01",         "001",        "000000001", "1",
                                "9",    "10",  "99",         "100",        "199",        "200",       "249",
                                "250",  "255", "256",        "260",        "299",        "300",       "999",
                                "1000", "-1",  "4294967295", "4294967296", "4294967551", "4294967552"};
  for (int first = 0; first < 4; first++) {
    for (int second = first + 1; second < 4; second++) {
      for (const char *one : octets) {
        for (const char *other : octets) {
          std::string parts[] = {"1", "2", "3", "4"};
          parts[first] = one;
          parts[second] = other;
          check(parts[0] + "." + parts[1] + "." + parts[2] + "." + parts[3]);
        }
      }
    }
  }
  EXPECT_GT(in_common_, 1000u);
}

TEST_F(Str2Ip, AgreesWithTheModelAndLibcOnEveryNeighbour) {
  for (const char *text : {"1.2.3.4", "192.168.1.254", "255.255.255.255", "10.01.0.1", "1.0.0.0"}) {
    for_each_neighbour(text, [this](const std::string &other) { check(other); });
  }
  EXPECT_GT(in_common_, 10000u);
}

TEST_F(Str2Ip, AgreesWithLibcOnRandomAddresses) {
  Random random(8);
  for (int i = 0; i < 30000; i++) {
    const in_addr address = {htonl(random.number())};
    char text[INET_ADDRSTRLEN];
    check(inet_ntop(AF_INET, &address, text, sizeof text));
  }
  EXPECT_GT(in_common_, 29000u);  // one address in 256 begins with 0
}

// ---- mu_ip2str ------------------------------------------------------------------------------------------------------

TEST(Ip2Str, WritesTheOctetsFromTheTopDown) {
  char text[MU_IP_TEXT_SIZE];
  EXPECT_EQ(mu_ip2str(text, 0x01020304), 0);
  EXPECT_STREQ(text, "1.2.3.4");
  EXPECT_EQ(mu_ip2str(text, 0), 0);
  EXPECT_STREQ(text, "0.0.0.0");
  EXPECT_EQ(mu_ip2str(text, 0xFFFFFFFF), 0);
  EXPECT_STREQ(text, "255.255.255.255");
  EXPECT_EQ(mu_ip2str(text, 0x0A63640A), 0);
  EXPECT_STREQ(text, "10.99.100.10");
}

TEST(Ip2Str, RefusesNull) { EXPECT_EQ(mu_ip2str(nullptr, 1), 1); }

TEST(Ip2Str, WritesNothingBehindTheNul) {
  for (uint32_t ip : {0u, 0x0A000001u, 0xFFFFFFFFu}) {
    std::string room(20, '#');
    EXPECT_EQ(mu_ip2str(room.data(), ip), 0);
    const size_t length = room.find('\0');
    ASSERT_LT(length, size_t{MU_IP_TEXT_SIZE});
    EXPECT_EQ(room.substr(length + 1), std::string(20 - length - 1, '#'));
  }
}

TEST(Ip2Str, AgreesWithInetNtop) {
  const auto check = [](uint32_t ip) {
    const in_addr address = {htonl(ip)};
    char expected[INET_ADDRSTRLEN];
    inet_ntop(AF_INET, &address, expected, sizeof expected);
    char text[MU_IP_TEXT_SIZE];
    ASSERT_EQ(mu_ip2str(text, ip), 0);
    ASSERT_STREQ(text, expected);
  };
  for (uint32_t pair = 0; pair < 0x10000; pair++) check(pair * 0x10001);  // every pair of octets, twice
  Random random(9);
  for (int i = 0; i < 20000; i++) check(random.number());
}

TEST_F(Str2Ip, ReadsBackWhatIp2StrWrites) {
  Random random(10);
  for (int i = 0; i < 20000; i++) {
    const uint32_t address = random.number() | 0x01000000;  // no first octet of 0
    char text[MU_IP_TEXT_SIZE];
    ASSERT_EQ(mu_ip2str(text, address), 0);
    uint32_t ip = ~address;
    ASSERT_EQ(mu_str2ip(guarded_(text), &ip), 0) << text;
    ASSERT_EQ(ip, address) << text;
  }
}
