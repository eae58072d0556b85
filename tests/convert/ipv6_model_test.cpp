// SPDX-FileCopyrightText: 2026 The tarn authors
// SPDX-License-Identifier: Apache-2.0

// IPv6 addresses: mu_str2ipv6 and mu_ipv6tostr against two models: the grammar of RFC 4291, section 2.2, implemented
// here, and libc.

#include <arpa/inet.h>

#include <cctype>
#include <optional>

#include "convert/ipv6_addresses.h"

using namespace tarn_test;

namespace {

// ---- The grammar ----------------------------------------------------------------------------------------------------

// Four decimal octets without leading zeros.
std::optional<Bytes> quad(const std::string &text) {
  Bytes bytes;
  for (const std::string &octet : split(text, '.')) {
    if (octet.empty() || octet.size() > 3 || (octet.size() > 1 && octet[0] == '0')) return {};
    if (!consists_of(octet, kDecimal) || std::stoul(octet) > 255) return {};
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
    if (parts[i].empty() || parts[i].size() > 4 || !consists_of(parts[i], kHexadecimal)) return {};
    const unsigned long group = std::stoul(parts[i], nullptr, 16);
    bytes.push_back(static_cast<uint8_t>(group >> 8));
    bytes.push_back(static_cast<uint8_t>(group & 0xFF));
  }
  return bytes;
}

Parsed<Bytes> reference_str2ipv6(const std::string &text) {
  const size_t gap = text.find("::");
  if (gap == std::string::npos) {
    const std::optional<Bytes> all = groups(text, true);
    return all && all->size() == 16 ? Parsed<Bytes>{0, *all} : kRefusedIpv6;
  }
  if (text.find("::", gap + 1) != std::string::npos) return kRefusedIpv6;
  const std::optional<Bytes> before = groups(text.substr(0, gap), false);
  const std::optional<Bytes> after = groups(text.substr(gap + 2), true);
  if (!before || !after || before->size() + after->size() > 14) return kRefusedIpv6;
  Bytes bytes = *before;
  bytes.resize(16 - after->size(), 0);
  bytes.insert(bytes.end(), after->begin(), after->end());
  return {0, bytes};
}

// ---- libc -----------------------------------------------------------------------------------------------------------

Parsed<Bytes> libc_str2ipv6(const std::string &text) {
  Bytes bytes(16);
  return inet_pton(AF_INET6, text.c_str(), bytes.data()) == 1 ? Parsed<Bytes>{0, bytes} : kRefusedIpv6;
}

std::string libc_ipv6tostr(const Bytes &address) {
  char text[INET6_ADDRSTRLEN];
  return inet_ntop(AF_INET6, address.data(), text, sizeof text);
}

// ---- Addresses ------------------------------------------------------------------------------------------------------

// With runs of zeros and small groups, as in real addresses.
Bytes some_address(Random &random) {
  std::array<uint16_t, 8> groups;
  for (uint16_t &group : groups) {
    group = random.below(3) == 0 ? uint16_t{0} : static_cast<uint16_t>(random.below(0x10000) >> random.below(16));
  }
  return of_groups(groups);
}

// A valid address, in any of its forms.
std::string generated(Random &random) {
  const bool gap = random.below(2) != 0;
  const bool ends_in_quad = random.below(3) == 0;
  const uint64_t units = ends_in_quad ? 6 : 8;
  const uint64_t groups = gap ? random.below(units) : units;
  const uint64_t before = gap ? random.below(groups + 1) : groups + 1;
  std::string text;
  for (uint64_t i = 0; i <= groups; i++) {
    const bool last = i == groups;
    if (i == before) text += "::";
    if (last && !ends_in_quad) break;
    if (!text.empty() && text.back() != ':') text += ':';
    if (!last) text += random.text(kHexadecimal, 1 + random.below(4));
  }
  if (!ends_in_quad) return text;
  for (int i = 0; i < 4; i++) text += (i == 0 ? "" : ".") + std::to_string(random.below(256));
  return text;
}

class Ipv6Models : public Ipv6 {
 protected:
  void check(const std::string &text) {
    const Parsed<Bytes> parsed = str2ipv6(text);
    EXPECT_EQ(parsed, reference_str2ipv6(text)) << text;
    EXPECT_EQ(parsed, libc_str2ipv6(text)) << text;
    parsed_ += parsed.status == 0 ? 1u : 0u;
  }

  size_t parsed_ = 0;  // texts that are addresses
};

using Str2Ipv6Models = Ipv6Models;
using Ipv6ToStrModels = Ipv6Models;

}  // namespace

// ---- mu_str2ipv6 ----------------------------------------------------------------------------------------------------

