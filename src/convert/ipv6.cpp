// SPDX-FileCopyrightText: 2026 The tarn authors
// SPDX-License-Identifier: Apache-2.0

// IPv6 addresses in the text forms of RFC 4291, section 2.2, in network order.
//
// The bytes of the groups are collected from the left; the position of a "::" among them is remembered. At the end of
// the text, the bytes collected after that position move to the end of the address.

#include <cstring>

#include "internal.h"

using namespace tarn;
using namespace tarn::convert;

namespace {

constexpr int kGroupBytes = 2;
constexpr int kMaxGroupDigits = 4;
constexpr int kQuadBytes = 4;
constexpr int kMaxOctetDigits = 3;
constexpr u32 kMaxOctet = 255;
constexpr int kNoGap = -1;

struct Collected {
  u8 bytes[MU_IPV6_BYTES];
  int used;
  int gap;  // the position of the "::", or kNoGap
};

// A dotted quad up to the end of the text. Unlike mu_str2ip it accepts a first octet of 0 and refuses leading zeros.
bool parse_quad(const char *s, u8 *quad) {
  for (int i = 0; i < kQuadBytes; i++) {
    if (i > 0 && *s++ != '.') return false;
    u32 octet = 0;
    const char *end = read_digits<10>(s, octet);
    if (end == s || end - s > kMaxOctetDigits || octet > kMaxOctet) return false;
    if (*s == '0' && end - s > 1) return false;
    quad[i] = static_cast<u8>(octet);
    s = end;
  }
  return *s == '\0';
}

bool collect_quad(const char *s, Collected &address) {
  if (address.used + kQuadBytes > MU_IPV6_BYTES || !parse_quad(s, address.bytes + address.used)) return false;
  address.used += kQuadBytes;
  return true;
}

bool collect_group(u32 group, Collected &address) {
  if (address.used == MU_IPV6_BYTES) return false;
  address.bytes[address.used++] = static_cast<u8>(group >> 8);
  address.bytes[address.used++] = static_cast<u8>(group);
  return true;
}

// Each round reads one group and the colon after it, or the second colon of a "::".
bool collect(const char *s, Collected &address) {
  if (*s == ':' && *++s != ':') return false;
  while (*s != '\0') {
    u32 group = 0;
    const char *end = read_digits<16>(s, group);
    if (end == s) {
      if (*s != ':' || address.gap != kNoGap) return false;
      address.gap = address.used;
      s++;
      continue;
    }
    if (end - s > kMaxGroupDigits) return false;
    if (*end == '.') return collect_quad(s, address);
    if (!collect_group(group, address)) return false;
    if (*end == '\0') return true;
    if (*end != ':' || end[1] == '\0') return false;  // a single colon does not end an address
    s = end + 1;
  }
  return true;
}

bool is_complete(const Collected &address) {
  return (address.used == MU_IPV6_BYTES) == (address.gap == kNoGap);  // a "::" stands for one group or more
}

void store(const Collected &address, u8 *out) {
  const int head = address.gap == kNoGap ? address.used : address.gap;
  const int tail = address.used - head;
  memset(out, 0, MU_IPV6_BYTES);
  memcpy(out, address.bytes, static_cast<size_t>(head));
  memcpy(out + MU_IPV6_BYTES - tail, address.bytes + head, static_cast<size_t>(tail));
}

char *put_group(char *at, u32 group) {
  constexpr char kDigits[] = "0123456789ABCDEF";
  if (group > 0xFFF) *at++ = kDigits[group >> 12];
  if (group > 0xFF) *at++ = kDigits[group >> 8 & 0xF];
  if (group > 0xF) *at++ = kDigits[group >> 4 & 0xF];
  *at++ = kDigits[group & 0xF];
  return at;
}

}  // namespace

mu_status_t mu_str2ipv6(const char *s, uint8_t addr[MU_IPV6_BYTES]) {
  Collected address = {{}, 0, kNoGap};
  if (!collect(s, address) || !is_complete(address)) return kFailure;
  store(address, addr);
  return kSuccess;
}

mu_status_t mu_ipv6tostr(char *dst, const uint8_t addr[MU_IPV6_BYTES]) {
  if (dst == nullptr) return kFailure;
  // Deliberate: zeros are never compressed to "::". Held by Ipv6ToStr.NeverCompressesZeros.
  for (int i = 0; i < MU_IPV6_BYTES; i += kGroupBytes) {
    if (i > 0) *dst++ = ':';
    dst = put_group(dst, static_cast<u32>(addr[i]) << 8 | addr[i + 1]);
  }
  *dst = '\0';
  return kSuccess;
}
