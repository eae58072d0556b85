// IPv6 addresses: mu_str2ipv6 and mu_ipv6tostr.
//
// Two models judge the parser: the grammar of RFC 4291, section 2.2, written down here, and libc's inet_pton.

#include <arpa/inet.h>
#include <gtest/gtest.h>

#include <array>
#include <optional>
#include <ostream>
#include <type_traits>

#include "convert/contract_support.h"
#include "tarn/convert.h"

using namespace tarn_reference;

static_assert(MU_IPV6_BYTES == 16 && MU_IPV6_TEXT_SIZE == 40);
static_assert(std::is_same_v<decltype(&mu_str2ipv6), mu_status_t (*)(const char *, uint8_t *)>);
static_assert(std::is_same_v<decltype(&mu_ipv6tostr), mu_status_t (*)(char *, const uint8_t *)>);

namespace {

struct Parsed {
  mu_status_t status;
  Bytes address;  // what the output holds afterwards
  bool operator==(const Parsed &) const = default;
};

std::ostream &operator<<(std::ostream &out, const Parsed &parsed) {
  return out << "status " << parsed.status << " address " << testing::PrintToString(parsed.address);
}

const Parsed kRefused = {1, written({}, MU_IPV6_BYTES)};

Bytes address(const std::array<uint16_t, 8> &groups) {
  Bytes bytes;
  for (const uint16_t group : groups) {
    bytes.push_back(static_cast<uint8_t>(group >> 8));
    bytes.push_back(static_cast<uint8_t>(group & 0xFF));
  }
  return bytes;
}

// ---- The grammar ----------------------------------------------------------------------------------------------------

std::vector<std::string> split(const std::string &text, char separator) {
  std::vector<std::string> parts(1);
  for (const char c : text) {
    if (c == separator) {
      parts.emplace_back();
    } else {
      parts.back() += c;
    }
  }
  return parts;
}

// Four decimal octets without leading zeros.
std::optional<Bytes> quad(const std::string &text) {
  Bytes bytes;
  for (const std::string &octet : split(text, '.')) {
    if (octet.empty() || octet.size() > 3 || (octet.size() > 1 && octet[0] == '0')) return {};
    if (!std::all_of(octet.begin(), octet.end(), is_decimal) || std::stoul(octet) > 255) return {};
    bytes.push_back(static_cast<uint8_t>(std::stoul(octet)));
  }
  if (bytes.size() != 4) return {};
  return bytes;
}

// Groups with a colon between two of them, or none at all; a quad for the last two when it `may_end_in_quad`.
std::optional<Bytes> groups(const std::string &text, bool may_end_in_quad) {
  Bytes bytes;
  if (text.empty()) return bytes;
  const std::vector<std::string> parts = split(text, ':');
  for (size_t i = 0; i < parts.size(); i++) {
    if (may_end_in_quad && i + 1 == parts.size() && parts[i].find('.') != std::string::npos) {
      const std::optional<Bytes> end = quad(parts[i]);
      if (!end) return {};
      bytes.insert(bytes.end(), end->begin(), end->end());
      continue;
    }
    const bool hex = std::all_of(parts[i].begin(), parts[i].end(), [](char c) { return hex_value(c) >= 0; });
    if (parts[i].empty() || parts[i].size() > 4 || !hex) return {};
    const unsigned long group = std::stoul(parts[i], nullptr, 16);
    bytes.push_back(static_cast<uint8_t>(group >> 8));
    bytes.push_back(static_cast<uint8_t>(group & 0xFF));
  }
  return bytes;
}

Parsed reference_str2ipv6(const std::string &text) {
  const size_t gap = text.find("::");
  if (gap == std::string::npos) {
    const std::optional<Bytes> all = groups(text, true);
    return all && all->size() == 16 ? Parsed{0, *all} : kRefused;
  }
  if (text.find("::", gap + 1) != std::string::npos) return kRefused;
  const std::optional<Bytes> before = groups(text.substr(0, gap), false);
  const std::optional<Bytes> after = groups(text.substr(gap + 2), true);
  if (!before || !after || before->size() + after->size() > 14) return kRefused;
  Bytes bytes = *before;
  bytes.resize(16 - after->size(), 0);
  bytes.insert(bytes.end(), after->begin(), after->end());
  return {0, bytes};
}

Parsed libc_str2ipv6(const std::string &text) {
  Bytes bytes(16);
  return inet_pton(AF_INET6, text.c_str(), bytes.data()) == 1 ? Parsed{0, bytes} : kRefused;
}

class Parser {
 public:
  explicit Parser(size_t longest = 4000) : text_(longest) {}