TEST_F(Str2Ipv6Models, AgreeOnEveryShortText) {
  const auto check_text = [this](const std::string &text) { check(text); };
  for_each_text("7:", 13, check_text);
  for_each_text("1:.", 9, check_text);
  for_each_text("10:.", 6, check_text);
  for_each_text("0a:g", 6, check_text);
  for_each_text(kRelevant, 3, check_text);
  for_each_text(every_character(), 2, check_text);
  EXPECT_GT(parsed_, 300u);
}

TEST_F(Str2Ipv6Models, AgreeOnEveryShortTail) {
  for (const char *start : {"::1.1", "1:2:3:4:5:6:7", "1:2:3:4:5:6", "1:2:3:4:5::7:8"}) {
    for_each_text("10:.", 5, [&](const std::string &tail) { check(start + tail); });
  }
}

TEST_F(Str2Ipv6Models, AgreeOnEveryThreeCharactersInEveryPlace) {
  for_each_text("019afG:.%", 3, [this](const std::string &three) {
    check(three + ":2:3:4:5:6:7:8");
    check("1:2:3" + three + "6:7:8");
    check("1:2:3:4:5:6:7:" + three);
    check("1:2:3:4:5:6:" + three);
    check("1:2:3:4::" + three);
    check("::1" + three);
    check("::ffff:" + three + "1.2.3");
    check("::ffff:1." + three + ".3");
    check("1:2:3:4:5:6:1.2.3" + three);
  });
  EXPECT_GT(parsed_, 600u);
}

TEST_F(Str2Ipv6Models, AgreeOnEverySequenceOfPieces) {
  const std::string pieces[] = {":",       "::",       "1",         "ffff",  "12345",   "0",        ".",
                                "1.2.3.4", "01.2.3.4", "256.1.1.1", "1.2.3", "1:2:3:4", "5:6:7:8:", "a:b"};
  // Each letter of the alphabet represents a piece.
  for_each_text("abcdefghijklmn", 4, [&](const std::string &letters) {
    std::string text;
    for (const char letter : letters) text += pieces[letter - 'a'];
    check(text);
  });
  EXPECT_GT(parsed_, 200u);
}

TEST_F(Str2Ipv6Models, AgreeOnEveryNeighbour) {
  for (const char *text : {"2001:db8::8:800:200c:417a", "::ffff:129.144.52.38", "::ffff:1.2.3.4", "1:2:3:4:5:6:7:8",
                           "1:2:3:4:5:6:1.2.3.255", "::", "1::", "abcd:ef01:2345:6789:abcd:ef01:2345:6789"}) {
    for_each_neighbour(text, [this](const std::string &other) { check(other); });
  }
  EXPECT_GT(parsed_, 1000u);
}

TEST_F(Str2Ipv6Models, AgreeOnGeneratedTexts) {
  Random random(11);
  size_t taken = 0;
  for (int round = 0; round < 5000 && !HasFailure(); round++) {
    std::string text = generated(random);
    taken += str2ipv6(text).status == 0 ? 1u : 0u;
    for (int damage = 0; damage < 3; damage++) {
      check(text);
      text = damaged(text, "019aF:::..gG/@` -%", random);
    }
  }
  EXPECT_EQ(taken, 5000u);
  parsed_ = 0;
  for (int i = 0; i < 30000; i++) check(libc_ipv6tostr(some_address(random)));
  EXPECT_EQ(parsed_, 30000u);
}

// ---- mu_ipv6tostr ---------------------------------------------------------------------------------------------------

// libc compresses two zero groups or more, and writes lower case; everything else is equal.
TEST_F(Ipv6ToStrModels, AgreesWithInetNtopWhereNoTwoGroupsInARowAreZero) {
  Random random(12);
  size_t compared = 0;
  for (int i = 0; i < 30000 && !HasFailure(); i++) {
    const Bytes address = some_address(random);
    std::string expected = libc_ipv6tostr(address);
    if (expected.find("::") != std::string::npos) continue;
    for (char &c : expected) c = static_cast<char>(toupper(c));
    EXPECT_EQ(ipv6tostr(address), expected);
    compared++;
  }
  EXPECT_GT(compared, 10000u);
}

TEST_F(Ipv6ToStrModels, EveryParserReadsBackWhatItWrites) {
  Random random(13);
  for (int i = 0; i < 20000 && !HasFailure(); i++) {
    Bytes address = some_address(random);
    if (i % 2 != 0) {
      for (uint8_t &byte : address) {
        byte = random.below(3) == 0 ? uint8_t{0} : static_cast<uint8_t>(random.byte() >> random.below(8));
      }
    }
    const std::string text = ipv6tostr(address);
    EXPECT_EQ(str2ipv6(text), (Parsed<Bytes>{0, address})) << text;
    check(text);
  }
  EXPECT_EQ(parsed_, 20000u);
}
