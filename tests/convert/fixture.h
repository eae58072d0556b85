// SPDX-FileCopyrightText: 2026 The tarn authors
// SPDX-License-Identifier: Apache-2.0

// Shared by the tests of the conversions: memory that ends where the caller's does, and texts to try.
#ifndef TARN_TESTS_CONVERT_FIXTURE_H
#define TARN_TESTS_CONVERT_FIXTURE_H

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <ostream>
#include <string>
#include <string_view>
#include <vector>

#include "support/guarded.h"
#include "support/random.h"
#include "tarn/convert.h"

namespace tarn_test {

using Bytes = std::vector<uint8_t>;

// ---- Memory ---------------------------------------------------------------------------------------------------------

// Texts whose NUL is the last readable byte, or whose first character is the first one. Valid until the next call.
class TextMemory {
 public:
  const char *at_end(std::string_view text) const { return put(text, back_.bytes() + kSize - text.size() - 1); }
  const char *at_start(std::string_view text) const { return put(text, front_.bytes()); }

 private:
  static constexpr size_t kSize = 300000;

  static const char *put(std::string_view text, uint8_t *at) {
    if (text.size() >= kSize) abort();
    memcpy(at, text.data(), text.size());
    at[text.size()] = 0;
    return reinterpret_cast<const char *>(at);
  }

  Guarded back_{kSize, Guarded::kBack};
  Guarded front_{kSize, Guarded::kFront};
};

// Bytes to write to. The memory after them has no access; guard bytes come before them.
class Output {
 public:
  static constexpr uint8_t kUntouched = 0xA5;

  // `size` bytes of kUntouched.
  uint8_t *fresh(size_t size) {
    if (size + kGuard > kSize) abort();
    size_ = size;
    memset(begin() - kGuard, kUntouched, size_ + kGuard);
    return begin();
  }

  // Their content; one byte more if a guard byte was written.
  Bytes bytes() const {
    const bool intact = std::all_of(begin() - kGuard, begin(), [](uint8_t byte) { return byte == kUntouched; });
    return {begin() - (intact ? 0 : 1), begin() + size_};
  }

 private:
  static constexpr size_t kGuard = 64;
  static constexpr size_t kSize = 80000;

  uint8_t *begin() const { return guarded_.bytes() + kSize - size_; }

  Guarded guarded_{kSize, Guarded::kBack};
  size_t size_ = 0;
};

// The content of an output of `size` bytes after its first bytes were written.
inline Bytes written(Bytes bytes, size_t size) {
  bytes.resize(size, Output::kUntouched);
  return bytes;
}

// The same for a text and its NUL.
inline Bytes written_text(std::string_view text, size_t size) {
  Bytes bytes(text.begin(), text.end());
  bytes.push_back(0);
  return written(bytes, size);
}

// ---- Parsers --------------------------------------------------------------------------------------------------------

template <typename Value>
struct Parsed {
  mu_status_t status;
  Value output;  // its content after the call
  bool operator==(const Parsed &) const = default;

  friend void PrintTo(const Parsed &parsed, std::ostream *out) {
    *out << "status " << parsed.status << ", output " << testing::PrintToString(parsed.output);
  }
};

// An output that a parser did not write.
template <typename Number>
constexpr Number kUntouched = static_cast<Number>(0xA5A5A5A5A5A5A5A5);

// Calls the parsers with memory that ends with the text and with the output.
class Conversion : public testing::Test {
 protected:
  template <typename Number>
  Parsed<Number> parse(mu_status_t (*parser)(const char *, Number *), std::string_view text) {
    uint8_t *const out = output_.fresh(sizeof(Number));
    const mu_status_t status = parser(text_.at_end(text), reinterpret_cast<Number *>(out));
    const Bytes bytes = output_.bytes();
    EXPECT_EQ(bytes.size(), sizeof(Number)) << "a byte before the output was written, for " << text;
    Number number;
    memcpy(&number, bytes.data(), sizeof number);
    return {status, number};
  }

  TextMemory text_;
  Output output_;
};

// ---- Texts ----------------------------------------------------------------------------------------------------------

inline constexpr std::string_view kDecimal = "0123456789";
inline constexpr std::string_view kHexadecimal = "0123456789abcdefABCDEF";

// All characters with a meaning in the grammars, and similar ones: the neighbours of the digits and letters in the
// character set, digits with the top bit set, signs, white space.
inline constexpr std::string_view kRelevant = "0123456789abcdefABCDEFxXgG/:@`.+- \t\xB0\xE1\xFF";

// Every character but the NUL.
inline std::string every_character() {
  std::string all;
  for (int c = 1; c < 256; c++) all += static_cast<char>(c);
  return all;
}

// Calls `check` with every text over `alphabet` of at most `longest` characters, until one fails.
template <typename Check>
void for_each_text(std::string_view alphabet, size_t longest, Check check) {
  std::vector<size_t> letters;
  std::string text;
  while (letters.size() <= longest && !testing::Test::HasFailure()) {
    check(text);
    size_t at = 0;
    while (at < letters.size() && ++letters[at] == alphabet.size()) letters[at++] = 0;
    if (at == letters.size()) letters.push_back(0);
    text.resize(letters.size());
    for (size_t i = 0; i < letters.size(); i++) text[i] = alphabet[letters[i]];
  }
}

// Calls `check` with every text that differs from `text` in one character: replaced by or inserted from all characters,
// or removed. `text` is among them.
template <typename Check>
void for_each_neighbour(const std::string &text, Check check) {
  for (size_t at = 0; at <= text.size(); at++) {
    for (const char c : every_character()) {
      std::string changed = text;
      if (at < text.size()) changed[at] = c;
      check(changed);
      check(std::string(text).insert(at, 1, c));
    }
    if (at < text.size()) check(std::string(text).erase(at, 1));
  }
}

// `text` with a character replaced, inserted or removed.
inline std::string damaged(std::string text, std::string_view alphabet, Random &random) {
  const size_t at = random.below(text.size() + 1);
  const uint64_t kind = random.below(3);
  if (kind == 0 || at == text.size()) return text.insert(at, 1, random.of(alphabet));
  if (kind == 1) return text.erase(at, 1);
  text[at] = random.of(alphabet);
  return text;
}

inline bool consists_of(std::string_view text, std::string_view characters) {
  return text.find_first_not_of(characters) == std::string_view::npos;
}

// -1 for anything that is not a hexadecimal digit.
inline int hex_value(char c) {
  const size_t at = kHexadecimal.find(c);
  if (at == std::string_view::npos) return -1;
  return static_cast<int>(at < 16 ? at : at - 6);
}

// A number in hexadecimal, filled with zeros to `digits` places.
inline std::string hexadecimal(uint64_t value, bool upper_case, int digits = 1) {
  char text[24];
  const auto number = static_cast<unsigned long long>(value);
  (void)(upper_case ? snprintf(text, sizeof text, "%0*llX", digits, number)
                    : snprintf(text, sizeof text, "%0*llx", digits, number));
  return text;
}

// The parts of a text between the separators: one more than there are separators.
inline std::vector<std::string> split(const std::string &text, char separator) {
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

}  // namespace tarn_test

#endif
