// SPDX-FileCopyrightText: 2026 The tarn authors
// SPDX-License-Identifier: Apache-2.0

// Splits a line of a script into words.
#ifndef TARN_SIM_LAUNCHER_WORDS_H
#define TARN_SIM_LAUNCHER_WORDS_H

#include <cstddef>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace tarn_sim {

// What is wrong with a line, and where.
struct Fault {
  std::size_t column;  // from 1
  std::string reason;
};

struct Word {
  std::string text;  // without the quotes, and with the escapes replaced
  std::size_t column;
  bool is_quoted;
};

// Blanks separate words, '#' begins a comment. Returns nothing if the line is faulty.
std::optional<std::vector<Word>> split(std::string_view line, Fault *fault);

}  // namespace tarn_sim

#endif