  Parsed operator()(std::string_view text) {
    out_.reset();
    const mu_status_t status = mu_str2ipv6(text_.at_end(text), out_.data());
    return {status, out_.bytes()};
  }

  void check(const std::string &text) {
    const Parsed parsed = (*this)(text);
    EXPECT_EQ(parsed, reference_str2ipv6(text)) << text;
    EXPECT_EQ(parsed, libc_str2ipv6(text)) << text;
  }

 private:
  TextMemory text_;
  Output out_{MU_IPV6_BYTES};
};

std::string repeated_group(int count) {
  std::string text;
  for (int i = 0; i < count; i++) text += (i == 0 ? "" : ":") + std::to_string(i + 1);
  return text;
}

// A valid address, in any of its forms.
std::string generated(Random &random) {
  const bool gap = random.below(2) != 0;
  const bool ends_in_quad = random.below(3) == 0;
  const uint32_t units = ends_in_quad ? 6 : 8;
  const uint32_t groups = gap ? random.below(units) : units;
  const uint32_t before = gap ? random.below(groups + 1) : groups + 1;
  std::string text;
  for (uint32_t i = 0; i <= groups; i++) {
    const bool last = i == groups;
    if (i == before) text += "::";
    if (last && !ends_in_quad) break;
    if (!text.empty() && text.back() != ':') text += ':';
    if (!last) text += random.text("0123456789abcdefABCDEF", 1 + random.below(4));
  }
  if (!ends_in_quad) return text;
  for (int i = 0; i < 4; i++) text += (i == 0 ? "" : ".") + std::to_string(random.below(256));
  return text;
}

}  // namespace

// ---- mu_str2ipv6 ----------------------------------------------------------------------------------------------------

TEST(Str2Ipv6Contract, AgreesWithTheModelsOnEveryArrangementOfDigitsAndColons) {
  Parser parse;
  for_each_text("7:", 13, [&](const std::string &text) { parse.check(text); });
}

TEST(Str2Ipv6Contract, AgreesWithTheModelsOnEveryShortTextWithDots) {
  Parser parse;
  for_each_text("10:.", 6, [&](const std::string &text) { parse.check(text); });
}

TEST(Str2Ipv6Contract, AgreesWithTheModelsOnEveryShortTail) {
  Parser parse;
  for (const char *start : {"::1.1", "1:2:3:4:5:6:7", "1:2:3:4:5:6", "1:2:3:4:5::7:8"}) {
    for_each_text("10:.", 5, [&](const std::string &tail) { parse.check(start + tail); });
  }
}

