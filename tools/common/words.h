// SPDX-FileCopyrightText: 2026 The tarn authors
// SPDX-License-Identifier: Apache-2.0

// Words of the command line as values. A word that is not valid throws a UsageError with `what` in its message.
#ifndef TARN_TOOLS_COMMON_WORDS_H
#define TARN_TOOLS_COMMON_WORDS_H

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "report.h"

namespace tarn_tools {

// A decimal number, or a hexadecimal one after 0x, of at most `most`; nothing for another text.
std::optional<std::uint32_t> number_from(std::string_view text, std::uint32_t most);

// The same for a word.
std::uint32_t number_of(const std::string &what, const std::string &word, std::uint32_t least, std::uint32_t most);

// From "0.01" to "3600" seconds.
int milliseconds_of(const std::string &what, const std::string &word);

// The value that the word names.
template <typename Value>
Value choice_of(const std::string &what, const std::string &word,
                const std::vector<std::pair<const char *, Value>> &choices) {
  std::string names;
  for (const auto &[name, value] : choices) {
    if (word == name) return value;
    names += std::string(names.empty() ? "" : ", ") + name;
  }
  refuse(what, word, "is none of " + names);
}

}  // namespace tarn_tools

#endif
