// SPDX-FileCopyrightText: 2026 The tarn authors
// SPDX-License-Identifier: Apache-2.0
#include "words.h"

#include <charconv>
#include <cmath>
#include <cstdlib>

namespace tarn_tools {

namespace {

constexpr int kDecimal = 10;
constexpr int kHexadecimal = 16;
constexpr double kIntervalLeastS = 0.01;
constexpr double kIntervalMostS = 3600;
constexpr double kMsPerS = 1000;

}  // namespace

std::optional<std::uint32_t> number_from(std::string_view text, std::uint32_t most) {
  const bool is_hex = text.starts_with("0x") || text.starts_with("0X");
  if (is_hex) text.remove_prefix(2);
  std::uint32_t number = 0;
  const auto [end, error] =
      std::from_chars(text.data(), text.data() + text.size(), number, is_hex ? kHexadecimal : kDecimal);
  if (error != std::errc() || end != text.data() + text.size() || number > most) return std::nullopt;
  return number;
}

std::uint32_t number_of(const std::string &what, const std::string &word, std::uint32_t least, std::uint32_t most) {
  const std::optional<std::uint32_t> number = number_from(word, most);
  if (!number || *number < least) {
    refuse(what, word, "is not a number from " + std::to_string(least) + " to " + std::to_string(most));
  }
  return *number;
}

int milliseconds_of(const std::string &what, const std::string &word) {
  char *end = nullptr;
  const double seconds = strtod(word.c_str(), &end);
  // The form of this condition also refuses "nan", which is neither less nor greater.
  const bool fits = !word.empty() && *end == '\0' && seconds >= kIntervalLeastS && seconds <= kIntervalMostS;
  if (!fits) refuse(what, word, "is not a number of seconds from 0.01 to 3600");
  return static_cast<int>(std::lround(seconds * kMsPerS));
}

}  // namespace tarn_tools