TEST(Str2Ipv6Contract, AgreesWithTheModelsWithEveryCharacterInEveryPlace) {
  Parser parse;
  for (const std::string text : {"::", "1:2:3:4:5:6:7:8", "::ffff:1.2.3.4"}) {
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

TEST(Str2Ipv6Contract, AgreesWithTheModelsOnGeneratedTexts) {
  Parser parse;
  Random random;
  int taken = 0;
  for (int round = 0; round < 5000 && !HasFailure(); round++) {
    std::string text = generated(random);
    taken += parse(text).status == 0 ? 1 : 0;
    for (int damage = 0; damage < 3; damage++) {
      parse.check(text);
      text = random.damaged(text, "019aF:::..gG/@` -%");
    }
  }
  EXPECT_EQ(taken, 5000);
}

TEST(Str2Ipv6Contract, TakesExactlyTheCountsOfGroupsThatFit) {
  Parser parse;
  for (int before = 0; before <= 10; before++) {
    for (int after = 0; after <= 10; after++) {
      for (const bool ends_in_quad : {false, true}) {
        std::string text = repeated_group(before) + "::" + repeated_group(after);
        if (ends_in_quad) text += std::string(after == 0 ? "" : ":") + "1.2.3.4";
        const bool fits = before + after + (ends_in_quad ? 2 : 0) <= 7;
        EXPECT_EQ(parse(text).status, fits ? 0 : 1) << text;
        parse.check(text);
      }
    }
  }
  for (int count = 0; count <= 10; count++) {
    EXPECT_EQ(parse(repeated_group(count)).status, count == 8 ? 0 : 1) << count;
    EXPECT_EQ(parse(repeated_group(count) + ":1.2.3.4").status, count == 6 ? 0 : 1) << count;
  }
}

TEST(Str2Ipv6Contract, StoresInNetworkOrder) {
  EXPECT_EQ(Parser()("0011:2233:4455:6677:8899:aAbB:CcdD:EEFF"),
            (Parsed{0, address({0x0011, 0x2233, 0x4455, 0x6677, 0x8899, 0xAABB, 0xCCDD, 0xEEFF})}));
  EXPECT_EQ(Parser()("1:2:3:4:5:6:7:8"), (Parsed{0, address({1, 2, 3, 4, 5, 6, 7, 8})}));
}

TEST(Str2Ipv6Contract, TwoColonsAloneAreAllZeros) { EXPECT_EQ(Parser()("::"), (Parsed{0, Bytes(16, 0)})); }

TEST(Str2Ipv6Contract, TwoColonsFillTheGap) {
  Parser parse;
  EXPECT_EQ(parse("::1"), (Parsed{0, address({0, 0, 0, 0, 0, 0, 0, 1})}));
  EXPECT_EQ(parse("1::"), (Parsed{0, address({1, 0, 0, 0, 0, 0, 0, 0})}));
  EXPECT_EQ(parse("2001:db8::1"), (Parsed{0, address({0x2001, 0xDB8, 0, 0, 0, 0, 0, 1})}));
  EXPECT_EQ(parse("1:2::7:8"), (Parsed{0, address({1, 2, 0, 0, 0, 0, 7, 8})}));
  EXPECT_EQ(parse("1:2:3:4::5:6:7"), (Parsed{0, address({1, 2, 3, 4, 0, 5, 6, 7})}));  // more behind than the gap
  EXPECT_EQ(parse("::2:3:4:5:6:7:8"), (Parsed{0, address({0, 2, 3, 4, 5, 6, 7, 8})}));
  EXPECT_EQ(parse("1:2:3:4:5:6:7::"), (Parsed{0, address({1, 2, 3, 4, 5, 6, 7, 0})}));
}

TEST(Str2Ipv6Contract, RefusesTwoColonsThatStandForNoGroup) {
  Parser parse;
  for (const char *text : {"1:2:3:4:5:6:7::8", "::1:2:3:4:5:6:7:8", "1:2:3:4:5:6:7:8::", "1:2:3:4::5:6:7:8",
                           "1:2:3:4:5:6::1.2.3.4", "::1:2:3:4:5:6:1.2.3.4"}) {
    EXPECT_EQ(parse(text), kRefused) << text;
  }
}

TEST(Str2Ipv6Contract, RefusesASecondPairOfColons) {
  Parser parse;
  for (const char *text : {"1::2::3", "::1::", "::1::2", ":::", "::::", "1:::2", "1:::", ":::1", "1::2:::3"}) {
    EXPECT_EQ(parse(text), kRefused) << text;
  }
}

TEST(Str2Ipv6Contract, RefusesASingleColonAtTheStart) {
  Parser parse;
  for (const char *text : {":", ":1", ":1:2:3:4:5:6:7:8", ":1::2", ":1:2:3:4:5:6:7", ":.1.2.3", ":g", ":1.2.3.4"}) {
    EXPECT_EQ(parse(text), kRefused) << text;
  }
}

TEST(Str2Ipv6Contract, RefusesASingleColonAtTheEnd) {
  Parser parse;
  for (const char *text : {"1:", "1:2:3:4:5:6:7:", "1:2:3:4:5:6:7:8:", "::1:", "1::2:", "::1.2.3.4:"}) {
    EXPECT_EQ(parse(text), kRefused) << text;
  }
}

TEST(Str2Ipv6Contract, RefusesFewerThanEightGroupsAndTheEmptyText) {
  Parser parse;
  for (const char *text : {"", "1", "1:2", "1:2:3:4:5:6:7", "1:2:3:4:5:1.2.3.4", "1.2.3.4", "1:1.2.3.4"}) {
    EXPECT_EQ(parse(text), kRefused) << text;
  }
}

TEST(Str2Ipv6Contract, RefusesANinthGroup) {
  Parser parse;
  for (const char *text : {"1:2:3:4:5:6:7:8:9", "1:2:3:4:5:6:7:8:9:a", "::1:2:3:4:5:6:7:8:9", "1::2:3:4:5:6:7:8:9"}) {
    EXPECT_EQ(parse(text), kRefused) << text;
  }
}

TEST(Str2Ipv6Contract, RefusesAFifthDigitLeadingZerosIncluded) {
  Parser parse;
  for (const char *text : {"12345::", "00001::", "::00000", "1:2:3:4:5:6:7:00008", "::fffff", "::12345.1.1.1"}) {
    EXPECT_EQ(parse(text), kRefused) << text;
  }
  EXPECT_EQ(parse("0001::0000"), (Parsed{0, address({1, 0, 0, 0, 0, 0, 0, 0})}));
}

TEST(Str2Ipv6Contract, TakesAQuadInPlaceOfTheLastTwoGroups) {
  Parser parse;
  EXPECT_EQ(parse("::ffff:1.2.3.4"), (Parsed{0, address({0, 0, 0, 0, 0, 0xFFFF, 0x0102, 0x0304})}));
  EXPECT_EQ(parse("::1.2.3.4"), (Parsed{0, address({0, 0, 0, 0, 0, 0, 0x0102, 0x0304})}));
  EXPECT_EQ(parse("1:2:3:4:5:6:255.0.10.99"), (Parsed{0, address({1, 2, 3, 4, 5, 6, 0xFF00, 0x0A63})}));
  EXPECT_EQ(parse("1:2:3:4:5::0.0.0.0"), (Parsed{0, address({1, 2, 3, 4, 5, 0, 0, 0})}));  // mu_str2ip refuses 0.0.0.0
}

TEST(Str2Ipv6Contract, RefusesAQuadWithoutRoomForFourBytes) {
  Parser parse;
  for (const char *text : {"1:2:3:4:5:6:7:1.2.3.4", "1:2:3:4:5:6:7:8:1.2.3.4", "1:2:3:4:5:6:7::1.2.3.4"}) {
    EXPECT_EQ(parse(text), kRefused) << text;
  }
}

TEST(Str2Ipv6Contract, AQuadEndsTheText) {
  Parser parse;
  for (const char *text : {"1.2.3.4::", "::1.2.3.4:5", "::1.2.3.4::", "1.2.3.4:1:2:3:4:5:6", "::1.2.3.4.5",
                           "::1.2.3.4 ", "::1.2.3.4.", "::1.2.3.4/8", "::1.2.3.4a"}) {
    EXPECT_EQ(parse(text), kRefused) << text;
  }
}

TEST(Str2Ipv6Contract, TheQuadHasFourOctets) {
  Parser parse;
  for (const char *text :
       {"::1.2.3", "::1.2", "::1.", "::.", "::.1.2.3", "::1..2.3", "::1.2.3.", "::1.2..4", "::...."}) {
    EXPECT_EQ(parse(text), kRefused) << text;
  }
}

TEST(Str2Ipv6Contract, TheQuadsOctetsAreDecimalAtMost255WithoutLeadingZeros) {
  Parser parse;
  for (const char *text : {"::1.2.3.01", "::01.2.3.4", "::1.02.3.4", "::1.2.00.4", "::00.0.0.0", "::1.2.3.256",
                           "::256.2.3.4", "::1.2.3.1000", "::1.2.3.4294967300", "::1.2.3.18446744073709551620",
                           "::a.2.3.4", "::1.2.3.a", "::1f.2.3.4", "::1.0x2.3.4", "::1.-2.3.4", "::1.+2.3.4"}) {
    EXPECT_EQ(parse(text), kRefused) << text;
  }
}

TEST(Str2Ipv6Contract, TakesEveryOctetOfTheQuadInEveryPlace) {
  Parser parse;
  for (size_t place = 0; place < 4; place++) {
    for (unsigned value = 0; value < 1100; value++) {
      std::array<std::string, 4> octets = {"1", "1", "1", "1"};
      octets.at(place) = std::to_string(value);
      Bytes expected(16, 0);
      for (size_t i = 12; i < 16; i++) expected[i] = 1;
      expected[12 + place] = static_cast<uint8_t>(value);
      const std::string text = "::" + octets[0] + '.' + octets[1] + '.' + octets[2] + '.' + octets[3];
      EXPECT_EQ(parse(text), (value <= 255 ? Parsed{0, expected} : kRefused)) << text;
    }
  }
}

TEST(Str2Ipv6Contract, RefusesAnyOtherCharacter) {
  Parser parse;
  for (const char *text :
       {"::1%eth0", "::1/64", "[::1]", " ::1", "::1 ", "::g", "::G", "::0x1", "1::-1", "::1\n", "fe80;1"}) {
    EXPECT_EQ(parse(text), kRefused) << text;
  }
}

TEST(Str2Ipv6Contract, EveryGroupHasItsValueInEitherCase) {
  Parser parse;
  const std::string lower = "0123456789abcdef";
  const std::string upper = "0123456789ABCDEF";
  for (unsigned value = 0; value < 0x10000 && !HasFailure(); value += 7) {
    const Parsed expected = {0, address({0, 0, 0, 0, 0, 0, static_cast<uint16_t>(value), 0})};
    for (const std::string &digits : {lower, upper}) {
      std::string group;
      for (unsigned shift = 16; shift != 0; shift -= 4) group += digits[value >> (shift - 4) & 15];
      EXPECT_EQ(parse("::" + group + ":0"), expected) << group;
      EXPECT_EQ(parse("::" + group.substr(std::min<size_t>(group.find_first_not_of('0'), 3)) + ":0"), expected)
          << group;
    }
  }
}

TEST(Str2Ipv6Contract, LongTextsAreRefused) {
  Parser parse(100000);
  const std::string zeros(70000, '0');
  for (const std::string &text :
       {zeros, "::" + zeros, "::1.2.3." + zeros, "::1.2.3.4" + zeros, "::1:" + zeros + ":2"}) {
    EXPECT_EQ(parse(text), kRefused);
  }
}

TEST(Str2Ipv6Contract, NothingBeforeTheTextIsRead) {
  TextMemory memory;
  Bytes out(16);
  for (const char *text : {"", ":", "::", ".", "1", "1.2.3.4", "::1.2.3.4"}) {
    EXPECT_EQ(mu_str2ipv6(memory.at_start(text), out.data()), reference_str2ipv6(text).status) << text;
  }
}

// ---- mu_ipv6tostr ---------------------------------------------------------------------------------------------------

namespace {

std::string shown(const Bytes &bytes) {
  std::string text;
  for (size_t i = 0; i < 16; i += 2) {
    std::string group;
    for (const int nibble : {bytes[i] >> 4, bytes[i] & 15, bytes[i + 1] >> 4, bytes[i + 1] & 15}) {
      if (nibble != 0 || !group.empty()) group += "0123456789ABCDEF"[nibble];
    }
    text += (i == 0 ? "" : ":") + (group.empty() ? "0" : group);
  }
  return text;
}

// The printer's text with an output of exactly the stated size, and an address behind which nothing may be read.
class Printer {
 public:
  Bytes operator()(const Bytes &bytes) {
    out_.reset();
    memcpy(in_.data(), bytes.data(), bytes.size());
    EXPECT_EQ(mu_ipv6tostr(out_.text(), in_.data()), 0);
    EXPECT_EQ(in_.bytes(), bytes);
    return out_.bytes();
  }

 private:
  Output out_{MU_IPV6_TEXT_SIZE};
  Output in_{MU_IPV6_BYTES};
};

}  // namespace

TEST(Ipv6ToStrContract, WritesEightGroupsInUpperCaseWithoutLeadingZeros) {
  const std::pair<Bytes, const char *> kRows[] = {
      {address({0x2001, 0xDB8, 0, 0, 0, 0, 0, 1}), "2001:DB8:0:0:0:0:0:1"},
      {Bytes(16, 0), "0:0:0:0:0:0:0:0"},
      {address({0, 0, 0, 0, 0, 0, 0, 1}), "0:0:0:0:0:0:0:1"},
      {address({0, 0, 0, 0, 0, 0xFFFF, 0x0102, 0x0304}), "0:0:0:0:0:FFFF:102:304"},  // no quad either
      {address({0xABCD, 0xBC, 0xC, 0x1000, 0x100, 0x10, 0, 0xF00F}), "ABCD:BC:C:1000:100:10:0:F00F"},
      {Bytes(16, 0xFF), "FFFF:FFFF:FFFF:FFFF:FFFF:FFFF:FFFF:FFFF"},
  };
  Printer print;
  for (const auto &[bytes, text] : kRows) EXPECT_EQ(print(bytes), written_text(text, MU_IPV6_TEXT_SIZE)) << text;
}

TEST(Ipv6ToStrContract, TheLongestTextFillsTheStatedSize) {
  const Bytes written = Printer()(Bytes(16, 0xEE));
  EXPECT_EQ(written.size(), 40u);
  EXPECT_EQ(written[38], 'E');
  EXPECT_EQ(written[39], 0);
}

TEST(Ipv6ToStrContract, WritesEveryGroupAndNothingBehindTheNul) {
  Printer print;
  for (unsigned value = 0; value < 0x10000 && !HasFailure(); value += 5) {
    const auto group = static_cast<uint16_t>(value);
    std::array<uint16_t, 8> groups{};
    groups.at(value % 8) = group;
    const Bytes bytes = address(groups);
    EXPECT_EQ(print(bytes), written_text(shown(bytes), MU_IPV6_TEXT_SIZE)) << shown(bytes);
  }
}

TEST(Ipv6ToStrContract, WritesGeneratedAddressesThatParseBack) {
  Printer print;
  Parser parse;
  Random random;
  for (int round = 0; round < 8000 && !HasFailure(); round++) {
    Bytes bytes(16);
    for (uint8_t &byte : bytes)
      byte = static_cast<uint8_t>(random.below(3) == 0 ? 0 : random.byte() >> random.below(8));
    EXPECT_EQ(print(bytes), written_text(shown(bytes), MU_IPV6_TEXT_SIZE)) << shown(bytes);
    EXPECT_EQ(parse(shown(bytes)), (Parsed{0, bytes})) << shown(bytes);
  }
}

TEST(Ipv6ToStrContract, RefusesANullOutput) {
  const Bytes bytes(16, 0);
  EXPECT_EQ(mu_ipv6tostr(nullptr, bytes.data()), 1);
}
