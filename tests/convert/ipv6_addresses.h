// SPDX-FileCopyrightText: 2026 The tarn authors
// SPDX-License-Identifier: Apache-2.0

// IPv6 addresses as bytes, and calls of their parser and printer with memory that ends where the caller's does.
#ifndef TARN_TESTS_CONVERT_IPV6_ADDRESSES_H
#define TARN_TESTS_CONVERT_IPV6_ADDRESSES_H

#include <array>

#include "convert/fixture.h"

namespace tarn_test {

inline Bytes of_groups(const std::array<uint16_t, 8> &groups) {
  Bytes bytes;
  for (const uint16_t group : groups) {
    bytes.push_back(static_cast<uint8_t>(group >> 8));
    bytes.push_back(static_cast<uint8_t>(group & 0xFF));
  }
  return bytes;
}

inline const Parsed<Bytes> kRefusedIpv6 = {1, written({}, MU_IPV6_BYTES)};

class Ipv6 : public Conversion {
 protected:
  Parsed<Bytes> str2ipv6(std::string_view text) {
    const mu_status_t status = mu_str2ipv6(text_.at_end(text), output_.fresh(MU_IPV6_BYTES));
    return {status, output_.bytes()};
  }

  // Checked to the last byte that the caller provides: nothing after the NUL is written.
  std::string ipv6tostr(const Bytes &address) {
    memcpy(address_.bytes(), address.data(), MU_IPV6_BYTES);
    EXPECT_EQ(mu_ipv6tostr(reinterpret_cast<char *>(output_.fresh(MU_IPV6_TEXT_SIZE)), address_.bytes()), 0);
    EXPECT_TRUE(std::equal(address.begin(), address.end(), address_.bytes()));
    const Bytes bytes = output_.bytes();
    const std::string text(bytes.begin(), std::find(bytes.begin(), bytes.end(), 0));
    EXPECT_EQ(bytes, written_text(text, MU_IPV6_TEXT_SIZE)) << text;
    return text;
  }

 private:
  Guarded address_{MU_IPV6_BYTES};
};

}  // namespace tarn_test

#endif
