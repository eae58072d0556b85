// SPDX-FileCopyrightText: 2026 The tarn authors
// SPDX-License-Identifier: Apache-2.0

// Bytes in hexadecimal.
#ifndef TARN_SIM_LAUNCHER_HEX_H
#define TARN_SIM_LAUNCHER_HEX_H

#include <charconv>
#include <string>
#include <string_view>

namespace tarn_sim {

// Appends the bytes that the digits denote. False if there are none, or if one is not a hexadecimal digit.
inline bool append_hex(std::string_view digits, std::string *bytes) {
  if (digits.empty() || digits.size() % 2 != 0) return false;
  std::string made;
  for (std::size_t i = 0; i < digits.size(); i += 2) {
    const char *begin = digits.data() + i;
    unsigned value = 0;
    const auto [end, error] = std::from_chars(begin, begin + 2, value, 16);
    if (error != std::errc() || end != begin + 2) return false;
    made += static_cast<char>(value);
  }
  *bytes += made;
  return true;
}

}  // namespace tarn_sim

#endif
