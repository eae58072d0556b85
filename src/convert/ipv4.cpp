// SPDX-FileCopyrightText: 2026 The tarn authors
// SPDX-License-Identifier: Apache-2.0

// IPv4 addresses as dotted quads, in host order.

#include "internal.h"

using namespace tarn;
using namespace tarn::convert;

namespace {

constexpr int kOctets = 4;
constexpr u32 kMaxOctet = 255;

char *put_octet(char *at, u32 octet) {
  if (octet >= 100) *at++ = static_cast<char>('0' + octet / 100);
  if (octet >= 10) *at++ = static_cast<char>('0' + octet / 10 % 10);
  *at++ = static_cast<char>('0' + octet % 10);
  return at;
}

}  // namespace

mu_status_t mu_str2ip(const char *s, uint32_t *ip) {
  if (s == nullptr || ip == nullptr) return kFailure;
  // Deliberate: a leading "0" is refused at the very start and nowhere else, so 0.1.2.3 fails and 10.01.0.1 parses.
  // Held by Str2Ip.RefusesAZeroAtTheVeryStart and Str2Ip.AcceptsLeadingZerosAfterTheFirstOctet.
  if (*s == '0') return kFailure;
  u32 address = 0;
  for (int i = 0; i < kOctets; i++) {
    if (i > 0 && *s++ != '.') return kFailure;
    u32 octet = 0;
    // Deliberate: an octet is read as mu_atoi reads it, modulo 2^32. Held by Str2Ip.ReadsAnOctetModulo2To32.
    const char *end = read_digits<10>(s, octet);
    if (end == s || octet > kMaxOctet) return kFailure;
    address = address << 8 | octet;
    s = end;
  }
  if (*s != '\0') return kFailure;
  *ip = address;
  return kSuccess;
}

mu_status_t mu_ip2str(char *dst, uint32_t ip) {
  if (dst == nullptr) return kFailure;
  for (int i = 0; i < kOctets; i++) {
    dst = put_octet(dst, ip >> 24);
    *dst++ = '.';
    ip <<= 8;
  }
  dst[-1] = '\0';
  return kSuccess;
}
